#!/usr/bin/env bash
# End-to-end tests of `tev cover`: the media of a JPEG and of an MP4 replaced
# in place by shorter and longer media, the records and the box read back,
# the decoders read the result, and refusals leave the file as it was.
# Usage: cover_cli_test.sh TEV_BINARY SOURCE_DIR
set -euo pipefail

tev=$1
source_dir=$2
# shellcheck source=lib.sh
source "$source_dir/tests/tool/lib.sh"
media=$source_dir/media

head -c 5000 /dev/urandom >"$scratch/payload.bin"
printf 'caller=42' >"$scratch/sub.bin"
djpeg "$media/sample.jpg" >"$scratch/sample.ppm"
cjpeg -quality 20 "$scratch/sample.ppm" >"$scratch/small.jpg" 2>/dev/null
cjpeg -quality 100 "$scratch/sample.ppm" >"$scratch/large.jpg"
cp "$media/sample.mp4" "$scratch/longer.mp4"
printf '\0\0\0\x18free0123456789abcdef' >>"$scratch/longer.mp4"

records_of() { "$tev" list "$1" --json | python3 -c 'import json,sys; print([(r["name"], r["type"], r["data_length"], r["sub_info_length"]) for r in json.load(sys.stdin)["records"] if r["name"] != "Invalid_Data"])'; }

# cover_case FILE NEWMEDIA DECODER [--from-file EXPECTED_MEDIA]
cover_case() {
  local file=$1 new=$2 decoder=$3 from=${4:-} expected=${5:-$2}
  local before
  before=$(records_of "$file")
  # shellcheck disable=SC2086
  expect_status 0 "cover $file with $new" "$tev" cover "$file" "$new" $from --json
  expect_json "cover $file with $new" "d == {'command': 'cover', 'ok': True}"
  [[ $(records_of "$file") == "$before" ]] || note_failure "cover $new: records changed: $(records_of "$file")"
  cmp -s -n "$(stat -c %s "$expected")" "$expected" "$file" || note_failure "cover $new: media not in front"
  $decoder "$file" >/dev/null 2>&1 || note_failure "cover $new: $decoder cannot read the result"
  [[ ! -e $file.tev-undo ]] || note_failure "cover $new: undo file left"
  "$tev" extract "$file" note -o "$scratch/out.bin" && cmp -s "$scratch/out.bin" "$scratch/payload.bin" ||
    note_failure "cover $new: record bytes changed"
}

jpg=$scratch/c.jpg mp4=$scratch/c.mp4
for f in "$jpg:sample.jpg" "$mp4:sample.mp4"; do
  cp "$media/${f#*:}" "${f%%:*}"
  "$tev" add "${f%%:*}" note --data-file "$scratch/payload.bin" --type 7
  "$tev" add "${f%%:*}" caller --data x --type 0 --sub-info-file "$scratch/sub.bin"
done
cover_case "$jpg" "$scratch/small.jpg" djpeg
cover_case "$jpg" "$scratch/large.jpg" djpeg
cover_case "$jpg" "$scratch/c.jpg" djpeg --from-file "$scratch/large.jpg"
cp "$jpg" "$scratch/orig.jpg"
cover_case "$jpg" "$scratch/small.jpg" djpeg
cover_case "$jpg" "$scratch/orig.jpg" djpeg --from-file "$scratch/large.jpg"
cover_case "$mp4" "$scratch/longer.mp4" "ffprobe -v error"
cover_case "$mp4" "$media/sample.mp4" "ffprobe -v error"
expect_status 0 "mp4 box" "$tev" info "$mp4" --json
expect_json "mp4 box" "d['container']['boxed'] and d['container']['box_size_ok']"

: >"$scratch/empty.jpg"
for refusal in "$media/sample.mp4:not replaced" "$scratch/empty.jpg:empty" "$scratch/absent.jpg:absent.jpg"; do
  before=$(checksum "$jpg")
  expect_status 1 "refused ${refusal%%:*}" "$tev" cover "$jpg" "${refusal%%:*}"
  expect_stderr_line "refused ${refusal%%:*}" "${refusal#*:}"
  [[ $(checksum "$jpg") == "$before" && ! -e $jpg.tev-undo ]] || note_failure "refused ${refusal%%:*}: the file changed"
done
expect_status 2 "cover needs NEWMEDIA" "$tev" cover "$jpg"

finish
