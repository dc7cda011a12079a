// TevStream's writers of the container format: tags, directory fields,
// record tag headers and the "Invalid_Data" filler. They write at the
// stream's current position; the caller positions the stream.
#include <algorithm>
#include <vector>

#include "container/directory_image.h"
#include "container/format.h"
#include "container/index.h"
#include "tev/container.h"
#include "tev/stream.h"
#include "util/log.h"

namespace {

// Zero bytes for the filler come from one heap block reused chunk by chunk,
// so a large filler does not need a buffer of its own size.
constexpr uint32_t kZeroChunkSize = 64 * 1024;

bool wroteAll(int64_t result, int64_t expected) { return result == expected; }

// False only when the write reports an error; missing bytes write nothing.
bool writeBytes(TevStream& stream, const void* bytes, uint32_t size) {
    if (size == 0 || bytes == nullptr) return true;
    return stream.write(bytes, size) >= 0;
}

bool writeZeros(TevStream& stream, uint32_t size) {
    if (size == 0) return true;
    const uint32_t chunk = std::min(size, kZeroChunkSize);
    tev::KUnique<unsigned char> zeros(static_cast<unsigned char*>(_kmalloc(chunk)));
    if (!zeros) return false;
    for (uint32_t left = size; left > 0;) {
        const uint32_t step = std::min(left, chunk);
        if (!wroteAll(stream.write(zeros.get(), step), step)) return false;
        left -= step;
    }
    return true;
}

// Meta type, start offset, length: the stored triple in directory order.
bool writeEntry(TevStream& stream, const _TEV_data_info& entry) {
    return wroteAll(stream.writeInt32(entry.meta_type), tev::kFieldSize) &&
           wroteAll(stream.writeInt32(entry.start_offset), tev::kFieldSize) &&
           wroteAll(stream.writeInt32(entry.length), tev::kFieldSize);
}

}  // namespace

int64_t TevStream::writeTEV_KTSS() { return write(tev::kTagHead, tev::kTagSize); }

int64_t TevStream::writeTEV_KVER() { return writeInt32(tev::kVersion); }

int64_t TevStream::writeTEV_KCnt(uint32_t count) { return writeInt32(count); }

uint32_t TevStream::writeTEV_KDR(_TEV_data_info* entry) {
    if (entry == nullptr) return 0;
    writeEntry(*this, *entry);
    return 1;
}

int64_t TevStream::writeTEV_KTHO(uint32_t count) { return writeInt32(_calculateTEV_KTHO(count)); }

int64_t TevStream::writeTEV_KTS() { return write(tev::kTagTail, tev::kTagSize); }

int64_t TevStream::writeTEV_MP4S() { return write(tev::kTagBox, tev::kTagSize); }

int64_t TevStream::writeTEV_TOTALSIZE(uint32_t size) { return writeInt32_endian(size); }

uint32_t TevStream::writeDataTagInfo(uint32_t type, uint32_t has_sub, const void* name, uint32_t name_len,
                                     const void* sub, uint32_t sub_len) {
    // Sub-information bytes exist on disk only when the meta type flags them.
    // Only a write that reports an error (a negative result) stops the
    // header; a medium that refuses a write without error, such as a full
    // memory buffer, reports 0 and the caller finds out from its own writes.
    const uint32_t subBytes = has_sub != 0 ? sub_len : 0;
    const bool written = writeInt32(_setMetaType(static_cast<uint16_t>(type), has_sub)) >= 0 &&
                         writeInt32(name_len) >= 0 && (has_sub == 0 || writeInt32(sub_len) >= 0) &&
                         writeBytes(*this, name, name_len) && writeBytes(*this, sub, subBytes);
    if (!written) {
        tev::logLine(tev::kLogError, "TevStream::_writeDataTagInfo", "File Write Error");
        return 0;
    }
    return 1;
}

void TevStream::writeDummyTEVData(uint32_t size) {
    if (size < tev::kFillerHeaderSize) return;
    // The zero bytes follow whatever became of the tag header.
    writeDataTagInfo(TEV_INVALID_DATA, 0, tev::kFillerName, tev::kFillerNameLength, nullptr, 0);
    writeZeros(*this, size - tev::kFillerHeaderSize);
}

void TevStream::writeDummyTEVDataHeader(uint32_t size, uint32_t has_sub) {
    // The filler needs at least one byte beyond its own tag header and name.
    if (size > tev::kOneEntryDirectorySize + tev::kFillerHeaderSize) {
        const uint32_t fillerSize = size - tev::kOneEntryDirectorySize;
        writeDummyTEVData(fillerSize);
        _TEV_data_info entry{};
        entry.meta_type = _setMetaType(TEV_INVALID_DATA, has_sub);
        entry.start_offset = fillerSize;
        entry.length = fillerSize;
        tev::writeDirectory(*this, 1, {&entry});
        return;
    }
    // Too small for a filler and a directory: the region ends the stream.
    const int64_t here = tell();
    if (here >= 1) truncate(here);
}

int64_t TevStream::writeTEVHeader(_TEV_data_info** entries, uint32_t count) {
    if (entries == nullptr) return 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (entries[i] == nullptr) return 0;
    }
    const std::vector<_TEV_data_info*> list(entries, entries + count);
    // Field by field, a write the medium merely refuses (0) goes on to the
    // next field; one that reports an error stops the directory.
    const tev::DirectoryWrite written =
        tev::writeDirectory(*this, count + tev::kHeaderCountSurplus, list, tev::DirectoryStop::kAtError);
    return written.ok() && written.lastResult > 0 ? written.lastResult : 0;
}
