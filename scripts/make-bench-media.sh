#!/usr/bin/env bash
# Makes the benchmark media under bench-data/ (or the directory given):
#   bench.mp4  about 100 MB: a 1080p test pattern with moving noise, Motion
#              JPEG at high quality, so it grows fast and encodes in seconds.
#   bench.jpg  about 20 MB: colour noise at quality 100 without chroma
#              subsampling (noise does not compress).
# Files already there are kept.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-$root/bench-data}
mkdir -p "$out"

mp4=$out/bench.mp4
if [ ! -s "$mp4" ]; then
  echo "making $mp4"
  ffmpeg -v error -nostdin -y -f lavfi -i testsrc2=size=1920x1080:rate=30 \
    -vf noise=alls=30:allf=t -t 20 -fs 97000000 \
    -c:v mjpeg -q:v 2 -pix_fmt yuvj420p -an "$mp4.tmp.mp4"
  mv "$mp4.tmp.mp4" "$mp4"
fi

jpg=$out/bench.jpg
if [ ! -s "$jpg" ]; then
  echo "making $jpg"
  convert -size 2880x2400 xc:gray -type TrueColor -seed 7 +noise Random \
    -quality 100 -sampling-factor 1x1 "$jpg.tmp.jpg"
  mv "$jpg.tmp.jpg" "$jpg"
fi

ls -l "$mp4" "$jpg"
