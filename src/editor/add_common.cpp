#include "editor/add_internal.h"

#include "container/directory_image.h"
#include "container/format.h"
#include "tev/container.h"
#include "util/checked.h"

namespace tev {
uint32_t RecordArgs::metaType() const {
    return _setMetaType(static_cast<uint16_t>(type), hasSubFlag());
}

bool lacksUserDataSubInfo(uint32_t type, bool hasSub) {
    // The directory keeps the low 16 bits of the type; test what is stored.
    return static_cast<uint16_t>(type) == TEV_USER_DEFINED_DATA && !hasSub;
}

bool isValidName(const char* name, uint32_t length) {
    return name != nullptr && length >= kMinNameLength && length <= kMaxNameLength;
}

bool computeRecordLength(const RecordArgs& record, uint32_t* length) {
    uint32_t sum = kTagHeaderSize;
    if (!checkedAdd(sum, record.nameLength, &sum)) return false;
    if (!checkedAdd(sum, record.dataLength, &sum)) return false;
    if (record.hasSub()) {
        if (!checkedAdd(sum, kSubInfoLengthSize, &sum)) return false;
        if (!checkedAdd(sum, record.subLength, &sum)) return false;
    }
    *length = sum;
    return true;
}

_TEV_data_info makeEntry(uint32_t metaType, uint32_t startOffset, uint32_t length) {
    _TEV_data_info entry{};
    entry.start_offset = startOffset;
    entry.length = length;
    entry.meta_type = metaType;
    entry.has_sub_info = (metaType & kSubInfoFlag) != 0 ? 1u : 0u;
    return entry;
}

DirectoryWrite writeAppendedDirectory(TevStream& stream, const _TEV_info& info,
                                      _TEV_data_info added) {
    std::vector<_TEV_data_info*> entries;
    if (!collectEntries(info, &entries)) return {DirectoryStep::kEntry, 0};
    entries.push_back(&added);
    return writeDirectory(stream, static_cast<uint32_t>(entries.size()), entries);
}

int64_t seekToDirectory(TevStream& stream, const _TEV_info& info) {
    const int64_t headerOffset = info.header_offset;
    const int64_t position = stream.seek(-headerOffset, SEEK_END);
    if (position < 0) return -1;
    if (info.stream_size < headerOffset || position != info.stream_size - headerOffset) return -1;
    return position;
}

bool shiftOffsets(_TEV_info& info, uint32_t by) {
    std::vector<_TEV_data_info*> entries;
    if (!collectEntries(info, &entries)) return false;
    uint32_t shifted = 0;
    for (const _TEV_data_info* entry : entries) {
        if (!checkedAdd(entry->start_offset, by, &shifted)) return false;
    }
    for (_TEV_data_info* entry : entries) entry->start_offset += by;
    return true;
}

void dropStaleTail(TevStream& stream, int64_t oldEnd) {
    const int64_t end = stream.tell();
    if (end > 0 && end < oldEnd) stream.truncate(end);
}

bool placeOldDirectoryBehind(TevStream& stream, const _TEV_info& info, int64_t newEnd, uint32_t further) {
    const bool directoryEndsStream = info.header_offset == _calculateTEV_KTHO(info.meta_count) + kTailFieldsSize;
    std::vector<_TEV_data_info*> entries;
    DirectoryImage image;
    if (stream.GetStreamType() == TEV_STREAM_BUFFER || !directoryEndsStream || !collectEntries(info, &entries) ||
        !image.reserve(info.meta_count)) {
        return false;
    }
    image.begin(info.meta_count);
    for (const _TEV_data_info* entry : entries) {
        _TEV_data_info moved = *entry;
        if (!checkedAdd(entry->start_offset, further, &moved.start_offset)) return false;
        image.addEntry(moved);
    }
    image.end(info.meta_count);
    return image.complete() && stream.seek(newEnd, SEEK_SET) == newEnd && writeDirectoryImage(stream, image);
}

void firstSoundOf(const _voxa_info_struct& voxa, uint32_t* start, uint32_t* end) {
    const bool listsSound = voxa.sound_count > 0 && voxa.sound_table != nullptr;
    *start = listsSound ? voxa.sound_table[0] : 0;
    *end = listsSound ? voxa.sound_table[1] : 0;
}

}  // namespace tev
