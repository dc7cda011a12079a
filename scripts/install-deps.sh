#!/usr/bin/env bash
# Installs the Debian packages the build (the JDK for the Java binding), the
# tests (JUnit 5 for the JVM tests), the tool, the fuzzers and the
# benchmarks need; does nothing when all are present. Needs root.
set -euo pipefail

packages=(
  cmake ninja-build g++ make pkgconf
  clang libclang-rt-14-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  android-liblog-dev
  libcli11-dev nlohmann-json3-dev
  default-jdk-headless junit5
  ffmpeg imagemagick libheif-examples libjpeg-turbo-progs
  hyperfine
  # `make coverage`: line coverage of the library from the test run.
  gcovr
  # The tool tests' JSON checks and the crash harness.
  python3
  # The arm64 pass: Debian's cross compiler, user-mode qemu, and the arm64
  # builds of the libraries the tests link.
  g++-aarch64-linux-gnu qemu-user
  libgtest-dev:arm64 libgmock-dev:arm64 android-liblog-dev:arm64
)

# A package counts as present when it is installed for the architecture
# asked for (name:arch), or else for this machine's or for all.
native=$(dpkg --print-architecture)
installed() {
  local name=${1%%:*} arch=${1#*:}
  [[ $arch == "$1" ]] && arch=$native
  dpkg-query -W -f='${Architecture} ${Status}\n' "$name" 2>/dev/null |
    grep -qE "^($arch|all) install ok installed$"
}

missing=()
for p in "${packages[@]}"; do
  installed "$p" || missing+=("$p")
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
if ! dpkg --print-foreign-architectures | grep -qx arm64; then
  $sudo dpkg --add-architecture arm64
fi
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
