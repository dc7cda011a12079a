#include "container/directory_image.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "container/format.h"
#include "tev/container.h"

namespace tev {

bool DirectoryImage::reserve(uint32_t entryCount) {
    const size_t capacity = size_t{kDirectoryFixedSize} + size_t{kDirectoryEntrySize} * entryCount;
    bytes_.reset(new (std::nothrow) unsigned char[capacity]);
    capacity_ = bytes_ ? capacity : 0;
    size_ = 0;
    overflowed_ = false;
    return bytes_ != nullptr;
}

void DirectoryImage::put(const void* field, size_t length) {
    if (overflowed_ || capacity_ - size_ < length) {
        overflowed_ = true;
        return;
    }
    std::memcpy(bytes_.get() + size_, field, length);
    size_ += length;
}

void DirectoryImage::putWord(uint32_t value) {
    const unsigned char bytes[kFieldSize] = {
        static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
        static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
    put(bytes, sizeof bytes);
}

void DirectoryImage::begin(uint32_t countField) {
    put(kTagHead, kTagSize);
    putWord(kVersion);
    putWord(countField);
}

void DirectoryImage::addEntry(const _TEV_data_info& entry) {
    putWord(entry.meta_type);
    putWord(entry.start_offset);
    putWord(entry.length);
}

void DirectoryImage::end(uint32_t entryCount) {
    putWord(_calculateTEV_KTHO(entryCount));
    put(kTagTail, kTagSize);
}

bool writeDirectoryImage(TevStream& stream, const DirectoryImage& image) {
    if (!image.complete()) return false;
    const int64_t start = stream.tell();
    if (start < 0) return false;
    if (stream.write(image.data(), image.size()) == image.size()) return true;
    stream.seek(start, SEEK_SET);
    return false;
}

}  // namespace tev
