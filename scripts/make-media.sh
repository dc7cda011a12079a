#!/usr/bin/env bash
# Generates the small sample media the tool tests and media safety tests run
# on: media/sample.jpg, media/sample.mp4 and media/sample.heic. Every file is
# drawn from a built-in test pattern, so nothing comes from outside the
# project; the files are committed and this script regenerates them.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
out="$root/media"
mkdir -p "$out"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A small colour pattern as the common source for both still images.
ffmpeg -v error -y -f lavfi -i "testsrc=size=160x120:rate=1" -frames:v 1 \
  -fflags +bitexact "$work/pattern.png"

# JPEG: baseline, metadata stripped.
convert "$work/pattern.png" -strip -quality 80 "$out/sample.jpg"

# HEIC: one HEVC-coded still image.
heif-enc --quality 50 -o "$out/sample.heic" "$work/pattern.png" >/dev/null

# MP4: two seconds of an H.264 test pattern with a short tone, no metadata.
ffmpeg -v error -y \
  -f lavfi -i "testsrc=size=128x96:rate=10:duration=2" \
  -f lavfi -i "sine=frequency=440:duration=2:sample_rate=8000" \
  -c:v libx264 -preset veryfast -crf 40 -pix_fmt yuv420p -g 10 \
  -c:a aac -b:a 16k -ac 1 \
  -map_metadata -1 -fflags +bitexact -flags:v +bitexact -flags:a +bitexact \
  "$out/sample.mp4"

ls -l "$out"/sample.*
