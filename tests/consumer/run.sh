#!/usr/bin/env bash
# Installs the build into a scratch prefix, then builds and runs the consumer
# program against the install tree: once as a CMake project with
# find_package(TEV), once with the flags pkg-config gives for "tev".
# Usage: run.sh CMAKE BUILD_DIR CONSUMER_DIR CXX EXTRA_FLAGS [TOOLCHAIN_FILE [EMULATOR...]]
# A cross build passes its toolchain file and the emulator that runs its
# programs.
set -euo pipefail

cmake=$1
build_dir=$2
consumer_dir=$3
cxx=$4
extra_flags=$5
toolchain=${6:-}
shift $(($# < 6 ? $# : 6))
emulator=("$@")

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

"$cmake" --install "$build_dir" --prefix "$prefix" >"$scratch/install.log" ||
  { cat "$scratch/install.log"; exit 1; }
test -f "$prefix/include/tev/tev.hpp"

# find_package(TEV) from the install tree only.
"$cmake" -S "$consumer_dir" -B "$scratch/cmake-build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF \
  -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$extra_flags" \
  ${toolchain:+-DCMAKE_TOOLCHAIN_FILE="$toolchain"} \
  -DCMAKE_EXE_LINKER_FLAGS="$extra_flags" >"$scratch/configure.log" ||
  { cat "$scratch/configure.log"; exit 1; }
"$cmake" --build "$scratch/cmake-build" >"$scratch/build.log" || { cat "$scratch/build.log"; exit 1; }
"${emulator[@]}" "$scratch/cmake-build/consumer" "$scratch/cmake.jpg"

# pkg-config, with the .pc file found from the prefix alone.
flags=$(PKG_CONFIG_PATH= PKG_CONFIG_LIBDIR=$(dirname "$(find "$prefix" -name tev.pc)") \
  pkg-config --cflags --libs tev)
# shellcheck disable=SC2086
"$cxx" -std=c++17 $extra_flags "$consumer_dir/consumer.cpp" $flags -o "$scratch/pc-consumer"
lib_dir=$(dirname "$(find "$prefix" -name 'libTEV*.so' | head -n 1)")
LD_LIBRARY_PATH=$lib_dir "${emulator[@]}" "$scratch/pc-consumer" "$scratch/pc.jpg"
echo "install_package: ok"
