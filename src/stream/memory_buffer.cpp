// Fixed-capacity memory buffer handles. A handle never grows: a write past
// the capacity fails and writes nothing, a read may not pass the write size,
// and a failed read or write leaves position and write size unchanged.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "stream/io_detail.h"
#include "tev/stream.h"
#include "util/checked.h"

namespace {

// The smallest data area _kbopen allocates, so that even a zero-capacity
// handle has data and counts as usable.
constexpr size_t kMinDataArea = 1;

bool usable(const TevBufferHandle* handle) { return handle != nullptr && handle->data != nullptr; }

// Bytes that can be read: neither past the capacity nor past the write size.
int64_t readLimit(const TevBufferHandle& handle) {
    return std::min(handle.capacity, handle.write_size);
}

TevBufferHandle* newHandle(unsigned char* data, int64_t capacity, int32_t ownsData) {
    auto* handle = static_cast<TevBufferHandle*>(_kmalloc(sizeof(TevBufferHandle)));
    if (handle == nullptr) return nullptr;
    handle->data = data;
    handle->capacity = capacity;
    handle->owns_data = ownsData;
    return handle;
}

}  // namespace

TevBufferHandle* _kbopen(int64_t size) {
    if (size < 0) return nullptr;
    auto* data = static_cast<unsigned char*>(
        _kmalloc(std::max(static_cast<size_t>(size), kMinDataArea)));
    if (data == nullptr) return nullptr;
    TevBufferHandle* handle = newHandle(data, size, 1);
    if (handle == nullptr) _kfree(data);
    return handle;
}

TevBufferHandle* _kbsetbuffer(void* memory, int64_t size) {
    if (memory == nullptr || size < 0) return nullptr;
    return newHandle(static_cast<unsigned char*>(memory), size, 0);
}

void _kbclose(TevBufferHandle* handle) {
    if (handle == nullptr) return;
    if (handle->owns_data && handle->data != nullptr) {
        _kfree(handle->data);
        std::memset(handle, 0, sizeof *handle);
    }
    _kfree(handle);
}

int64_t _kbread(void* dst, int64_t size, TevBufferHandle* handle) {
    if (dst == nullptr || !usable(handle)) return 0;
    if (!tev::rangeFits(handle->position, size, readLimit(*handle))) return 0;
    std::memcpy(dst, handle->data + handle->position, static_cast<size_t>(size));
    handle->position += size;
    return size;
}

int64_t _kbreadInt16(int16_t* out, TevBufferHandle* handle) {
    if (out == nullptr) return 0;
    return _kbread(out, tev::kInt16Size, handle);
}

int64_t _kbreadInt32(uint32_t* out, TevBufferHandle* handle) {
    if (out == nullptr) return 0;
    return _kbread(out, tev::kInt32Size, handle);
}

int64_t _kbwrite(const void* src, int64_t size, TevBufferHandle* handle) {
    if (src == nullptr || !usable(handle)) return 0;
    if (!tev::rangeFits(handle->position, size, handle->capacity)) return 0;
    std::memcpy(handle->data + handle->position, src, static_cast<size_t>(size));
    handle->position += size;
    handle->write_size = std::max(handle->write_size, handle->position);
    return size;
}

int64_t _kbwriteInt16(int16_t value, TevBufferHandle* handle) {
    unsigned char bytes[tev::kInt16Size];
    tev::storeLittleEndian16(static_cast<uint16_t>(value), bytes);
    return _kbwrite(bytes, sizeof bytes, handle);
}

int64_t _kbwriteInt32(uint32_t value, TevBufferHandle* handle) {
    unsigned char bytes[tev::kInt32Size];
    tev::storeLittleEndian32(value, bytes);
    return _kbwrite(bytes, sizeof bytes, handle);
}

int64_t _kbwriteInt32_endian(uint32_t value, TevBufferHandle* handle) {
    unsigned char bytes[tev::kInt32Size];
    tev::storeBigEndian32(value, bytes);
    return _kbwrite(bytes, sizeof bytes, handle);
}

int64_t _kbtell(TevBufferHandle* handle) { return usable(handle) ? handle->position : 0; }

// The position may go anywhere inside the written bytes and the capacity;
// from the end only backwards.
int64_t _kbseek(TevBufferHandle* handle, int64_t offset, int whence) {
    if (!usable(handle)) return -1;
    int64_t target = 0;
    switch (whence) {
        case SEEK_SET:
            target = offset;
            break;
        case SEEK_CUR:
            if (!tev::checkedAdd(handle->position, offset, &target)) return -1;
            break;
        case SEEK_END:
            if (offset > 0 || !tev::checkedAdd(handle->write_size, offset, &target)) return -1;
            break;
        default:
            return -1;
    }
    if (target < 0 || target > handle->capacity || target > handle->write_size) return -1;
    handle->position = target;
    return target;
}

// The tail is cleared and the write size taken before the length is judged;
// only the part of the tail inside the data area is ever touched.
int btruncate(TevBufferHandle* handle, int64_t length) {
    if (!usable(handle)) return -1;
    const int64_t clearFrom = std::clamp<int64_t>(length, 0, handle->capacity);
    std::memset(handle->data + clearFrom, 0, static_cast<size_t>(handle->capacity - clearFrom));
    handle->write_size = length;
    return (length >= 0 && length <= handle->capacity) ? 0 : -1;
}

void* kbgetBuffer(TevBufferHandle* handle) { return handle == nullptr ? nullptr : handle->data; }

int64_t kbgetBufferSize(TevBufferHandle* handle) { return usable(handle) ? handle->capacity : -1; }

int64_t kbgetWriteSize(TevBufferHandle* handle) { return usable(handle) ? handle->write_size : -1; }
