#!/usr/bin/env bash
# End-to-end tests of the `tev` tool on the project's sample media and on
# containers written into copies of them through `tev add`.
# Usage: tev_cli_test.sh TEV_BINARY SOURCE_DIR
set -euo pipefail

tev=$1
source_dir=$2
# shellcheck source=lib.sh
source "$source_dir/tests/tool/lib.sh"
media=$source_dir/media

printf 'hello, records' >"$scratch/note.txt"
head -c 3000 /dev/urandom >"$scratch/sound.bin"
printf 'caller=42;lang=en' >"$scratch/sub.bin"

# expect_refused DESCRIPTION FILE TEXT CMD...: exit 1, one stderr line
# containing TEXT, and FILE unchanged.
expect_refused() {
  local what=$1 file=$2 text=$3
  shift 3
  local before
  before=$(checksum "$file")
  expect_status 1 "$what" "$@"
  expect_stderr_line "$what" "$text"
  [[ $(checksum "$file") == "$before" ]] || note_failure "$what: the file changed"
}

# expect_usage DESCRIPTION FILE TEXT CMD...: exit 2, TEXT on stderr, FILE unchanged.
expect_usage() {
  local what=$1 file=$2 text=$3
  shift 3
  local before
  before=$(checksum "$file")
  expect_status 2 "$what" "$@"
  grep -qF -- "$text" "$scratch/stderr" || note_failure "$what: stderr lacks '$text': $(cat "$scratch/stderr")"
  [[ $(checksum "$file") == "$before" ]] || note_failure "$what: the file changed"
}

plain_media() {
  local sample
  for sample in sample.jpg sample.heic sample.mp4; do
    expect_status 0 "info $sample" "$tev" info "$media/$sample" --json
    # HEIC is an ISO base media file too.
    expect_json "info $sample" "d['signature'] == 1 and d['ends_with'] == 'media' and d['container'] is None and d['records'] == [] and d['warning'] is None and d['voxa'] is None and d['mp4'] == ('$sample' != 'sample.jpg') and d['size'] == $(stat -c %s "$media/$sample")"
    expect_quiet_stderr "info $sample"
  done
  expect_status 0 "list plain media" "$tev" list "$media/sample.jpg" --json
  expect_json "list plain media" "d['records'] == []"
  expect_refused "extract from plain media" "$media/sample.mp4" "no container" "$tev" extract "$media/sample.mp4" x
}

# Two records in a copy of SAMPLE: "note" (type 7) and "caller" (type 0, with
# sub-information). Checks list, info and extract on the result.
container_in() {
  local sample=$1 boxed=$2
  local file=$scratch/c-$sample
  local size
  cp "$media/$sample" "$file"
  size=$(stat -c %s "$file")

  expect_status 0 "add note to $sample" "$tev" add "$file" note --data-file "$scratch/note.txt" --type 7
  expect_quiet_stderr "add note to $sample"
  expect_status 0 "add caller to $sample" "$tev" add "$file" caller --data-file "$scratch/sound.bin" \
    --type 0 --sub-info-file "$scratch/sub.bin"
  cmp -s -n "$size" "$media/$sample" "$file" || note_failure "$sample: media bytes changed"

  expect_status 0 "info $sample container" "$tev" info "$file" --json
  expect_json "info $sample container" "d['signature'] == 2 and d['ends_with'] == 'container' and d['container']['status'] == 'ok' and d['container']['version'] == 107 and d['container']['records'] == 2 and d['container']['boxed'] == $boxed and d['container']['data_start'] == $size"
  [[ $boxed == False ]] ||
    expect_json "$sample box" "d['container']['box_size_ok'] and d['container']['box_size'] == d['size'] - $size"

  expect_status 0 "list $sample" "$tev" list "$file" --json
  local r="d['records']" content="open('$file', 'rb').read()"
  expect_json "list $sample" "[(x['index'], x['name'], x['type'], x['sub_info_length'], x['data_length']) for x in $r] == [(0, 'note', 7, 0, 14), (1, 'caller', 0, 17, 3000)] and $r[0]['sub_info_position'] is None"
  # The listed positions must point at the very bytes that went in.
  expect_json "list $sample positions" "[$content[p:p + n] for p, n in (($r[0]['data_position'], 14), ($r[1]['data_position'], 3000), ($r[1]['sub_info_position'], 17))] == [open('$scratch/' + f, 'rb').read() for f in ('note.txt', 'sound.bin', 'sub.bin')]"

  expect_status 0 "extract note from $sample" "$tev" extract "$file" note -o "$scratch/note.out"
  expect_same "extract note from $sample" "$scratch/note.txt" "$scratch/note.out"
  expect_status 0 "extract caller to stdout from $sample" "$tev" extract "$file" caller
  expect_same "extract caller to stdout from $sample" "$scratch/sound.bin" "$scratch/stdout"
  expect_status 0 "extract caller sub-info from $sample" "$tev" extract "$file" caller --sub-info -o "$scratch/sub.out"
  expect_same "extract caller sub-info from $sample" "$scratch/sub.bin" "$scratch/sub.out"
  expect_refused "sub-info of note in $sample" "$file" "has no sub-information" "$tev" extract "$file" note --sub-info
  expect_refused "extract missing from $sample" "$file" "$file: no record named \"nosuch\"" "$tev" extract "$file" nosuch
}

usage_errors() {
  local file=$scratch/c-sample.jpg
  expect_status 2 "no subcommand" "$tev"
  expect_status 2 "unknown option" "$tev" info "$file" --frob
  expect_status 2 "missing NAME" "$tev" extract "$file"
  expect_status 2 "two data sources" "$tev" add "$file" x --data y --data-file "$scratch/note.txt"
  expect_status 0 "add --help" "$tev" add --help
  grep -q 'Usage' "$scratch/stdout" || note_failure "add --help printed no usage"
  expect_status 1 "missing file" "$tev" info "$scratch/absent.jpg"
  expect_stderr_line "missing file" "$scratch/absent.jpg: cannot open"
}

# Conventions shared by every command: --version, help, unknown commands,
# one JSON object per run in --json mode (also on failure), and --replace
# keeping what it is not given anew.
conventions() {
  local file=$scratch/c-sample.jpg keep=$scratch/keep.jpg
  expect_status 0 "--version" "$tev" --version
  grep -qE '^tev [0-9.]+ .*container version 107' "$scratch/stdout" || note_failure "--version: $(cat "$scratch/stdout")"
  expect_status 2 "unknown subcommand" "$tev" bogus
  expect_stderr_line "unknown subcommand" 'unknown subcommand "bogus" (one of: info, list, extract, add, delete, clear, sound, copy, repair, cover)'
  expect_status 0 "help" "$tev" help add
  grep -q 'Usage: tev add' "$scratch/stdout" || note_failure "help add printed no usage"

  local args
  for args in "info $scratch/absent.jpg" "list $scratch/absent.jpg" "extract $file nosuch -o $scratch/x" \
      "add $file note --data y" "delete $file nosuch" "clear $scratch/absent.jpg" \
      "sound list $scratch/absent.jpg" "copy $scratch/absent.jpg $file"; do
    # shellcheck disable=SC2086
    expect_status 1 "json error: $args" "$tev" $args --json
    expect_json "json error: $args" "d['ok'] is False and d['error'] and d['exit_status'] == 1"
  done
  expect_status 2 "json usage error" "$tev" add "$file" --json
  expect_json "json usage error" "d['ok'] is False and d['exit_status'] == 2"
  expect_status 2 "json extract needs -o" "$tev" extract "$file" note --json

  cp "$media/sample.jpg" "$keep"
  printf 'who=me' >"$scratch/keep-sub.bin"
  "$tev" add "$keep" rec --data one --type 0 --sub-info-file "$scratch/keep-sub.bin"
  expect_status 0 "json add" "$tev" add "$keep" rec --data two --replace --json
  expect_json "json add" "d == {'command': 'add', 'ok': True}"
  expect_status 0 "replace keeps type and sub-info" "$tev" list "$keep" --json
  expect_json "replace keeps type and sub-info" "[(r['type'], r['sub_info_length'], r['data_length']) for r in d['records']] == [(0, 6, 3)]"
  "$tev" add "$keep" rec --data three --replace --type 5 --sub-info-file "$scratch/note.txt"
  expect_status 0 "replace takes new type and sub-info" "$tev" list "$keep" --json
  expect_json "replace takes new type and sub-info" "[(r['type'], r['sub_info_length']) for r in d['records']] == [(5, 14)]"
}

# docs/tev.1 names every command and every long option the tool accepts.
man_page_in_step() {
  local man=$source_dir/docs/tev.1 command option
  for command in info list extract add delete clear copy repair "sound list" "sound add" "sound extract" \
      "sound delete" "sound clear" "sound convert"; do
    grep -qF ".BI \"$command " "$man" || note_failure "man page: no entry for $command"
    # shellcheck disable=SC2086
    for option in $("$tev" $command --help | grep -oE -- '--[a-z][a-z-]+' | sort -u); do
      grep -qF -- "${option//-/\\-}" "$man" || note_failure "man page: $command lacks $option"
    done
  done
  for command in $("$tev" --help | sed -n '/^Subcommands:/,/^$/p' | awk 'NR > 1 && NF {print $1}'); do
    grep -qF ".BI \"$command " "$man" || note_failure "man page: no entry for $command"
  done
}

refused_edits() {
  local file=$scratch/c-sample.jpg plain=$scratch/plain.jpg empty=$scratch/empty.jpg
  cp "$media/sample.jpg" "$plain"
  : >"$empty"
  truncate -s 4293918721 "$scratch/huge.bin"  # sparse: 0xFFF00001 bytes
  expect_refused "existing name" "$file" "$file: record \"note\" exists" "$tev" add "$file" note --data other
  expect_usage "type 0 without sub-info" "$file" "type 0 (user-defined) needs sub-information" \
    "$tev" add "$file" fresh --data other --type 0
  expect_usage "empty data" "$file" "--data is empty" "$tev" add "$file" fresh --data ""
  expect_usage "name too long" "$file" "names must be 1 to 1024 bytes long" \
    "$tev" add "$file" "$(printf 'n%.0s' {1..1025})" --data x
  expect_usage "type out of range" "$file" "--type" "$tev" add "$file" fresh --data x --type 65536
  expect_usage "empty name to delete" "$file" "names must be 1 to 1024 bytes long" "$tev" delete "$file" ""
  expect_refused "too big data" "$file" "$scratch/huge.bin: data file of 4293918721 bytes is too big" \
    "$tev" add "$file" big --data-file "$scratch/huge.bin"
  expect_refused "delete one missing of two" "$file" "$file: no record named \"nosuch\"" "$tev" delete "$file" note nosuch
  expect_refused "delete a name twice" "$file" "$file: no record named \"note\"" "$tev" delete "$file" note note
  expect_status 0 "clear plain media" "$tev" clear "$plain"
  [[ $(cat "$scratch/stdout") == "nothing to clear" ]] || note_failure "clear plain media: $(cat "$scratch/stdout")"
  expect_same "clear plain media" "$media/sample.jpg" "$plain"
  expect_refused "delete from plain media" "$plain" "$plain: no container" "$tev" delete "$plain" note
  expect_refused "add to an empty file" "$empty" "$empty: the file is empty" "$tev" add "$empty" x --data y
}

replace_delete_clear() {
  local sample file
  for sample in sample.jpg sample.mp4; do
    file=$scratch/c-$sample
    expect_status 0 "replace in $sample" "$tev" add "$file" note --data "second take" --type 9 --replace
    expect_status 0 "extract replaced from $sample" "$tev" extract "$file" note
    [[ $(cat "$scratch/stdout") == "second take" ]] || note_failure "replace in $sample: got $(cat "$scratch/stdout")"
    expect_status 0 "list after replace in $sample" "$tev" list "$file" --json
    expect_json "replace in $sample" "[(r['name'], r['type']) for r in d['records']] == [('caller', 0), ('note', 9)]"

    expect_status 0 "add third to $sample" "$tev" add "$file" third --data 3
    expect_status 0 "delete two from $sample" "$tev" delete "$file" caller third
    expect_quiet_stderr "delete two from $sample"
    expect_status 0 "list after delete in $sample" "$tev" list "$file" --json
    expect_json "delete in $sample" "[r['name'] for r in d['records']] == ['note']"
    expect_status 0 "info after delete in $sample" "$tev" info "$file" --json
    expect_json "info after delete in $sample" "d['container']['records'] == 1 and d['container']['box_size_ok'] is not False"

    expect_status 0 "clear $sample" "$tev" clear "$file"
    expect_same "clear $sample" "$media/$sample" "$file"
  done
}

damaged_and_voxa() {
  local damaged=$scratch/damaged.jpg voxa=$scratch/voxa.jpg
  { cat "$media/sample.jpg"; printf 'garbage-TEVT'; } >"$damaged"
  expect_status 0 "info on a damaged container" "$tev" info "$damaged" --json
  expect_json "info on a damaged container" "d['signature'] == 2 and d['container'] == {'status': 'damaged'}"
  expect_refused "list a damaged container" "$damaged" "$damaged: container is damaged" "$tev" list "$damaged"
  expect_refused "add to a damaged container" "$damaged" "$damaged: container is damaged" "$tev" add "$damaged" x --data y
  expect_refused "clear a damaged container" "$damaged" "use --force" "$tev" clear "$damaged"
  expect_status 0 "clear --force a damaged container" "$tev" clear "$damaged" --force
  expect_same "clear --force a damaged container" "$media/sample.jpg" "$damaged"

  # Bytes behind a container: the library reads plain media, the tool warns
  # and refuses to start a second container unless forced.
  local trailing=$scratch/trailing.mp4
  cp "$media/sample.mp4" "$trailing"
  "$tev" add "$trailing" kept --data "kept bytes"
  printf 'trailing bytes' >>"$trailing"
  expect_status 0 "info warns about bytes after a container" "$tev" info "$trailing"
  grep -qF "warning" "$scratch/stderr" || note_failure "info on bytes after a container: no warning"
  expect_refused "add behind bytes after a container" "$trailing" "use --force" "$tev" add "$trailing" x --data y
  cp "$trailing" "$scratch/forced.mp4"
  expect_status 0 "add --force behind bytes after a container" "$tev" add "$scratch/forced.mp4" x --data y --force
  expect_status 0 "clear --force cuts to the media" "$tev" clear "$trailing" --force
  expect_same "clear --force cuts to the media" "$media/sample.mp4" "$trailing"

  # The media, a 1024-byte sound, "VOXA" 106, one sound, its start and end, header length 20, "VOXABS".
  local start end
  start=$(stat -c %s "$media/sample.jpg")
  end=$((start + 1024))
  python3 -c "import struct, sys; open(sys.argv[2], 'wb').write(open(sys.argv[1], 'rb').read() + bytes(range(256)) * 4 +
b'VOXA' + struct.pack('<5I', 106, 1, $start, $end, 20) + b'VOXABS')" "$media/sample.jpg" "$voxa"
  expect_status 0 "info on a Voxa image" "$tev" info "$voxa" --json
  expect_json "info on a Voxa image" "d['signature'] == 3 and d['container'] is None and d['voxa'] == {'version': 106, 'sounds': [{'start': $start, 'end': $end}]}"
  expect_status 0 "list a Voxa image" "$tev" list "$voxa" --json
  expect_json "list a Voxa image" "d['records'] == []"
}

# sound_names DESCRIPTION FILE NAMES: `tev sound list` gives NAMES (a Python
# list), each position pointing at the sound's bytes in the file.
sound_names() {
  local what=$1 file=$2 names=$3
  expect_status 0 "$what" "$tev" sound list "$file" --json
  expect_json "$what" "[s['name'] for s in d['sounds']] == $names and sum(s['in_voxa_block'] for s in d['sounds']) <= 1"
}

sound_family() {
  local file=$scratch/sound.jpg voxa=$scratch/voxa.jpg mp4=$scratch/sound.mp4 big=$scratch/big.jpg
  printf 'second sound' >"$scratch/memo2.bin"
  cp "$media/sample.jpg" "$file"
  sound_names "no sound yet" "$file" "[]"
  expect_status 0 "sound add to plain" "$tev" sound add "$file" memo --data-file "$scratch/sound.bin"
  expect_status 0 "info after sound add" "$tev" info "$file" --json
  expect_json "info after sound add" "d['signature'] == 4 and d['voxa']['version'] == 107"
  expect_status 0 "record beside the sound" "$tev" add "$file" note --data-file "$scratch/note.txt"
  expect_status 0 "second sound" "$tev" sound add "$file" memo2 --data-file "$scratch/memo2.bin"
  sound_names "two sounds" "$file" "['memo', 'memo2']"
  expect_json "sound positions" "[open('$file', 'rb').read()[s['position']:s['position'] + s['length']] for s in d['sounds']] == [open('$scratch/sound.bin', 'rb').read(), b'second sound']"
  expect_status 0 "sound extract" "$tev" sound extract "$file" memo2 -o "$scratch/memo2.out"
  expect_same "sound extract" "$scratch/memo2.bin" "$scratch/memo2.out"
  expect_refused "unknown sound" "$file" "$file: no sound named \"nosuch\"" "$tev" sound delete "$file" nosuch
  expect_refused "sound convert without a bare sound" "$file" "no bare sound to convert" "$tev" sound convert "$file"
  expect_status 0 "sound delete" "$tev" sound delete "$file" memo
  sound_names "after delete" "$file" "['memo2']"
  expect_status 0 "sound clear" "$tev" sound clear "$file"
  sound_names "after clear" "$file" "[]"
  expect_status 0 "records after sound clear" "$tev" list "$file" --json
  expect_json "records after sound clear" "[r['name'] for r in d['records']] == ['note']"

  sound_names "bare sound" "$voxa" "['EchoFrame_000']"
  expect_status 0 "extract the bare sound" "$tev" sound extract "$voxa" EchoFrame_000
  python3 -c "import sys; sys.exit(open(sys.argv[1], 'rb').read() != bytes(range(256)) * 4)" "$scratch/stdout" ||
    note_failure "extract the bare sound: wrong bytes"
  cp "$voxa" "$scratch/voxa2.jpg"
  expect_status 0 "sound convert" "$tev" sound convert "$voxa"
  sound_names "converted" "$voxa" "['EchoFrame_000']"
  expect_status 0 "info after convert" "$tev" info "$voxa" --json
  expect_json "info after convert" "d['signature'] == 4 and d['container']['records'] == 2"
  expect_status 0 "sound add to a bare sound" "$tev" sound add "$scratch/voxa2.jpg" memo --data-file "$scratch/memo2.bin"
  sound_names "bare sound kept" "$scratch/voxa2.jpg" "['EchoFrame_000', 'memo']"

  cp "$media/sample.mp4" "$mp4"
  expect_refused "sound into MP4" "$mp4" "$mp4: MP4 and HEIC files cannot carry sound" \
    "$tev" sound add "$mp4" memo --data-file "$scratch/sound.bin"
  cp "$media/sample.jpg" "$big"
  truncate -s 4293916000 "$big"  # sparse, just below the 32-bit bound
  expect_refused "no room for a sound" "$big" "$big: no room" "$tev" sound add "$big" memo --data-file "$scratch/sound.bin"
  rm -f "$big"
}

copy_family() {
  local src=$scratch/copy-src.jpg jpg=$scratch/copy.jpg mp4=$scratch/copy.mp4 raw=$scratch/raw.jpg
  cp "$media/sample.jpg" "$src"
  "$tev" add "$src" note --data-file "$scratch/note.txt" --type 7
  "$tev" add "$src" caller --data-file "$scratch/sound.bin" --type 0 --sub-info-file "$scratch/sub.bin"
  "$tev" add "$src" third --data x --type 7
  cp "$media/sample.jpg" "$jpg"
  cp "$media/sample.mp4" "$mp4"
  cp "$media/sample.jpg" "$raw"
  # Type 0 needs sub-information, which a copy leaves behind: "caller" stays out.
  expect_status 1 "copy all into jpg" "$tev" copy "$src" "$jpg"
  expect_stderr_line "copy all into jpg" "record \"caller\" was not copied"
  expect_status 0 "copy all into mp4" "$tev" copy "$src" "$mp4" --type 7
  expect_status 0 "list copied mp4" "$tev" list "$mp4" --json
  expect_json "copy into mp4" "[r['name'] for r in d['records']] == ['note', 'third']"
  expect_status 0 "info copied mp4" "$tev" info "$mp4" --json
  expect_json "copy into mp4 box" "d['container']['boxed'] and d['container']['box_size_ok']"
  cmp -s -n "$(stat -c %s "$media/sample.mp4")" "$media/sample.mp4" "$mp4" || note_failure "copy: mp4 media changed"
  expect_refused "copy by type into a container" "$mp4" "already holds records" "$tev" copy "$src" "$mp4" --type 7
  expect_refused "copy an absent name" "$raw" "no record named \"nosuch\"" "$tev" copy "$src" "$raw" --name nosuch
  expect_refused "copy from plain media" "$raw" "no records to copy" "$tev" copy "$media/sample.jpg" "$raw"
  expect_status 0 "raw merge" "$tev" copy "$src" "$raw" --raw
  expect_status 0 "list raw merge" "$tev" list "$raw" --json
  expect_json "raw merge" "[r['name'] for r in d['records']] == ['note', 'caller', 'third']"
  expect_refused "raw merge into mp4" "$mp4" "outside a box" "$tev" copy "$src" "$mp4" --raw
  expect_status 2 "two selections" "$tev" copy "$src" "$jpg" --raw --name note
}

# tev repair: a healthy file stays as it is, leftover bytes behind a
# container are cut (and the "tevd" box size set right), and an undo file
# left behind blocks the next edit; one that tev did not write is left
# alone. Putting files back from real undo files is the crash harness's.
repair_family() {
  local jpg=$scratch/r-sample.jpg mp4=$scratch/r-sample.mp4 healthy
  cp "$media/sample.jpg" "$jpg"
  cp "$media/sample.mp4" "$mp4"
  "$tev" add "$jpg" one --data first >/dev/null
  "$tev" add "$mp4" one --data first >/dev/null
  cp "$jpg" "$scratch/r-healthy.jpg"
  cp "$mp4" "$scratch/r-healthy.mp4"
  expect_status 0 "repair a healthy file" "$tev" repair "$jpg"
  grep -qx "nothing to repair" "$scratch/stdout" || note_failure "repair healthy: $(cat "$scratch/stdout")"
  expect_same "repair a healthy file" "$jpg" "$scratch/r-healthy.jpg"
  # The MP4's leftovers end in a "TEVT" that ends no directory.
  for healthy in "$jpg" "$mp4"; do
    if [ "$healthy" = "$jpg" ]; then printf 'half of a record' >>"$healthy"; else printf 'half TEVT' >>"$healthy"; fi
    expect_status 0 "repair leftovers" "$tev" repair "$healthy"
    expect_same "repair leftovers" "$healthy" "$scratch/r-healthy.${healthy##*.}"
  done
  "$tev" add "$jpg" two --data second >/dev/null
  cp "$jpg" "$scratch/r-two.jpg"
  printf 'TEVUNDO1' >"$jpg.tev-undo"
  expect_refused "edit with an undo file left" "$jpg" "run \`tev repair\` on the file first" \
    "$tev" add "$jpg" three --data third
  expect_status 1 "repair with a foreign undo file" "$tev" repair "$jpg"
  expect_same "foreign undo file left alone" "$jpg" "$scratch/r-two.jpg"
  rm "$jpg.tev-undo"
}

plain_media
container_in sample.jpg False
container_in sample.heic True
container_in sample.mp4 True
usage_errors
conventions
man_page_in_step
refused_edits
replace_delete_clear
damaged_and_voxa
sound_family
copy_family
repair_family
finish
