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

bool collectEntries(const _TEV_info& info, std::vector<_TEV_data_info*>* entries) {
    if (info.meta_count > 0 && info.meta_data == nullptr) return false;
    entries->reserve(entries->size() + info.meta_count);
    for (uint32_t i = 0; i < info.meta_count; ++i) {
        if (info.meta_data[i] == nullptr) return false;
        entries->push_back(info.meta_data[i]);
    }
    return true;
}

namespace {

bool wrote(int64_t result) { return result > 0; }

// The directory in one write; false (the stream back where it began) when
// there is no memory for it, an entry is missing, or the write fell short.
bool writeDirectoryAtOnce(TevStream& stream, uint32_t countField,
                          const std::vector<_TEV_data_info*>& entries) {
    const uint32_t entryCount = static_cast<uint32_t>(entries.size());
    DirectoryImage image;
    if (!image.reserve(entryCount)) return false;
    image.begin(countField);
    for (const _TEV_data_info* entry : entries) {
        if (entry == nullptr) return false;
        image.addEntry(*entry);
    }
    image.end(entryCount);
    return writeDirectoryImage(stream, image);
}

DirectoryWrite writeDirectoryByFields(TevStream& stream, uint32_t countField,
                                      const std::vector<_TEV_data_info*>& entries, DirectoryStop stop) {
    const bool errorsOnly = stop == DirectoryStop::kAtError;
    auto stops = [errorsOnly](int64_t result) { return errorsOnly ? result < 0 : !wrote(result); };
    // writeTEV_KDR reports 1 whatever its three writes did; when only errors
    // stop the directory, each of them is looked at.
    auto writeEntry = [&](_TEV_data_info* entry) -> int64_t {
        if (!errorsOnly) return stream.writeTEV_KDR(entry);
        for (uint32_t value : {entry->meta_type, entry->start_offset, entry->length}) {
            const int64_t result = stream.writeInt32(value);
            if (result < 0) return result;
        }
        return 1;
    };
    const uint32_t entryCount = static_cast<uint32_t>(entries.size());
    int64_t result = stream.writeTEV_KTSS();
    if (stops(result)) return {DirectoryStep::kHead, result};
    result = stream.writeTEV_KVER();
    if (stops(result)) return {DirectoryStep::kVersion, result};
    result = stream.writeTEV_KCnt(countField);
    if (stops(result)) return {DirectoryStep::kCount, result};
    for (_TEV_data_info* entry : entries) {
        result = writeEntry(entry);
        if (stops(result)) return {DirectoryStep::kEntry, result};
    }
    result = stream.writeTEV_KTHO(entryCount);
    if (stops(result)) return {DirectoryStep::kKtho, result};
    result = stream.writeTEV_KTS();
    if (stops(result)) return {DirectoryStep::kTail, result};
    return {DirectoryStep::kDone, result};
}

}  // namespace

DirectoryWrite writeDirectory(TevStream& stream, uint32_t countField, const std::vector<_TEV_data_info*>& entries,
                              DirectoryStop stop) {
    // A complete write ends with "TEVT", whose write gives its size.
    if (writeDirectoryAtOnce(stream, countField, entries)) return {DirectoryStep::kDone, kTagSize};
    return writeDirectoryByFields(stream, countField, entries, stop);
}

}  // namespace tev
