#!/usr/bin/env bash
# Media safety with real decoders: every kind of edit (add, replace, delete
# one, the last or all records; on the JPEG every sound edit; `tev cover`) on
# copies of the sample JPEG, HEIC and MP4 must leave the media in front as it
# should be, the file decodable, and the top-level boxes of an ISO base media
# file reaching exactly to its end.
# Usage: media_safety_test.sh TEV_BINARY RAW_FIRST_ADD_BINARY SOURCE_DIR
set -euo pipefail

tev=$1
raw_first_add=$2
source_dir=$3
# shellcheck source=lib.sh
source "$source_dir/tests/tool/lib.sh"
media=$source_dir/media

head -c 5000 /dev/urandom >"$scratch/sound.bin"
printf 'sub-information' >"$scratch/sub.bin"
printf 'a second sound' >"$scratch/second.bin"

# decodes KIND FILE: the decoder for KIND reads FILE without a complaint.
decodes() {
  case $1 in
    jpg) djpeg "$2" >/dev/null 2>"$scratch/decoder" ;;
    heic) heif-convert "$2" "$scratch/decoded.png" >/dev/null 2>"$scratch/decoder" ;;
    mp4) ffmpeg -nostdin -v error -i "$2" -f null - >"$scratch/decoder" 2>&1 ;;
  esac && [[ ! -s $scratch/decoder ]]
}

# Top-level ISO base media boxes, walked from byte 0, must end exactly at the
# end of the file (a wrong "tevd" size breaks the chain).
boxes_reach_end() {
  python3 - "$1" <<'PY'
import struct, sys
data, pos, size = open(sys.argv[1], 'rb').read(), 0, 8
while pos + 8 <= len(data) and size >= 8:
    size = struct.unpack('>I', data[pos:pos + 4])[0]
    if size == 1:  # a 64-bit size follows the type
        size = struct.unpack('>Q', data[pos + 8:pos + 16])[0]
    size = size or len(data) - pos  # 0: the box reaches to the end
    pos += size
sys.exit(size < 8 or pos != len(data))
PY
}

# step KIND FILE NAMES ARGS...: `tev ARGS` edits FILE, a copy of media/sample.KIND
# (or, with $front set, of that media), and leaves no undo file. Afterwards
# FILE holds the entries NAMES (a Python list) of `tev $listing` behind the
# untouched, decodable media, or, with NAMES "media", is that media again.
listing=list
step() {
  local kind=$1 file=$2 names=$3 what="$1: ${*:4}"
  local original=${front:-$media/sample.$kind}
  shift 3
  expect_status 0 "$what" "$tev" "$@"
  cp "$scratch/stdout" "$scratch/edit.out"
  [[ ! -e $file.tev-undo ]] || note_failure "$what: undo file left"
  if [[ $names == media ]]; then
    expect_same "$what" "$original" "$file"
    return
  fi
  cmp -s -n "$(stat -c %s "$original")" "$original" "$file" || note_failure "$what: media bytes changed"
  decodes "$kind" "$file" || note_failure "$what: $kind decoder complained: $(cat "$scratch/decoder")"
  [[ $kind == jpg ]] || boxes_reach_end "$file" || note_failure "$what: top-level boxes do not reach the end"
  # shellcheck disable=SC2086
  json_ok "$what: $listing" "[r['name'] for r in d.get('records', d.get('sounds'))] == $names" $listing "$file" --json
}

# The edits after a first record "first" is in place.
edit_sequence() {
  local kind=$1 file=$2
  step "$kind" "$file" "['first', 'caption']" add "$file" caption --data "caption" --type 0 --sub-info-file "$scratch/sub.bin"
  step "$kind" "$file" "['caption', 'first']" add "$file" first --data "replacement" --replace
  step "$kind" "$file" "['first']" delete "$file" caption
  step "$kind" "$file" media delete "$file" first
  step "$kind" "$file" "['again']" add "$file" again --data-file "$scratch/sound.bin" --type 256
  step "$kind" "$file" media clear "$file"
}

# Through the tool: JPEG without a box, HEIC and MP4 inside a "tevd" box.
for kind in jpg heic mp4; do
  file=$scratch/edited.$kind
  cp "$media/sample.$kind" "$file"
  step "$kind" "$file" "['first']" add "$file" first --data-file "$scratch/sound.bin" --type 256
  edit_sequence "$kind" "$file"
done

# An MP4 whose container was written without a box: the first append wraps it.
file=$scratch/boxless.mp4
cp "$media/sample.mp4" "$file"
expect_status 0 "boxless mp4 first add" "$raw_first_add" "$file" first "written without a box"
decodes mp4 "$file" || note_failure "boxless mp4 first add: decoder complained: $(cat "$scratch/decoder")"
json_ok "boxless mp4 info" "d['container']['boxed'] is False and d['container']['records'] == 1" info "$file" --json
edit_sequence mp4 "$file"

# The sound edits, beside a record, and on a bare sound in the older layout
# (the sound, "VOXA", 106, one sound, its start and end, 20, "VOXABS").
file=$scratch/sound.jpg
cp "$media/sample.jpg" "$file"
listing="sound list"
step jpg "$file" "['memo']" sound add "$file" memo --data-file "$scratch/sound.bin"
step jpg "$file" "['memo']" add "$file" note --data "beside the sound"
step jpg "$file" "['memo', 'again']" sound add "$file" again --data-file "$scratch/second.bin"
step jpg "$file" "['again', 'memo']" sound add "$file" memo --data-file "$scratch/second.bin"
step jpg "$file" "['memo']" sound delete "$file" again
step jpg "$file" "[]" sound clear "$file"
step jpg "$file" media clear "$file"
python3 -c "import struct, sys; m = open(sys.argv[1], 'rb').read(); s = open(sys.argv[2], 'rb').read()
open(sys.argv[3], 'wb').write(m + s + b'VOXA' + struct.pack('<5I', 106, 1, len(m), len(m) + len(s), 20) + b'VOXABS')" \
  "$media/sample.jpg" "$scratch/sound.bin" "$file"
step jpg "$file" "['EchoFrame_000']" sound convert "$file"
step jpg "$file" "['EchoFrame_000', 'memo']" sound add "$file" memo --data-file "$scratch/second.bin"
step jpg "$file" "['memo']" sound delete "$file" EchoFrame_000
step jpg "$file" "[]" sound clear "$file"

# tev cover: the media in front of two records replaced by shorter and
# longer media (from a whole file, or only the media part of one with
# records, the edited file itself included); the records read back the same,
# no undo file stays, and refusals leave the file as it was.
listing=list
djpeg "$media/sample.jpg" >"$scratch/sample.ppm"
cjpeg -quality 20 "$scratch/sample.ppm" >"$scratch/small.jpg" 2>/dev/null
cjpeg -quality 100 "$scratch/sample.ppm" >"$scratch/large.jpg"
cp "$media/sample.mp4" "$scratch/longer.mp4"
printf '\0\0\0\x18free0123456789abcdef' >>"$scratch/longer.mp4"
for kind in jpg mp4; do
  cp "$media/sample.$kind" "$scratch/c.$kind"
  "$tev" add "$scratch/c.$kind" note --data-file "$scratch/sound.bin" --type 7
  "$tev" add "$scratch/c.$kind" caller --data x --type 0 --sub-info-file "$scratch/sub.bin"
done
# cover_step KIND NEWMEDIA EXPECTED_MEDIA [--from-file]: after shorter
# media the records stand behind a filler record.
cover_step() {
  local kind=$1 new=$2 file=$scratch/c.$1 names="['note', 'caller']"
  (($(stat -c %s "$3") >= $(stat -c %s "${front:-$media/sample.$kind}"))) || names="['Invalid_Data', 'note', 'caller']"
  front=$3
  # shellcheck disable=SC2086
  step "$kind" "$file" "$names" cover "$file" "$new" ${4:-} --json
  expect_json "cover json" "d == {'command': 'cover', 'ok': True}" "$scratch/edit.out"
  expect_status 0 "cover $new: extract" "$tev" extract "$file" note -o "$scratch/out.bin"
  expect_same "cover $new: record bytes" "$scratch/out.bin" "$scratch/sound.bin"
}
cover_step jpg "$scratch/small.jpg" "$scratch/small.jpg"
cover_step jpg "$scratch/large.jpg" "$scratch/large.jpg"
cover_step jpg "$scratch/c.jpg" "$scratch/large.jpg" --from-file
front=
cover_step mp4 "$scratch/longer.mp4" "$scratch/longer.mp4"
cover_step mp4 "$media/sample.mp4" "$media/sample.mp4"
: >"$scratch/empty.jpg"
refused 1 "$scratch/c.jpg" "not replaced" cover "$scratch/c.jpg" "$media/sample.mp4"
refused 1 "$scratch/c.jpg" "empty" cover "$scratch/c.jpg" "$scratch/empty.jpg"
refused 1 "$scratch/c.jpg" "absent.jpg" cover "$scratch/c.jpg" "$scratch/absent.jpg"
refused 2 "$scratch/c.jpg" "NEWMEDIA" cover "$scratch/c.jpg"

finish
