#!/usr/bin/env bash
# End-to-end tests of the `tev` tool's own contract: exit status, messages,
# JSON, options, and the file left as it was on every refusal. What edits do
# to the bytes is the library's tests' and media_safety_test.sh's.
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
jpg=$scratch/c-sample.jpg mp4=$scratch/c-sample.mp4

# info and list on each sample, plain and with two records: "note" (type 7)
# and "caller" (type 0, with sub-information). The listed positions must
# point at the very bytes that went in.
for sample in sample.jpg sample.heic sample.mp4; do
  file=$scratch/c-$sample size=$(stat -c %s "$media/$sample") boxed=True
  [[ $sample != sample.jpg ]] || boxed=False
  json_ok "info $sample" "d['signature'] == 1 and d['ends_with'] == 'media' and d['container'] is None and d['records'] == [] and d['warning'] is None and d['voxa'] is None and d['mp4'] == $boxed and d['size'] == $size" info "$media/$sample" --json
  cp "$media/$sample" "$file"
  expect_status 0 "add note to $sample" "$tev" add "$file" note --data-file "$scratch/note.txt" --type 7
  [[ ! -s $scratch/stderr ]] || note_failure "add to $sample: unexpected stderr: $(cat "$scratch/stderr")"
  expect_status 0 "add caller to $sample" "$tev" add "$file" caller --data-file "$scratch/sound.bin" \
    --type 0 --sub-info-file "$scratch/sub.bin" --json
  expect_json "json add" "d == {'command': 'add', 'ok': True}"
  json_ok "info $sample container" "d['signature'] == 2 and d['ends_with'] == 'container' and d['container']['status'] == 'ok' and d['container']['version'] == 107 and d['container']['records'] == 2 and d['container']['boxed'] == $boxed and d['container']['data_start'] == $size and ($boxed == False or (d['container']['box_size_ok'] and d['container']['box_size'] == d['size'] - $size))" info "$file" --json
  r="d['records']" content="open('$file', 'rb').read()"
  json_ok "list $sample" "[(x['index'], x['name'], x['type'], x['sub_info_length'], x['data_length']) for x in $r] == [(0, 'note', 7, 0, 14), (1, 'caller', 0, 17, 3000)] and ${r}[0]['sub_info_position'] is None and [${content}[p:p + n] for p, n in ((${r}[0]['data_position'], 14), (${r}[1]['data_position'], 3000), (${r}[1]['sub_info_position'], 17))] == [open('$scratch/' + f, 'rb').read() for f in ('note.txt', 'sound.bin', 'sub.bin')]" list "$file" --json
done

expect_status 0 "extract to stdout" "$tev" extract "$mp4" caller
expect_same "extract to stdout" "$scratch/sound.bin" "$scratch/stdout"
expect_status 0 "extract sub-information" "$tev" extract "$jpg" caller --sub-info -o "$scratch/sub.out"
expect_same "extract sub-information" "$scratch/sub.bin" "$scratch/sub.out"

# Conventions shared by every command: --version, help, unknown commands and
# options, one JSON object per run in --json mode (also on failure).
expect_status 0 "--version" "$tev" --version
grep -qE '^tev [0-9.]+ .*container version 107' "$scratch/stdout" || note_failure "--version: $(cat "$scratch/stdout")"
expect_status 2 "unknown subcommand" "$tev" bogus
expect_stderr_line "unknown subcommand" 'unknown subcommand "bogus" (one of: info, list, extract, add, delete, clear, sound, copy, repair, cover)'
for args in "help add" "add --help"; do
  # shellcheck disable=SC2086
  expect_status 0 "$args" "$tev" $args
  grep -q 'Usage: tev add' "$scratch/stdout" || note_failure "$args printed no usage"
done
for args in "" "info $jpg --frob" "extract $jpg" "add $jpg x --data y --data-file $scratch/note.txt" \
    "extract $jpg note --json"; do
  # shellcheck disable=SC2086
  refused 2 "$jpg" "" $args
done
expect_status 2 "json usage error" "$tev" add "$jpg" --json
expect_json "json usage error" "d['ok'] is False and d['exit_status'] == 2"
for args in "info $scratch/absent.jpg" "list $scratch/absent.jpg" "extract $jpg nosuch -o $scratch/x" \
    "add $jpg note --data y" "delete $jpg nosuch" "clear $scratch/absent.jpg" \
    "sound list $scratch/absent.jpg" "copy $scratch/absent.jpg $jpg"; do
  # shellcheck disable=SC2086
  expect_status 1 "json error: $args" "$tev" $args --json
  expect_json "json error: $args" "d['ok'] is False and d['error'] and d['exit_status'] == 1"
done

# docs/tev.1 names every command and every long option the tool accepts.
man=$source_dir/docs/tev.1
for command in info list extract add delete clear copy repair "sound list" "sound add" "sound extract" \
    "sound delete" "sound clear" "sound convert" \
    $("$tev" --help | sed -n '/^Subcommands:/,/^$/p' | awk 'NR > 1 && NF {print $1}'); do
  grep -qF ".BI \"$command " "$man" || note_failure "man page: no entry for $command"
  # shellcheck disable=SC2086
  for option in $("$tev" $command --help | grep -oE -- '--[a-z][a-z-]+' | sort -u); do
    grep -qF -- "${option//-/\\-}" "$man" || note_failure "man page: $command lacks $option"
  done
done

# --replace keeps the type and sub-information it is not given anew; delete
# takes several names.
keep=$scratch/keep.jpg
cp "$media/sample.jpg" "$keep"
"$tev" add "$keep" rec --data one --type 0 --sub-info-file "$scratch/sub.bin"
"$tev" add "$keep" rec --data two --replace
json_ok "replace keeps type and sub-info" "[(r['type'], r['sub_info_length'], r['data_length']) for r in d['records']] == [(0, 17, 3)]" list "$keep" --json
"$tev" add "$keep" rec --data three --replace --type 5 --sub-info-file "$scratch/note.txt"
"$tev" add "$keep" other --data four
json_ok "replace takes new type and sub-info" "[(r['name'], r['type'], r['sub_info_length']) for r in d['records']] == [('rec', 5, 14), ('other', 1, 0)]" list "$keep" --json
expect_status 0 "delete two" "$tev" delete "$keep" rec other
expect_same "delete two" "$media/sample.jpg" "$keep"
expect_status 0 "clear plain media" "$tev" clear "$keep"
[[ $(cat "$scratch/stdout") == "nothing to clear" ]] || note_failure "clear plain media: $(cat "$scratch/stdout")"
expect_same "clear plain media" "$media/sample.jpg" "$keep"

# Refusals of every kind, each leaving the file as it was.
plain=$keep empty=$scratch/empty.jpg
: >"$empty"
truncate -s 4293918721 "$scratch/huge.bin" # sparse: 0xFFF00001 bytes
refused 1 "$media/sample.mp4" "no container" extract "$media/sample.mp4" x
refused 1 "$scratch/absent.jpg" "$scratch/absent.jpg: cannot open" info "$scratch/absent.jpg"
refused 1 "$jpg" "has no sub-information" extract "$jpg" note --sub-info
refused 1 "$jpg" "$jpg: no record named \"nosuch\"" extract "$jpg" nosuch
refused 1 "$jpg" "$jpg: record \"note\" exists" add "$jpg" note --data other
refused 2 "$jpg" "type 0 (user-defined) needs sub-information" add "$jpg" fresh --data other --type 0
refused 2 "$jpg" "--data is empty" add "$jpg" fresh --data ""
refused 2 "$jpg" "names must be 1 to 1024 bytes long" add "$jpg" "$(printf 'n%.0s' {1..1025})" --data x
refused 2 "$jpg" "--type" add "$jpg" fresh --data x --type 65536
refused 2 "$jpg" "names must be 1 to 1024 bytes long" delete "$jpg" ""
refused 1 "$jpg" "$scratch/huge.bin: data file of 4293918721 bytes is too big" add "$jpg" big --data-file "$scratch/huge.bin"
refused 1 "$jpg" "$jpg: no record named \"nosuch\"" delete "$jpg" note nosuch
refused 1 "$jpg" "$jpg: no record named \"note\"" delete "$jpg" note note
refused 1 "$plain" "$plain: no container" delete "$plain" note
refused 1 "$empty" "$empty: the file is empty" add "$empty" x --data y
rm -f "$scratch/huge.bin"

# A damaged container is reported, refused, and cut only when forced.
damaged=$scratch/damaged.jpg
{ cat "$media/sample.jpg"; printf 'garbage-TEVT'; } >"$damaged"
json_ok "info on a damaged container" "d['signature'] == 2 and d['container'] == {'status': 'damaged'}" info "$damaged" --json
refused 1 "$damaged" "$damaged: container is damaged" list "$damaged"
refused 1 "$damaged" "$damaged: container is damaged" add "$damaged" x --data y
refused 1 "$damaged" "use --force" clear "$damaged"
expect_status 0 "clear --force a damaged container" "$tev" clear "$damaged" --force
expect_same "clear --force a damaged container" "$media/sample.jpg" "$damaged"

# Bytes behind a container: the tool warns and starts no second container
# unless forced.
trailing=$scratch/trailing.mp4
cp "$media/sample.mp4" "$trailing"
"$tev" add "$trailing" kept --data "kept bytes"
printf 'trailing bytes' >>"$trailing"
expect_status 0 "info warns about bytes after a container" "$tev" info "$trailing"
grep -qF "warning" "$scratch/stderr" || note_failure "info on bytes after a container: no warning"
refused 1 "$trailing" "use --force" add "$trailing" x --data y
cp "$trailing" "$scratch/forced.mp4"
expect_status 0 "add --force behind bytes after a container" "$tev" add "$scratch/forced.mp4" x --data y --force
expect_status 0 "clear --force cuts to the media" "$tev" clear "$trailing" --force
expect_same "clear --force cuts to the media" "$media/sample.mp4" "$trailing"

# The sound commands' output and refusals; media_safety_test.sh edits
# sounds. A bare sound: the media, 1024 bytes of sound, "VOXA", 106, one
# sound, its start and end, header length 20, "VOXABS".
sound=$scratch/sound.jpg voxa=$scratch/voxa.jpg start=$(stat -c %s "$media/sample.jpg")
head -c 1024 "$scratch/sound.bin" >"$scratch/bare.bin"
python3 -c "import struct, sys; open(sys.argv[3], 'wb').write(open(sys.argv[1], 'rb').read() + open(sys.argv[2], 'rb').read() +
b'VOXA' + struct.pack('<5I', 106, 1, $start, $start + 1024, 20) + b'VOXABS')" "$media/sample.jpg" "$scratch/bare.bin" "$voxa"
json_ok "info on a bare sound" "d['signature'] == 3 and d['container'] is None and d['voxa'] == {'version': 106, 'sounds': [{'start': $start, 'end': $start + 1024}]}" info "$voxa" --json
expect_status 0 "extract the bare sound" "$tev" sound extract "$voxa" EchoFrame_000
expect_same "extract the bare sound" "$scratch/bare.bin" "$scratch/stdout"
cp "$media/sample.jpg" "$sound"
printf 'second sound' >"$scratch/memo2.bin"
"$tev" sound add "$sound" memo --data-file "$scratch/sound.bin"
"$tev" sound add "$sound" memo2 --data-file "$scratch/memo2.bin"
json_ok "info with sounds" "d['signature'] == 4 and d['ends_with'] == 'container+voxa' and d['container']['records'] == len(d['records']) == 3 and len(d['voxa']['sounds']) == 1" info "$sound" --json
json_ok "sound list" "[s['name'] for s in d['sounds']] == ['memo', 'memo2'] and sum(s['in_voxa_block'] for s in d['sounds']) == 1 and [open('$sound', 'rb').read()[s['position']:s['position'] + s['length']] for s in d['sounds']] == [open('$scratch/sound.bin', 'rb').read(), b'second sound']" sound list "$sound" --json
expect_status 0 "sound extract" "$tev" sound extract "$sound" memo2 -o "$scratch/memo2.out"
expect_same "sound extract" "$scratch/memo2.bin" "$scratch/memo2.out"
refused 1 "$sound" "$sound: no sound named \"nosuch\"" sound delete "$sound" nosuch
refused 1 "$sound" "no bare sound to convert" sound convert "$sound"
refused 1 "$mp4" "$mp4: MP4 and HEIC files cannot carry sound" sound add "$mp4" memo --data-file "$scratch/sound.bin"
cp "$media/sample.jpg" "$scratch/big.jpg"
truncate -s 4293916000 "$scratch/big.jpg" # sparse, just below the 32-bit bound
refused 1 "$scratch/big.jpg" "$scratch/big.jpg: no room" sound add "$scratch/big.jpg" memo --data-file "$scratch/sound.bin"
rm -f "$scratch/big.jpg"

# tev copy, by every selection. Type 0 needs sub-information, which a copy
# leaves behind: "caller" stays out.
copied=$scratch/copy.jpg raw=$scratch/raw.jpg into=$scratch/copy.mp4
tee "$copied" "$raw" <"$media/sample.jpg" >/dev/null
cp "$media/sample.mp4" "$into"
"$tev" add "$jpg" third --data x --type 7
expect_status 1 "copy all" "$tev" copy "$jpg" "$copied"
expect_stderr_line "copy all" "record \"caller\" was not copied"
expect_status 0 "copy by type" "$tev" copy "$jpg" "$into" --type 7
json_ok "copy by type" "[r['name'] for r in d['records']] == ['note', 'third']" list "$into" --json
expect_status 0 "copy raw" "$tev" copy "$jpg" "$raw" --raw
json_ok "copy raw" "[r['name'] for r in d['records']] == ['note', 'caller', 'third']" list "$raw" --json
refused 1 "$into" "already holds records" copy "$jpg" "$into" --type 7
refused 1 "$plain" "no record named \"nosuch\"" copy "$jpg" "$plain" --name nosuch
refused 1 "$plain" "no records to copy" copy "$media/sample.jpg" "$plain"
refused 1 "$into" "outside a box" copy "$jpg" "$into" --raw
refused 2 "$plain" "" copy "$jpg" "$plain" --raw --name note

# tev repair: a healthy file stays as it is, leftover bytes behind a
# container are cut (the "tevd" box size set right), and an undo file left
# behind blocks the next edit; one that tev did not write is left alone.
for file in "$raw" "$into"; do
  cp "$file" "$scratch/healthy"
  expect_status 0 "repair a healthy file" "$tev" repair "$file"
  grep -qx "nothing to repair" "$scratch/stdout" || note_failure "repair healthy: $(cat "$scratch/stdout")"
  # The MP4's leftovers end in a "TEVT" that ends no directory.
  if [[ $file == "$raw" ]]; then printf 'half of a record' >>"$file"; else printf 'half TEVT' >>"$file"; fi
  expect_status 0 "repair leftovers" "$tev" repair "$file"
  expect_same "repair leftovers" "$scratch/healthy" "$file"
done
printf 'TEVUNDO1' >"$raw.tev-undo"
refused 1 "$raw" "run \`tev repair\` on the file first" add "$raw" three --data third
refused 1 "$raw" "" repair "$raw"

finish
