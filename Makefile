# Entry points for a fresh machine: `make demo` and `make test`.
BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
ARM64_BUILD ?= build-arm64
TSAN_BUILD ?= build-tsan
CMAKE_GEN  := -G Ninja

.PHONY: all deps build demo test test-normal test-asan fuzz-smoke test-tsan test-arm64 bench clean

all: build

deps:
	@scripts/install-deps.sh

build: deps
	cmake -S . -B $(BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD)

# The `tev` tool on copies of the bundled sample media.
demo: deps
	cmake -S . -B $(BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) --target tev
	scripts/demo.sh $(BUILD)

# Normal build, sanitizer build, the fuzz smoke run, the thread-safety test
# and the arm64 pass, in that order.
test: deps test-normal test-asan fuzz-smoke test-tsan test-arm64

test-normal: build
	ctest --test-dir $(BUILD) --output-on-failure -j2

test-asan: deps
	cmake -S . -B $(ASAN_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DTEV_SANITIZE=ON
	cmake --build $(ASAN_BUILD)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --test-dir $(ASAN_BUILD) --output-on-failure -j2

fuzz-smoke: deps
	@if [ -f fuzz/CMakeLists.txt ]; then scripts/fuzz-smoke.sh $(FUZZ_BUILD); else echo "no fuzz targets"; fi

# Calls on different files from several threads, under ThreadSanitizer.
test-tsan: deps
	cmake -S . -B $(TSAN_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTEV_TSAN=ON -DBUILD_TESTING=OFF
	cmake --build $(TSAN_BUILD)
	ctest --test-dir $(TSAN_BUILD) --output-on-failure

# The whole suite cross-built for 64-bit Arm and run under qemu-aarch64
# (user-mode emulation; nothing is registered with the kernel).
test-arm64: deps
	cmake -S . -B $(ARM64_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/aarch64-linux-gnu.cmake
	cmake --build $(ARM64_BUILD)
	ctest --test-dir $(ARM64_BUILD) --output-on-failure -j2

# Benchmarks on media generated at bench time; writes docs/benchmarks.md.
bench: deps
	scripts/bench.sh

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD) $(TSAN_BUILD) $(ARM64_BUILD)
