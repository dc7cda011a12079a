#!/usr/bin/env bash
# Installs the Debian packages the build, the tests, the tool, the fuzzers
# and the benchmarks need; does nothing when all are present. Needs root.
set -euo pipefail

packages=(
  cmake ninja-build g++ make pkgconf
  clang libclang-rt-14-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  android-liblog-dev
  libcli11-dev nlohmann-json3-dev
  ffmpeg imagemagick libheif-examples libjpeg-turbo-progs
  hyperfine
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done

if ((${#missing[@]} == 0)); then
  exit 0
fi

echo "installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
if [[ $(id -u) -ne 0 ]]; then
  sudo=sudo
else
  sudo=
fi
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
