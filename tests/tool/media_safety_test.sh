#!/usr/bin/env bash
# Media safety with real decoders: every kind of edit (first add, append,
# replace, delete one, delete the last record, delete all; and on the JPEG
# every sound edit) on copies of the sample JPEG, HEIC and MP4 must leave the media bytes in front of the
# container unchanged, keep the file decodable, and (for ISO base media
# files) keep the top-level box chain reaching exactly to the end of the file.
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
data = open(sys.argv[1], 'rb').read()
pos = 0
while pos + 8 <= len(data):
    size = struct.unpack('>I', data[pos:pos + 4])[0]
    if size == 1:  # a 64-bit size follows the type
        size = struct.unpack('>Q', data[pos + 8:pos + 16])[0]
    elif size == 0:  # the box reaches to the end
        size = len(data) - pos
    if size < 8:
        sys.exit(1)
    pos += size
sys.exit(pos != len(data))
PY
}

# step KIND FILE NAMES CMD...: CMD edits FILE, a copy of media/sample.KIND.
# Afterwards the file holds the records NAMES (a Python list) behind the
# untouched, decodable media in a sound box chain, or, with NAMES "media",
# is the sample again byte for byte.
step() {
  local kind=$1 file=$2 names=$3
  local original=$media/sample.$kind what="$kind: ${*:5}"
  shift 3
  expect_status 0 "$what" "$@"
  if [[ $names == media ]]; then
    expect_same "$what" "$original" "$file"
    return
  fi
  cmp -s -n "$(stat -c %s "$original")" "$original" "$file" || note_failure "$what: media bytes changed"
  decodes "$kind" "$file" || note_failure "$what: $kind decoder complained: $(cat "$scratch/decoder")"
  [[ $kind == jpg ]] || boxes_reach_end "$file" || note_failure "$what: top-level boxes do not reach the end"
  expect_status 0 "$what: list" "$tev" list "$file" --json
  expect_json "$what: records" "[r['name'] for r in d['records']] == $names"
}

# The edits after a first record "first" is in place.
edit_sequence() {
  local kind=$1 file=$2
  step "$kind" "$file" "['first', 'caption']" "$tev" add "$file" caption --data "caption text" \
    --type 0 --sub-info-file "$scratch/sub.bin"
  step "$kind" "$file" "['caption', 'first']" "$tev" add "$file" first --data "replacement" --replace
  step "$kind" "$file" "['first']" "$tev" delete "$file" caption
  step "$kind" "$file" media "$tev" delete "$file" first
  step "$kind" "$file" "['again']" "$tev" add "$file" again --data-file "$scratch/sound.bin" --type 256
  step "$kind" "$file" media "$tev" clear "$file"
}

# Through the tool: JPEG without a box, HEIC and MP4 inside a "tevd" box.
for kind in jpg heic mp4; do
  file=$scratch/edited.$kind
  cp "$media/sample.$kind" "$file"
  step "$kind" "$file" "['first']" "$tev" add "$file" first --data-file "$scratch/sound.bin" --type 256
  edit_sequence "$kind" "$file"
done

# An MP4 whose container was written without a box: the first append wraps it.
file=$scratch/boxless.mp4
cp "$media/sample.mp4" "$file"
expect_status 0 "boxless mp4 first add" "$raw_first_add" "$file" first "written without a box"
decodes mp4 "$file" || note_failure "boxless mp4 first add: decoder complained: $(cat "$scratch/decoder")"
expect_status 0 "boxless mp4 info" "$tev" info "$file" --json
expect_json "boxless mp4 info" "d['container']['boxed'] is False and d['container']['records'] == 1"
edit_sequence mp4 "$file"

# sound_step FILE SOUNDS CMD...: CMD edits FILE, a copy of media/sample.jpg
# with sound; afterwards its media is untouched and decodable and `tev sound
# list` names SOUNDS (a Python list).
sound_step() {
  local file=$1 sounds=$2 what="jpg sound: ${*:4}"
  shift 2
  expect_status 0 "$what" "$@"
  cmp -s -n "$(stat -c %s "$media/sample.jpg")" "$media/sample.jpg" "$file" || note_failure "$what: media bytes changed"
  decodes jpg "$file" || note_failure "$what: jpg decoder complained: $(cat "$scratch/decoder")"
  expect_status 0 "$what: sound list" "$tev" sound list "$file" --json
  expect_json "$what: sounds" "[s['name'] for s in d['sounds']] == $sounds"
}

file=$scratch/sound.jpg
cp "$media/sample.jpg" "$file"
printf 'a second sound' >"$scratch/second.bin"
sound_step "$file" "['memo']" "$tev" sound add "$file" memo --data-file "$scratch/sound.bin"
sound_step "$file" "['memo']" "$tev" add "$file" note --data "beside the sound"
sound_step "$file" "['memo', 'again']" "$tev" sound add "$file" again --data-file "$scratch/second.bin"
sound_step "$file" "['again', 'memo']" "$tev" sound add "$file" memo --data-file "$scratch/second.bin"
sound_step "$file" "['memo']" "$tev" sound delete "$file" again
sound_step "$file" "[]" "$tev" sound clear "$file"
step jpg "$file" media "$tev" clear "$file"

# A bare Voxa sound behind the JPEG: converted, joined by a named sound, removed.
python3 -c "import struct, sys; m = open(sys.argv[1], 'rb').read(); s = open(sys.argv[2], 'rb').read()
open(sys.argv[3], 'wb').write(m + s + b'VOXA' + struct.pack('<5I', 106, 1, len(m), len(m) + len(s), 20) + b'VOXABS')" \
  "$media/sample.jpg" "$scratch/sound.bin" "$file"
sound_step "$file" "['EchoFrame_000']" "$tev" sound convert "$file"
sound_step "$file" "['EchoFrame_000', 'memo']" "$tev" sound add "$file" memo --data-file "$scratch/second.bin"
sound_step "$file" "['memo']" "$tev" sound delete "$file" EchoFrame_000
sound_step "$file" "[]" "$tev" sound clear "$file"

finish
