#!/usr/bin/env bash
# make bench: builds the benchmark and the tool in Release, makes the media,
# runs every library case and the tool's table (scripts/bench-cli.sh) with
# JSON output and renders docs/benchmarks.md from both.
# Extra arguments go to the benchmark program (e.g. --benchmark_filter=list);
# BENCH_CLI=0 leaves the tool's table out.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${BENCH_BUILD:-$root/build-bench}
data=$root/bench-data
work=$data/work
results=$data/results.json
cli_results=$data/cli-results.json

cmake -S "$root" -B "$build" -G Ninja -DTEV_BENCH=ON -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF
cmake --build "$build" --target tev_bench tev

"$root/scripts/make-bench-media.sh" "$data"

# The fixtures (copies of the media with containers) are made afresh by the
# benchmark program and removed afterwards.
rm -rf "$work"
mkdir -p "$work"
trap 'rm -rf "$work"' EXIT

"$build/bench/tev_bench" --media-dir="$data" --work-dir="$work" \
  --benchmark_out="$results" --benchmark_out_format=json \
  --benchmark_repetitions=3 --benchmark_report_aggregates_only=true "$@"

cli_args=()
if [ "${BENCH_CLI:-1}" != 0 ]; then
  "$root/scripts/bench-cli.sh" "$build/tools/tev" "$data" "$cli_results"
  cli_args=(--cli "$cli_results")
fi

python3 "$root/scripts/render-benchmarks.py" --results "$results" --build "$build" \
  --data "$data" --out "$root/docs/benchmarks.md" "${cli_args[@]}"
echo "wrote docs/benchmarks.md"
