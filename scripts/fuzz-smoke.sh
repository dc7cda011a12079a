#!/usr/bin/env bash
# Builds the fuzz targets with clang and runs each for a bounded time on a
# copy of its seed corpus. Fails on any crash, leak, timeout, out-of-memory
# or sanitizer report; the offending input is kept in BUILD_DIR/fuzz-artifacts.
# Usage: scripts/fuzz-smoke.sh BUILD_DIR [SECONDS_PER_TARGET]
set -euo pipefail

build=${1:?usage: $0 BUILD_DIR [SECONDS_PER_TARGET]}
seconds=${2:-60}
root=$(cd "$(dirname "$0")/.." && pwd)

CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DTEV_FUZZ=ON -DBUILD_TESTING=OFF \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build" --target fuzz_read fuzz_edit

artifacts=$build/fuzz-artifacts
rm -rf "$artifacts"
mkdir -p "$artifacts"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:allocator_may_return_null=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

# Both targets start from the same seeds: the edit target treats each seed
# as the media (and container) it edits.
status=0
for target in fuzz_read fuzz_edit; do
  corpus=$work/$target
  cp -r "$root/fuzz/corpus/read" "$corpus"
  log=$build/$target.log
  echo "== $target: ${seconds}s"
  if ! "$build/fuzz/$target" "$corpus" -max_total_time="$seconds" -rss_limit_mb=2048 \
      -timeout=25 -print_final_stats=1 -artifact_prefix="$artifacts/$target-" >"$log" 2>&1; then
    echo "$target failed; see $log" >&2
    status=1
  elif grep -qE 'ERROR: (Address|Leak|Undefined)Sanitizer|runtime error:|==ERROR' "$log"; then
    echo "$target reported a sanitizer finding; see $log" >&2
    status=1
  fi
  grep -E '^stat::number_of_executed_units|^#[0-9]+.*DONE' "$log" || true
done

if [[ $status -ne 0 ]]; then
  ls -l "$artifacts" >&2
  exit 1
fi
echo "fuzz smoke run clean"
