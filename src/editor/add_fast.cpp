// Adding into the "Invalid_Data" filler record that a container may keep in
// front of its records, so that the file does not grow by the record.
#include "container/format.h"
#include "editor/add_internal.h"
#include "tev/container.h"
#include "tev/editor.h"
#include "util/log.h"

namespace {

constexpr const char* kTag = "TEV::FastAddTEVData";
constexpr uint32_t kSplitFlag = 1;

// How the new record uses the filler slot.
enum class FastPath { kExactFit, kSplit, kAppend };

// Length of the filler record that leads the container, or 0 when the slot
// is not to be used or the first record is not a filler (its bytes are live
// data that must not be overwritten).
uint32_t slotSize(const _TEV_info& info, uint32_t reuse) {
    if (reuse == 0 || info.meta_count == 0 || info.meta_data == nullptr ||
        info.meta_data[0] == nullptr) {
        return 0;
    }
    const _TEV_data_info& first = *info.meta_data[0];
    return _getDataType(first.meta_type) == TEV_INVALID_DATA ? first.length : 0;
}

FastPath choosePath(uint32_t slot, uint32_t length) {
    if (slot == length) return FastPath::kExactFit;
    // A filler left in front of the record needs room for its 20-byte
    // header and at least one byte of its own.
    if (slot > length && slot - length > tev::kFillerHeaderSize) return FastPath::kSplit;
    return FastPath::kAppend;
}

// The absolute position of the filler slot, which must lie between the
// start of the stream and the directory.
bool locateSlot(const _TEV_info& info, int64_t directory, int64_t* start) {
    const _TEV_data_info& first = *info.meta_data[0];
    if (first.length > first.start_offset || first.start_offset > directory) return false;
    *start = directory - first.start_offset;
    return true;
}

// True when the directory ends the stream; a trailer behind it would be
// broken by a directory that grows in place.
bool directoryEndsStream(const _TEV_info& info) {
    const uint64_t directorySize =
        tev::kDirectoryFixedSize + uint64_t{tev::kDirectoryEntrySize} * info.meta_count;
    return directorySize == info.header_offset;
}

int64_t writeRecord(TevStream* stream, const tev::RecordArgs& record) {
    return writeTEVData(stream, record.type, record.hasSubFlag(), record.name, record.nameLength,
                        record.sub, record.storedSubLength(), record.data, record.dataLength);
}

bool seekOrLog(TevStream& stream, int64_t position) {
    if (stream.seek(position, SEEK_SET) >= 0) return true;
    tev::logLine(tev::kLogError, kTag, "File Search Error");
    return false;
}

// The record replaces the filler record byte for byte.
uint32_t fillSlot(_TEV_info& info, const tev::RecordArgs& record, int64_t slot, int64_t directory) {
    TevStream& stream = *info.Stream;
    if (!seekOrLog(stream, slot)) return LUMET_TEV_FALSE;
    writeRecord(&stream, record);
    if (!seekOrLog(stream, directory)) return LUMET_TEV_FALSE;
    writeDummyTEVHeader(&info, record.type, record.hasSubFlag());
    return LUMET_TEV_TRUE;
}

// A smaller filler record stays in front; the record ends where the old
// filler record ended.
uint32_t splitSlot(_TEV_info& info, const tev::RecordArgs& record, uint32_t length, int64_t slot,
                   int64_t directory) {
    TevStream& stream = *info.Stream;
    const uint32_t firstOffset = info.meta_data[0]->start_offset;
    const uint32_t leftover = info.meta_data[0]->length - length;
    if (!seekOrLog(stream, slot)) return LUMET_TEV_FALSE;
    stream.writeDummyTEVData(leftover);
    writeRecord(&stream, record);
    if (!seekOrLog(stream, directory)) return LUMET_TEV_FALSE;
    writeTEVHeader(&info, info.meta_count + 1, kSplitFlag, firstOffset, leftover,
                   firstOffset - leftover, length, record.type, record.hasSubFlag());
    return LUMET_TEV_TRUE;
}

// An ordinary append over the old directory.
uint32_t appendRecord(_TEV_info& info, const tev::RecordArgs& record, uint32_t length,
                      int64_t directory) {
    TevStream& stream = *info.Stream;
    if (!tev::shiftOffsets(info, length)) {
        tev::logLine(tev::kLogError, kTag, "Too big TEV data to add in the file");
        return LUMET_TEV_FALSE;
    }
    if (!seekOrLog(stream, directory)) return LUMET_TEV_FALSE;
    writeRecord(&stream, record);
    tev::writeAppendedDirectory(stream, info, tev::makeEntry(record.metaType(), length, length));
    return LUMET_TEV_TRUE;
}

// Checks the index's stream and finds "TEVH"; its position, or -1.
int64_t locateDirectory(_TEV_info& info) {
    if (info.Stream == nullptr) {
        tev::logLine(tev::kLogError, kTag, "Stream is null");
        return -1;
    }
    if (!info.Stream->CheckError()) {
        tev::logLine(tev::kLogError, kTag, "CheckError is false");
        return -1;
    }
    // A directory that cannot be reached is refused without a word.
    const int64_t directory = tev::seekToDirectory(*info.Stream, info);
    if (directory < 0) return -1;
    if (!directoryEndsStream(info)) {
        tev::logLine(tev::kLogError, kTag, "TEV data is followed by other data");
        return -1;
    }
    return directory;
}

}  // namespace

uint32_t FastAddTEVData(_TEV_info* info, const char* name, uint32_t name_len, uint32_t type,
                        const unsigned char* sub, uint32_t sub_len, const unsigned char* data,
                        uint32_t data_len, uint32_t reuse) {
    const tev::RecordArgs record{name, name_len, type, sub, sub_len, data, data_len};
    if (tev::lacksUserDataSubInfo(type, record.hasSub())) {
        tev::logLine(tev::kLogError, "TEV::AddTEVDataInFirstTime",
                     "if Data type is UserData then must use DataSubInfo");
        return LUMET_TEV_FALSE;
    }
    if (!tev::isValidName(name, name_len) || info == nullptr || data == nullptr || data_len == 0) {
        return LUMET_TEV_FALSE;
    }
    const int64_t directory = locateDirectory(*info);
    if (directory < 0) return LUMET_TEV_FALSE;
    uint32_t length = 0;
    if (!tev::computeRecordLength(record, &length)) {
        tev::logLine(tev::kLogError, kTag, "Too big TEV data to add in the file");
        return LUMET_TEV_FALSE;
    }
    const FastPath path = choosePath(slotSize(*info, reuse), length);
    if (path == FastPath::kAppend) return appendRecord(*info, record, length, directory);
    int64_t slot = 0;
    if (!locateSlot(*info, directory, &slot)) {
        tev::logLine(tev::kLogError, kTag, "File Search Error");
        return LUMET_TEV_FALSE;
    }
    if (path == FastPath::kExactFit) return fillSlot(*info, record, slot, directory);
    return splitSlot(*info, record, length, slot, directory);
}

int64_t writeDummyTEVHeader(_TEV_info* info, uint32_t type, uint32_t has_sub) {
    if (info == nullptr || info->Stream == nullptr || !info->Stream->CheckError()) return 0;
    std::vector<_TEV_data_info*> entries;
    if (!tev::collectEntries(*info, &entries) || entries.empty()) return 0;
    const uint32_t metaType = _setMetaType(static_cast<uint16_t>(type), has_sub);
    entries[0]->meta_type = metaType;
    entries[0]->has_sub_info = (metaType & tev::kSubInfoFlag) != 0 ? 1u : 0u;
    return tev::writeDirectory(*info->Stream, info->meta_count, entries).lastResult;
}

int64_t writeTEVHeader(_TEV_info* info, uint32_t count, uint32_t split, uint32_t filler_offset,
                       uint32_t filler_length, uint32_t record_offset, uint32_t record_length, uint32_t type,
                       uint32_t has_sub) {
    if (info == nullptr || info->Stream == nullptr || !info->Stream->CheckError()) return 0;
    std::vector<_TEV_data_info*> present;
    if (!tev::collectEntries(*info, &present)) return 0;
    if (split != 0 && present.empty()) return 0;
    // The filler entry carries the new record's sub-information bit, although
    // the filler record's own tag header has none.
    _TEV_data_info filler = tev::makeEntry(_setMetaType(TEV_INVALID_DATA, has_sub), filler_offset, filler_length);
    _TEV_data_info added = tev::makeEntry(_setMetaType(static_cast<uint16_t>(type), has_sub), record_offset, record_length);
    std::vector<_TEV_data_info*> entries;
    if (split != 0) {
        entries.push_back(&filler);
        entries.push_back(&added);
        entries.insert(entries.end(), present.begin() + 1, present.end());
    } else {
        entries = present;
        entries.push_back(&added);
    }
    return tev::writeDirectory(*info->Stream, count, entries).lastResult;
}
