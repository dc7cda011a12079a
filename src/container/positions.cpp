// Absolute positions of a record's sub-information and payload, computed
// from the end of the stream, and copies of those bytes. A region is only
// handed out when it lies inside the stream as it was parsed.
#include <cstdint>
#include <cstdio>
#include <utility>

#include "container/format.h"
#include "container/index.h"
#include "tev/container.h"
#include "tev/stream.h"
#include "util/checked.h"
#include "util/log.h"

namespace {

// The entry at `index` once the index can locate it, with its name read;
// null otherwise. `tag` is the log tag of the calling routine.
_TEV_data_info* locatableEntry(_TEV_info* info, uint32_t index, const char* tag) {
    if (info == nullptr || info->meta_count == 0) return nullptr;
    if (info->Stream == nullptr) {
        tev::logLine(tev::kLogError, tag, "Stream is null");
        return nullptr;
    }
    if (!info->Stream->CheckError()) {
        tev::logLine(tev::kLogError, tag, "Pointer is null");
        return nullptr;
    }
    if (info->stream_size < 1) {
        tev::logLine(tev::kLogError, tag, "file size is <= 0");
        return nullptr;
    }
    if (index >= info->meta_count || info->meta_data == nullptr) return nullptr;
    _TEV_data_info* entry = info->meta_data[index];
    if (entry == nullptr || entry->start_offset == 0 || entry->length == 0) return nullptr;
    if (entry->name_length == 0 && _getNameOfData(info, index) == 0) return nullptr;
    return entry;
}

bool publish(int64_t at, int64_t size, int64_t streamSize, int64_t* position, int64_t* length) {
    if (size < 1 || !tev::rangeFits(at, size, streamSize)) return false;
    *position = at;
    *length = size;
    return true;
}

// Copies `size` bytes at `at` into a new buffer.
bool copyRegion(TevStream& stream, int64_t at, int64_t size, tev::KUnique<unsigned char>* copy) {
    tev::KUnique<unsigned char> bytes(static_cast<unsigned char*>(_kmalloc(static_cast<size_t>(size))));
    if (!bytes) return false;
    if (stream.seek(at, SEEK_SET) != at) {
        tev::logLine(tev::kLogError, "TEVDecoder::readDataOfIndex", "File Search Error");
        return false;
    }
    if (!tev::readFully(stream, bytes.get(), size)) {
        tev::logLine(tev::kLogError, "TEVDecoder::readDataOfIndex", "File Read Error");
        return false;
    }
    *copy = std::move(bytes);
    return true;
}

}  // namespace

uint32_t readSubDataInfoOfDataOffset(_TEV_info* info, uint32_t index, int64_t* position, int64_t* length) {
    if (position == nullptr || length == nullptr) return 0;
    *position = 0;
    *length = 0;
    const _TEV_data_info* entry = locatableEntry(info, index, "TEV::readSubDataInfoOfDataOffset");
    if (entry == nullptr || entry->has_sub_info == 0) return 0;
    const int64_t start = tev::recordStart(*info, *entry);
    if (start < 0) return 0;
    const int64_t at = start + tev::kTagHeaderSize + tev::kSubInfoLengthSize + entry->name_length;
    return publish(at, entry->sub_info_length, info->stream_size, position, length) ? 1 : 0;
}

uint32_t readDataOfIndexOffset(_TEV_info* info, uint32_t index, int64_t* position, int64_t* length) {
    if (position == nullptr || length == nullptr) return 0;
    *position = 0;
    *length = 0;
    const _TEV_data_info* entry = locatableEntry(info, index, "TEV::readDataOfIndexOffset");
    if (entry == nullptr) return 0;
    const int64_t start = tev::recordStart(*info, *entry);
    if (start < 0) return 0;
    int64_t at = start + tev::kTagHeaderSize + entry->name_length;
    int64_t size = int64_t{entry->length} - tev::kTagHeaderSize - entry->name_length;
    if (entry->has_sub_info != 0) {
        int64_t subAt = 0;
        int64_t subSize = 0;
        if (readSubDataInfoOfDataOffset(info, index, &subAt, &subSize) == 0) return 0;
        at = subAt + subSize;
        size -= tev::kSubInfoLengthSize + subSize;
    }
    return publish(at, size, info->stream_size, position, length) ? 1 : 0;
}

uint32_t readDataOfIndex(_TEV_info* info, uint32_t index, unsigned char** data, unsigned char** sub) {
    if (info == nullptr || info->Stream == nullptr || !info->Stream->CheckError()) return 0;
    TevStream& stream = *info->Stream;
    const int64_t resume = stream.tell();
    int64_t at = 0;
    int64_t size = 0;
    tev::KUnique<unsigned char> subCopy;
    if (sub != nullptr) {
        if (readSubDataInfoOfDataOffset(info, index, &at, &size) == 0) {
            tev::logLine(tev::kLogError, "TEVDecoder::readDataOfIndex", "SubData readDataOfIndexOffset Fail");
            return 0;
        }
        if (!copyRegion(stream, at, size, &subCopy)) return 0;
    }
    tev::KUnique<unsigned char> dataCopy;
    if (data != nullptr) {
        if (readDataOfIndexOffset(info, index, &at, &size) == 0) {
            tev::logLine(tev::kLogError, "TEVDecoder::readDataOfIndex", "Data readDataOfIndexOffset Fail");
            return 0;
        }
        if (!copyRegion(stream, at, size, &dataCopy)) return 0;
    }
    if (sub != nullptr) *sub = subCopy.release();
    if (data != nullptr) *data = dataCopy.release();
    // The copies are the caller's from here on, even when the stream cannot
    // go back; a stream that stood at 0 cannot be told apart from a failed seek.
    if (stream.seek(resume, SEEK_SET) <= 0) {
        tev::logLine(tev::kLogError, "TEVDecoder::readDataOfIndex", "File seek Error");
        return 0;
    }
    return 1;
}
