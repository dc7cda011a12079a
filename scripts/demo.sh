#!/usr/bin/env bash
# A guided tour of the `tev` tool on copies of the bundled sample media:
# add records (one with sub-information), list them, extract and compare,
# replace, delete, and show `info` before and after; a photo with a voice
# memo replaced in place by its rotated version. The originals in
# media/ are never touched.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build}" && pwd)
tev=$build/tools/tev
out=$root/demo-out

step() { printf '\n\033[1m== %s\033[0m\n' "$*"; }
run() {
  printf '$ tev'
  printf ' %q' "$@"
  printf '\n'
  "$tev" "$@"
}

rm -rf "$out"
mkdir -p "$out"
cd "$out"
printf 'Recorded on the balcony, 7 pm.' > caption.txt
printf 'author=demo;lang=en' > sub-info.bin
head -c 4096 /dev/urandom > sound.bin

for sample in sample.jpg sample.mp4; do
  file=$sample
  cp "$root/media/$sample" "$file"
  size=$(stat -c %s "$file")

  step "$sample: a plain media file of $size bytes"
  run info "$file"

  step "$sample: add a sound record (type 256) and a caption with sub-information (type 0)"
  run add "$file" voice --data-file "sound.bin" --type 256
  run add "$file" caption --data-file "caption.txt" --type 0 --sub-info-file "sub-info.bin"
  run list "$file"

  step "$sample: extract both records and compare them with what went in"
  run extract "$file" voice -o "voice.out"
  cmp "sound.bin" "voice.out" && echo "voice: identical"
  run extract "$file" caption --sub-info -o "sub.out"
  cmp "sub-info.bin" "sub.out" && echo "caption sub-information: identical"

  step "$sample: adding an existing name is refused unless --replace is given"
  run add "$file" caption --data "second take" --type 0 --sub-info-file "sub-info.bin" || echo "(refused, file unchanged)"
  run add "$file" caption --data "second take" --type 0 --sub-info-file "sub-info.bin" --replace
  run extract "$file" caption
  echo
  run list "$file"

  step "$sample: delete the sound record"
  run delete "$file" voice
  run list "$file"

  step "$sample: the media in front of the container is untouched"
  cmp -n "$size" "$root/media/$sample" "$file" && echo "first $size bytes identical to the original"
  run info "$file"

  step "$sample: clear every record; the file is the original media again"
  run clear "$file"
  cmp "$root/media/$sample" "$file" && echo "byte for byte the original"
done

file=sound.jpg
cp "$root/media/sample.jpg" "$file"
step "$file: keep a voice memo with the photo, beside an ordinary record"
run sound add "$file" memo --data-file "sound.bin"
run add "$file" caption --data-file "caption.txt"
run sound list "$file"
run list "$file"
run info "$file"

step "$file: extract the memo and remove it; the caption stays"
run sound extract "$file" memo -o "memo.out"
cmp "sound.bin" "memo.out" && echo "memo: identical"
run sound delete "$file" memo
run sound list "$file"
run list "$file"

photo=photo.jpg
cp "$root/media/sample.jpg" "$photo"
run sound add "$photo" memo --data-file "sound.bin"
run add "$photo" caption --data-file "caption.txt"
step "$photo: the photo is rotated; its media is replaced in place, the memo and caption stay"
jpegtran -rotate 90 "$root/media/sample.jpg" > rotated.jpg
run list "$photo"
run cover "$photo" rotated.jpg
run list "$photo"
cmp -n "$(stat -c %s rotated.jpg)" rotated.jpg "$photo" && echo "the rotated photo is in front of the records"
djpeg "$photo" > /dev/null && echo "djpeg reads the result"
run sound extract "$photo" memo -o "memo2.out"
cmp "sound.bin" "memo2.out" && echo "memo: identical"
step "$photo: the original photo back, taken from the media part of another file"
run cover "$photo" "$root/media/sample.jpg" --from-file
cmp -n "$(stat -c %s "$root/media/sample.jpg")" "$root/media/sample.jpg" "$photo" && echo "first bytes identical to the original"
echo "(the shorter photo leaves an Invalid_Data filler record in front of the records, which do not move)"
run list "$photo"

step "copy the records of the edited JPEG into a fresh copy of the MP4"
cp "$root/media/sample.mp4" copy.mp4
run copy "$file" copy.mp4
run list copy.mp4
run info copy.mp4

step "done: the edited copies are in demo-out/"
