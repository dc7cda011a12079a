// Record names: read on demand from each record's tag header into the index,
// and looked up by name in a pack's name list (through the pack's side table
// where it has one, see container/name_table.h).
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <algorithm>

#include "container/format.h"
#include "container/index.h"
#include "container/name_table.h"
#include "tev/container.h"
#include "tev/stream.h"
#include "util/checked.h"
#include "util/log.h"

namespace {

void forgetName(_TEV_data_info& entry) {
    _kfree(entry.name);
    entry.name = nullptr;
    entry.name_length = 0;
    entry.sub_info_length = 0;
}

// Seeks to the record's name-length field, which follows its meta type, and
// returns its position; -1 after logging.
int64_t seekToNameLength(TevStream& stream, const _TEV_info& info, const _TEV_data_info& entry) {
    uint32_t distance = 0;
    if (!tev::checkedAdd(info.header_offset, entry.start_offset, &distance)) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData",
                     "data_start_position is larger than header_offset, abnormal operation");
        return -1;
    }
    const int64_t start = tev::recordStart(info, entry);
    const int64_t target = start < 0 ? -1 : start + tev::kFieldSize;
    const int64_t at = target < 0 ? -1 : stream.seek(target, SEEK_SET);
    if (at < 0 || at != target) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "File System Error %lld\n ",
                     static_cast<long long>(at));
        return -1;
    }
    return target;
}

bool nameLengthAccepted(uint32_t nameLength) {
    if (nameLength >= tev::kMinNameLength && nameLength <= tev::kMaxNameLength) return true;
    tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "name length is wrong : %ubyte", nameLength);
    return false;
}

bool subLengthAccepted(bool read, uint32_t subLength) {
    if (read && subLength != 0) return true;
    tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "sub data read size <= 0");
    return false;
}

// Stores a copy of the name with its lengths in the entry. The name's bytes
// come from `copy`, which fills the zeroed buffer it is given and is false
// only when the read reports an error: a name cut short by the end of the
// stream keeps zero bytes where the stream ended.
template <typename Copy>
bool storeName(_TEV_data_info& entry, uint32_t nameLength, uint32_t subLength, Copy copy) {
    tev::KUnique<char> name(static_cast<char*>(_kmalloc(size_t{nameLength} + 1)));
    if (!name) return false;
    if (!copy(name.get())) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "name read size < 0");
        return false;
    }
    name.get()[nameLength] = '\0';
    entry.name = name.release();
    entry.name_length = nameLength;
    entry.sub_info_length = subLength;
    return true;
}

// Reads the name where the stream stands.
bool readName(TevStream& stream, _TEV_data_info& entry, uint32_t nameLength, uint32_t subLength) {
    return storeName(entry, nameLength, subLength,
                     [&](char* name) { return stream.read(name, nameLength) >= 0; });
}

// Name length, [sub-information length] and name, one field at a time; the
// stream stands on the name-length field.
bool readTagHeaderByFields(TevStream& stream, _TEV_data_info& entry) {
    uint32_t nameLength = 0;
    tev::readWord(stream, &nameLength);  // a short read leaves 0, which is refused
    if (!nameLengthAccepted(nameLength)) return false;
    uint32_t subLength = 0;
    if (entry.has_sub_info != 0 && !subLengthAccepted(tev::readWord(stream, &subLength), subLength)) {
        return false;
    }
    return readName(stream, entry, nameLength, subLength);
}

// Reads the tag header's length fields (name length and, when flagged, the
// sub-information length) in one read from `fieldsAt`, where the stream
// stands, then the name. A read that comes up short is undone and the fields
// are read one by one, so a cut header fails on the same field as before.
bool readTagHeader(TevStream& stream, _TEV_data_info& entry, int64_t fieldsAt) {
    const bool hasSub = entry.has_sub_info != 0;
    const int64_t size = hasSub ? tev::kFieldSize + tev::kSubInfoLengthSize : tev::kFieldSize;
    unsigned char fields[tev::kFieldSize + tev::kSubInfoLengthSize] = {};
    const int64_t got = stream.read(fields, size);
    if (got != size) {
        if (got > 0) stream.seek(fieldsAt, SEEK_SET);
        return readTagHeaderByFields(stream, entry);
    }
    const uint32_t nameLength = tev::loadLittleEndian32(fields);
    if (!nameLengthAccepted(nameLength)) return false;
    const uint32_t subLength = hasSub ? tev::loadLittleEndian32(fields + tev::kFieldSize) : 0;
    if (hasSub && !subLengthAccepted(true, subLength)) return false;
    return readName(stream, entry, nameLength, subLength);
}

// The refusals of _getNameOfData, in the order they are checked.
bool entryNameReadable(const _TEV_info* info, uint32_t index) {
    if (info == nullptr) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "TEV_info NULL");
        return false;
    }
    if (index >= info->meta_count) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "index false");
        return false;
    }
    if (info->Stream == nullptr) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "Stream is null");
        return false;
    }
    if (!info->Stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "Pointer is null");
        return false;
    }
    if (info->stream_size < 1) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "stream_size <= 0");
        return false;
    }
    if (info->meta_data == nullptr || info->meta_data[index] == nullptr) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "meta_data NULL");
        return false;
    }
    if (info->meta_data[index]->start_offset == 0) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "start_offset <= 0");
        return false;
    }
    return true;
}

uint32_t readNameOfEntry(_TEV_info* info, uint32_t index) {
    if (!entryNameReadable(info, index)) return 0;
    _TEV_data_info& entry = *info->meta_data[index];
    forgetName(entry);
    const int64_t fieldsAt = seekToNameLength(*info->Stream, *info, entry);
    if (fieldsAt < 0) return 0;
    return readTagHeader(*info->Stream, entry, fieldsAt) ? 1 : 0;
}

// Bytes of the stream read in one piece, from which the tag headers of
// neighbouring records are decoded: a container of many small records has
// its names read in a few large reads instead of a seek and two reads per
// record. A window spans at most kWindowSize bytes, so a large container is
// read in windows; a record whose header does not lie wholly inside the
// window is read field by field as before.
class HeaderWindow {
public:
    static constexpr int64_t kWindowSize = 128 * 1024;
    // The most a tag header can take from its name-length field on.
    static constexpr int64_t kMaxHeader = tev::kFieldSize + tev::kSubInfoLengthSize + tev::kMaxNameLength;

    // Room for a window from the first entry's header to the last one's, or
    // kWindowSize when they lie further apart.
    bool allocate(const _TEV_info& info) {
        const int64_t first = info.meta_count > 0 ? fieldsPosition(info, 0) : -1;
        const int64_t last = info.meta_count > 0 ? fieldsPosition(info, info.meta_count - 1) : -1;
        const int64_t span = first >= 0 && last >= first ? last - first : 0;
        capacity_ = std::min(span, kWindowSize - kMaxHeader) + kMaxHeader;
        bytes_.reset(new (std::nothrow) unsigned char[capacity_]);
        return bytes_ != nullptr;
    }

    // Reads the window that starts at entry `first`'s name-length field and
    // reaches the headers of as many following entries as fit.
    void load(const _TEV_info& info, uint32_t first) {
        start_ = size_ = 0;
        const int64_t from = fieldsPosition(info, first);
        if (from < 0) return;
        int64_t end = from;
        for (uint32_t i = first; i < info.meta_count; ++i) {
            const int64_t at = fieldsPosition(info, i);
            if (i > first && (at < from || at - from > capacity_ - kMaxHeader)) break;
            end = std::max(end, at + kMaxHeader);
        }
        end = std::min({end, info.stream_size, from + capacity_});
        if (end <= from) return;
        TevStream& stream = *info.Stream;
        if (stream.seek(from, SEEK_SET) != from) return;
        const int64_t got = stream.read(bytes_.get(), end - from);
        start_ = from;
        size_ = std::max<int64_t>(got, 0);
    }

    bool covers(int64_t position, int64_t length) const {
        return position >= start_ && length >= 0 && position - start_ <= size_ - length;
    }
    const unsigned char* at(int64_t position) const { return bytes_.get() + (position - start_); }

    // Where entry `index`'s name-length field lies; -1 when it cannot be
    // computed (the field-by-field reader then reports why).
    static int64_t fieldsPosition(const _TEV_info& info, uint32_t index) {
        const _TEV_data_info* entry = info.meta_data[index];
        uint32_t distance = 0;
        if (entry == nullptr || !tev::checkedAdd(info.header_offset, entry->start_offset, &distance)) {
            return -1;
        }
        const int64_t start = tev::recordStart(info, *entry);
        return start < 0 ? -1 : start + tev::kFieldSize;
    }

private:
    std::unique_ptr<unsigned char[]> bytes_;
    int64_t capacity_ = 0;
    int64_t start_ = 0;
    int64_t size_ = 0;
};

enum class WindowResult { kRead, kFailed, kNotCovered };

// Entry `index`'s name and lengths from the window, with the checks and log
// lines of the field-by-field reader. kNotCovered when the header does not
// lie wholly inside the window; nothing is logged or changed then.
WindowResult nameFromWindow(const HeaderWindow& window, const _TEV_info& info, uint32_t index,
                            int64_t* nameEnd) {
    _TEV_data_info& entry = *info.meta_data[index];
    const int64_t fieldsAt = HeaderWindow::fieldsPosition(info, index);
    const bool hasSub = entry.has_sub_info != 0;
    const int64_t fieldsSize = hasSub ? tev::kFieldSize + tev::kSubInfoLengthSize : tev::kFieldSize;
    if (fieldsAt < 0 || !window.covers(fieldsAt, fieldsSize)) return WindowResult::kNotCovered;
    const uint32_t nameLength = tev::loadLittleEndian32(window.at(fieldsAt));
    const int64_t nameAt = fieldsAt + fieldsSize;
    const bool nameCovered = window.covers(nameAt, nameLength);
    forgetName(entry);
    if (!nameLengthAccepted(nameLength)) return WindowResult::kFailed;
    const uint32_t subLength = hasSub ? tev::loadLittleEndian32(window.at(fieldsAt + tev::kFieldSize)) : 0;
    if (hasSub && !subLengthAccepted(true, subLength)) return WindowResult::kFailed;
    if (!nameCovered) return WindowResult::kNotCovered;
    const bool stored = storeName(entry, nameLength, subLength, [&](char* name) {
        std::memcpy(name, window.at(nameAt), nameLength);
        return true;
    });
    *nameEnd = nameAt + nameLength;
    return stored ? WindowResult::kRead : WindowResult::kFailed;
}

// Every entry's name, through windows where they help. Returns the first
// entry whose name could not be had, or meta_count. The stream is left where
// the field-by-field reader would have left it: behind the last name read.
uint32_t readNamesInWindows(_TEV_info* info, HeaderWindow& window) {
    int64_t nameEnd = -1;
    for (uint32_t i = 0; i < info->meta_count; ++i) {
        if (!entryNameReadable(info, i)) return i;
        WindowResult result = nameFromWindow(window, *info, i, &nameEnd);
        if (result == WindowResult::kNotCovered) {
            window.load(*info, i);
            result = nameFromWindow(window, *info, i, &nameEnd);
        }
        if (result == WindowResult::kFailed) return i;
        if (result == WindowResult::kNotCovered) {
            nameEnd = -1;
            if (readNameOfEntry(info, i) == 0) return i;
        }
    }
    if (nameEnd >= 0) info->Stream->seek(nameEnd, SEEK_SET);
    return info->meta_count;
}

// Every entry's name, each with a seek and its own reads. Returns the first
// entry whose name could not be had, or meta_count.
uint32_t readNamesOneByOne(_TEV_info* info) {
    for (uint32_t i = 0; i < info->meta_count; ++i) {
        if (readNameOfEntry(info, i) == 0) return i;
    }
    return info->meta_count;
}

uint32_t readAllNames(_TEV_info* info) {
    if (info == nullptr) {
        tev::logLine(tev::kLogError, "TEV::getAllNameOfDataList", "TEV_info NULL!");
        return 0;
    }
    if (info->meta_count == 0) {
        tev::logLine(tev::kLogError, "TEV::getAllNameOfDataList", "meta_count <= 0");
        return 0;
    }
    if (info->Stream == nullptr || !info->Stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEV::getAllNameOfDataList", "fp NULL");
        return 0;
    }
    if (info->stream_size < 1) {
        tev::logLine(tev::kLogError, "TEV::getAllNameOfDataList", "stream_size <= 0");
        return 0;
    }
    if (info->meta_data == nullptr) {
        tev::logLine(tev::kLogError, "TEV::getAllNameOfDataList", "meta_data NULL");
        return 0;
    }
    HeaderWindow window;
    const uint32_t failed = window.allocate(*info) ? readNamesInWindows(info, window) : readNamesOneByOne(info);
    if (failed < info->meta_count) {
        tev::logLine(tev::kLogError, "TEV::getAllNameOfDataList", "%dth data has no name!",
                     static_cast<int>(failed));
        return 0;
    }
    return 1;
}

}  // namespace

uint32_t _getNameOfData(_TEV_info* info, uint32_t index) { return readNameOfEntry(info, index); }

uint32_t _getNameOfDataBuffer(_TEV_info* info, uint32_t index) { return readNameOfEntry(info, index); }

uint32_t getAllNameOfDataList(_TEV_info* info) { return readAllNames(info); }

uint32_t getAllNameOfDataListBuffer(_TEV_info* info) { return readAllNames(info); }

namespace {

constexpr uint32_t kNotFound = 0xFFFFFFFFu;

}  // namespace

uint32_t _getIndexOfName(_TEV_info_pack* pack, const char* name) {
    if (name == nullptr) {
        tev::logLine(tev::kLogError, "TEVAPIs::_getIndexOfName", "name null");
        return kNotFound;
    }
    if (pack == nullptr) {
        tev::logLine(tev::kLogError, "TEVAPIs::_getIndexOfName", "TEVdata null");
        return kNotFound;
    }
    if (pack->name_list == nullptr) {
        tev::logLine(tev::kLogError, "TEVCommonAPIs::_getIndexOfName", "TEV_name_list null");
        return kNotFound;
    }
    uint32_t index = kNotFound;
    if (tev::lookUpPackName(*pack, name, &index)) return index;
    for (uint32_t i = 0; i < pack->data_count; ++i) {
        if (pack->name_list[i] == nullptr) {
            tev::logLine(tev::kLogError, "TEVCommonAPIs::_getIndexOfName", "%d TEV_name null",
                         static_cast<int>(i));
            return kNotFound;
        }
        if (std::strcmp(pack->name_list[i], name) == 0) return i;
    }
    return kNotFound;
}
