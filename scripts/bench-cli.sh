#!/usr/bin/env bash
# The `tev` tool against the bare I/O the same job needs, one process per
# operation, timed side by side with hyperfine (warm page cache, medians):
#   tev add --data-file   vs  dd appending the data file to the media
#   tev extract -o FILE   vs  dd reading the record's bytes at their offset into FILE
#   tev delete            vs  truncate back to the media (the only record goes)
# for records of 1 KiB, 1 MiB and 64 MiB behind bench.mp4 and bench.jpg.
#
#   bench-cli.sh TEV DATA_DIR OUT_JSON
# CLI_RUNS (default 20) sets the number of timed runs per command.
set -euo pipefail

tev=$1
data=$2
out=$3
runs=${CLI_RUNS:-20}
work=$data/cli
rm -rf "$work"
mkdir -p "$work"
trap 'rm -rf "$work"' EXIT

timed() {  # timed JSON PREPARE TEV_COMMAND BARE_COMMAND
  hyperfine -N --style none --warmup 3 --runs "$runs" --prepare "$2" \
    -n tev "$3" -n bare "$4" --export-json "$1" >/dev/null
}

load=$(cut -d' ' -f1-3 /proc/loadavg)
rows=()
for media in mp4:bench.mp4 jpeg:bench.jpg; do
  label=${media%%:*}
  for size in 1024 1048576 67108864; do
    payload=$work/payload.$size
    [ -s "$payload" ] || head -c "$size" /dev/urandom >"$payload"
    file=$work/$label.$size
    cp "$data/${media#*:}" "$file"
    mediaSize=$(stat -c %s "$file")

    timed "$work/add.$label.$size.json" "truncate -s $mediaSize $file" \
      "$tev add $file rec --data-file $payload" \
      "dd if=$payload of=$file bs=1M oflag=append conv=notrunc status=none"

    # The file with its one record, kept for extract and delete.
    truncate -s "$mediaSize" "$file"
    "$tev" add "$file" rec --data-file "$payload"
    read -r position length < <("$tev" list "$file" | awk '$6 == "rec" { print $4, $5 }')
    timed "$work/extract.$label.$size.json" "rm -f $work/out" \
      "$tev extract $file rec -o $work/out" \
      "dd if=$file of=$work/out bs=1M skip=$position count=$length iflag=skip_bytes,count_bytes status=none"

    tail -c +"$((mediaSize + 1))" "$file" >"$work/tail"
    printf 'truncate -s %s %s && cat %s >>%s\n' "$mediaSize" "$file" "$work/tail" "$file" >"$work/restore.sh"
    timed "$work/delete.$label.$size.json" "sh $work/restore.sh" \
      "$tev delete $file rec" "truncate -s $mediaSize $file"
    rm -f "$file" "$work/tail" "$work/out"
    rows+=("add $label $mediaSize $size" "extract $label $mediaSize $size" "delete $label $mediaSize $size")
  done
done

python3 - "$work" "$out" "$runs" "$load" "${rows[@]}" <<'EOF'
import json, sys
work, out, runs, load, rows = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4], sys.argv[5:]
result = []
for row in rows:
    op, media, media_size, size = row.split()
    with open(f"{work}/{op}.{media}.{size}.json") as f:
        medians = {r["command"]: r["median"] * 1e3 for r in json.load(f)["results"]}
    result.append({"op": op, "media": media, "media_B": int(media_size), "record_B": int(size),
                   "tev_ms": medians["tev"], "bare_ms": medians["bare"]})
with open(out, "w") as f:
    json.dump({"runs": runs, "load_avg": load, "rows": result}, f, indent=1)
EOF
