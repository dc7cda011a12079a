# Entry points for a fresh machine: `make demo` and `make test`.
BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
ARM64_BUILD ?= build-arm64
TSAN_BUILD ?= build-tsan
ANDROID_BUILD ?= build-android
COV_BUILD  ?= build-cov
CMAKE_GEN  := -G Ninja

.PHONY: all deps build demo test test-normal test-asan fuzz-smoke test-tsan test-arm64 coverage aar bench clean

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

# Line coverage of src/ from the normal test run, in a Debug build with gcov
# instrumentation; prints one line (covered/total and percent).
coverage: deps
	cmake -S . -B $(COV_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug \
	  -DCMAKE_CXX_FLAGS=--coverage -DCMAKE_C_FLAGS=--coverage \
	  -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage
	cmake --build $(COV_BUILD)
	find $(COV_BUILD) -name '*.gcda' -delete
	ctest --test-dir $(COV_BUILD) --output-on-failure -j2
	@gcovr -r $(CURDIR) --filter '$(CURDIR)/src/' --object-directory $(COV_BUILD) \
	  --print-summary -o $(COV_BUILD)/coverage.txt 2>$(COV_BUILD)/gcovr.log | grep '^lines:'

# TEV.aar (classes.jar, jni/arm64-v8a/libTEV.lumet.so, AndroidManifest.xml).
# With ANDROID_NDK set: from the NDK build, an archive an app can use. Without
# it: from the arm64 cross build, whose library links glibc and does not load
# on Android; that archive only shows the layout.
aar: deps
ifdef ANDROID_NDK
	cmake -S . -B $(ANDROID_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Release \
	  -DCMAKE_TOOLCHAIN_FILE=$(ANDROID_NDK)/build/cmake/android.toolchain.cmake \
	  -DANDROID_ABI=arm64-v8a -DANDROID_PLATFORM=android-24
	cmake --build $(ANDROID_BUILD) --target tev_aar
else
	@echo "ANDROID_NDK is not set: packing the arm64 glibc build, which does not load on Android"
	cmake -S . -B $(ARM64_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/aarch64-linux-gnu.cmake
	cmake --build $(ARM64_BUILD) --target tev_aar
endif

# Benchmarks on media generated at bench time; writes docs/benchmarks.md.
bench: deps
	scripts/bench.sh

clean:
	rm -rf $(BUILD) $(COV_BUILD) $(ASAN_BUILD) $(FUZZ_BUILD) $(TSAN_BUILD) $(ARM64_BUILD) $(ANDROID_BUILD)
