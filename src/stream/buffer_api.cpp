// The buffer family behind the buffer forms of the save API: thin names over
// the memory buffer handle.
#include <cstdint>
#include <initializer_list>

#include "tev/stream.h"
#include "util/checked.h"

namespace {

// A directory entry (12 bytes) and a record's tag header (up to 12 bytes)
// per record, and the fixed directory fields plus an MP4 box header.
constexpr uint32_t kReservePerRecord = 24;
constexpr int64_t kReserveFixed = 28;

}  // namespace

TevBufferHandle* initTEVBuffer(int64_t size) { return _kbopen(size); }

TevBufferHandle* initTEVAllocatedBuffer(void* memory, int64_t size) {
    return _kbsetbuffer(memory, size);
}

TevBufferHandle* initTEVUsedBuffer(void* memory, int64_t size, int64_t used) {
    if (memory == nullptr || used < 0 || used > size) return nullptr;
    TevBufferHandle* handle = _kbsetbuffer(memory, size);
    if (handle != nullptr && btruncate(handle, used) != 0) {
        _kbclose(handle);
        return nullptr;
    }
    return handle;
}

void destroyTEVBuffer(TevBufferHandle* handle) { _kbclose(handle); }

void* getTEVBuffer(TevBufferHandle* handle) { return kbgetBuffer(handle); }

int64_t getTEVWriteSize(TevBufferHandle* handle) { return kbgetWriteSize(handle); }

int64_t getTEVBufferSize(TevBufferHandle* handle) { return kbgetBufferSize(handle); }

// The per-record part is computed in 32 bits and sign-extended, as callers
// have always received it; a sum that overflows 64 bits gives -1.
int64_t getTEVBufferAllocSize(int64_t used, int32_t record_count, int64_t name_len, int64_t sub_len,
                              int64_t data_len) {
    const auto perRecord =
        static_cast<int32_t>(static_cast<uint32_t>(record_count) * kReservePerRecord);
    int64_t total = kReserveFixed;
    for (const int64_t part : {used, static_cast<int64_t>(perRecord), name_len, sub_len, data_len}) {
        if (!tev::checkedAdd(total, part, &total)) return -1;
    }
    return total;
}
