#include "heap_counter.h"

#include <malloc.h>

#include <cerrno>
#include <cstddef>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* block);
}

namespace {

bool counting = false;
int64_t liveBytes = 0;
int64_t peakBytes = 0;

void counted(void* block, int sign) {
    if (!counting || block == nullptr) return;
    liveBytes += sign * static_cast<int64_t>(malloc_usable_size(block));
    if (liveBytes > peakBytes) peakBytes = liveBytes;
}

void* allocated(void* block) {
    counted(block, 1);
    return block;
}

}  // namespace

namespace tevbench {

void startHeapCount() {
    liveBytes = 0;
    peakBytes = 0;
    counting = true;
}

int64_t stopHeapCount() {
    counting = false;
    return peakBytes;
}

}  // namespace tevbench

extern "C" {

void* malloc(size_t size) { return allocated(__libc_malloc(size)); }

void* calloc(size_t count, size_t size) { return allocated(__libc_calloc(count, size)); }

void* realloc(void* block, size_t size) {
    const int64_t before = liveBytes;
    counted(block, -1);
    void* moved = __libc_realloc(block, size);
    if (moved == nullptr && size != 0) {
        liveBytes = before;  // the old block is still there
        return nullptr;
    }
    return allocated(moved);
}

void free(void* block) {
    counted(block, -1);
    __libc_free(block);
}

void* memalign(size_t alignment, size_t size) { return allocated(__libc_memalign(alignment, size)); }

void* aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }

int posix_memalign(void** out, size_t alignment, size_t size) {
    void* block = memalign(alignment, size);
    if (block == nullptr) return ENOMEM;
    *out = block;
    return 0;
}

}  // extern "C"
