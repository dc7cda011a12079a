// Stream over a memory buffer handle. The handle outlives the stream unless
// destroyPointer releases it.
#include "tev/stream.h"

TevStreamBuffer::TevStreamBuffer(TevBufferHandle* handle)
    : TevStream(TEV_STREAM_BUFFER), mHandle(handle) {}

TevStreamBuffer::~TevStreamBuffer() = default;

// The count is passed on as a 32-bit value, as the buffer stream always has.
int64_t TevStreamBuffer::read(void* buffer, int64_t size) {
    return static_cast<int32_t>(_kbread(buffer, size, mHandle));
}

int64_t TevStreamBuffer::readInt16(int16_t* out) { return _kbreadInt16(out, mHandle); }

int64_t TevStreamBuffer::readInt32(uint32_t* out) { return _kbreadInt32(out, mHandle); }

int64_t TevStreamBuffer::write(const void* buffer, int64_t size) {
    return _kbwrite(buffer, size, mHandle);
}

int64_t TevStreamBuffer::writeInt16(int16_t value) { return _kbwriteInt16(value, mHandle); }

int64_t TevStreamBuffer::writeInt32_endian(uint32_t value) {
    return _kbwriteInt32_endian(value, mHandle);
}

int64_t TevStreamBuffer::writeInt32(uint32_t value) { return _kbwriteInt32(value, mHandle); }

int64_t TevStreamBuffer::tell() { return _kbtell(mHandle); }

int64_t TevStreamBuffer::seek(int64_t offset, uint32_t whence) {
    return _kbseek(mHandle, offset, static_cast<int>(whence));
}

int64_t TevStreamBuffer::truncate(int64_t length) { return btruncate(mHandle, length); }

int64_t TevStreamBuffer::getWriteSize() { return kbgetWriteSize(mHandle); }

int64_t TevStreamBuffer::getAllocSize() { return kbgetBufferSize(mHandle); }

int TevStreamBuffer::destroyPointer() {
    destroyTEVBuffer(mHandle);
    mHandle = nullptr;
    return 0;
}

bool TevStreamBuffer::CheckError() { return mHandle != nullptr; }
