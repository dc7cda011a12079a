#!/usr/bin/env bash
# Media safety with real decoders: every kind of edit (first add, append,
# replace, delete one, delete all) on copies of the sample JPEG, HEIC and
# MP4 must leave the media bytes in front of the container unchanged, keep
# the file decodable, and (for ISO base media files) keep the top-level box
# chain reaching exactly to the end of the file.
# Usage: media_safety_test.sh TEV_BINARY RAW_FIRST_ADD_BINARY SOURCE_DIR
set -euo pipefail

tev=$1
raw_first_add=$2
source_dir=$3
# shellcheck source=lib.sh
source "$source_dir/tests/tool/lib.sh"
media=$source_dir/media

head -c 5000 /dev/urandom >"$scratch/sound.bin"
printf 'caption text' >"$scratch/caption.txt"
printf 'sub-information' >"$scratch/sub.bin"

# decodes KIND FILE: the decoder for KIND reads FILE without a complaint.
decodes() {
  local kind=$1 file=$2
  case $kind in
    jpg) djpeg "$file" >/dev/null 2>"$scratch/decoder" ;;
    heic) heif-convert "$file" "$scratch/decoded.png" >/dev/null 2>"$scratch/decoder" ;;
    mp4) ffmpeg -nostdin -v error -i "$file" -f null - >"$scratch/decoder" 2>&1 ;;
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
    if size == 1:
        size = struct.unpack('>Q', data[pos + 8:pos + 16])[0]
    elif size == 0:
        size = len(data) - pos
    if size < 8:
        sys.exit(1)
    pos += size
sys.exit(0 if pos == len(data) else 1)
PY
}

# check STEP KIND FILE ORIGINAL [boxed]: media prefix, decoding, box chain.
check() {
  local step=$1 kind=$2 file=$3 original=$4 boxed=${5:-}
  local size
  size=$(stat -c %s "$original")
  cmp -s -n "$size" "$original" "$file" || note_failure "$step: media bytes changed"
  decodes "$kind" "$file" || note_failure "$step: $kind decoder complained: $(cat "$scratch/decoder")"
  if [[ -n $boxed ]]; then
    boxes_reach_end "$file" || note_failure "$step: top-level boxes do not reach the end of the file"
  fi
}

expect_records() {
  local step=$1 file=$2 names=$3
  expect_status 0 "$step: list" "$tev" list "$file" --json
  expect_json "$step: records" "[r['name'] for r in d['records']] == $names"
}

# edit_sequence KIND FILE ORIGINAL BOXED: the edits after a first record
# "first" is in place.
edit_sequence() {
  local kind=$1 file=$2 original=$3 boxed=$4
  local label=$kind
  [[ -z $boxed ]] || label="$kind boxed"

  expect_status 0 "$label append" "$tev" add "$file" caption --data-file "$scratch/caption.txt" \
    --type 0 --sub-info-file "$scratch/sub.bin"
  check "$label append" "$kind" "$file" "$original" "$boxed"
  expect_records "$label append" "$file" "['first', 'caption']"

  expect_status 0 "$label replace" "$tev" add "$file" first --data "replacement" --replace
  check "$label replace" "$kind" "$file" "$original" "$boxed"
  expect_records "$label replace" "$file" "['caption', 'first']"

  expect_status 0 "$label delete one" "$tev" delete "$file" caption
  check "$label delete one" "$kind" "$file" "$original" "$boxed"
  expect_records "$label delete one" "$file" "['first']"

  expect_status 0 "$label delete the last record" "$tev" delete "$file" first
  expect_same "$label delete the last record" "$original" "$file"

  expect_status 0 "$label add again" "$tev" add "$file" again --data-file "$scratch/sound.bin" --type 256
  check "$label add again" "$kind" "$file" "$original" "$boxed"
  expect_status 0 "$label delete all" "$tev" clear "$file"
  expect_same "$label delete all" "$original" "$file"
}

# Through the tool: JPEG without a box, HEIC and MP4 inside a "tevd" box.
for kind in jpg heic mp4; do
  original=$media/sample.$kind
  file=$scratch/edited.$kind
  cp "$original" "$file"
  boxed=yes
  [[ $kind == jpg ]] && boxed=
  expect_status 0 "$kind first add" "$tev" add "$file" first --data-file "$scratch/sound.bin" --type 256
  check "$kind first add" "$kind" "$file" "$original" "$boxed"
  if [[ -n $boxed ]]; then
    expect_status 0 "$kind box" "$tev" info "$file" --json
    expect_json "$kind box" "d['container']['boxed'] and d['container']['box_size_ok']"
  fi
  edit_sequence "$kind" "$file" "$original" "$boxed"
done

# An MP4 whose container was written without a box: the first append wraps it.
original=$media/sample.mp4
file=$scratch/boxless.mp4
cp "$original" "$file"
expect_status 0 "boxless mp4 first add" "$raw_first_add" "$file" first "written without a box"
check "boxless mp4 first add" mp4 "$file" "$original"
expect_status 0 "boxless mp4 info" "$tev" info "$file" --json
expect_json "boxless mp4 info" "d['container']['boxed'] is False and d['container']['records'] == 1"
edit_sequence mp4 "$file" "$original" yes

finish
