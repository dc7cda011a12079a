# Cross build for 64-bit Arm Linux with Debian's aarch64-linux-gnu compiler;
# tests run under qemu-aarch64 user emulation (no binfmt registration needed:
# CTest and the shell tests put the emulator in front of every arm64 binary).
#
#   cmake -S . -B build-arm64 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# The arm64 libraries (GoogleTest, liblog) come from Debian's multiarch
# packages under /usr/lib/aarch64-linux-gnu, the C library from the
# cross toolchain's sysroot. Both are searched; programs come from the host.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# The arm64 loader and multiarch libraries are installed on the host
# (libc6:arm64), so qemu finds them without a separate sysroot.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /usr/aarch64-linux-gnu)
