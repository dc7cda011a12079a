// Record names: read on demand from each record's tag header into the index,
// and looked up by name in a pack's name list.
#include <cstdint>
#include <cstring>

#include "container/format.h"
#include "container/index.h"
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
    const int64_t at = target < 0 ? -1 : stream.seek(target, tev::kSeekSet);
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

// Reads the name that starts at `nameAt`, where the stream stands, and
// stores it with its lengths in the entry.
bool readName(TevStream& stream, const _TEV_info& info, _TEV_data_info& entry, uint32_t nameLength,
              uint32_t subLength, int64_t nameAt) {
    tev::KUnique<char> name(static_cast<char*>(_kmalloc(size_t{nameLength} + 1)));
    if (!name) return false;
    if (!tev::rangeFits(nameAt, nameLength, info.stream_size) ||
        !tev::readFully(stream, name.get(), nameLength)) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "name read size < 0");
        return false;
    }
    name.get()[nameLength] = '\0';
    entry.name = name.release();
    entry.name_length = nameLength;
    entry.sub_info_length = subLength;
    return true;
}

// Name length, [sub-information length] and name, one field at a time; the
// stream stands on the name-length field.
bool readTagHeaderByFields(TevStream& stream, const _TEV_info& info, _TEV_data_info& entry) {
    uint32_t nameLength = 0;
    tev::readWord(stream, &nameLength);  // a short read leaves 0, which is refused
    if (!nameLengthAccepted(nameLength)) return false;
    uint32_t subLength = 0;
    if (entry.has_sub_info != 0 && !subLengthAccepted(tev::readWord(stream, &subLength), subLength)) {
        return false;
    }
    return readName(stream, info, entry, nameLength, subLength, stream.tell());
}

// Reads the tag header's length fields (name length and, when flagged, the
// sub-information length) in one read from `fieldsAt`, where the stream
// stands, then the name. A read that comes up short is undone and the fields
// are read one by one, so a cut header fails on the same field as before.
bool readTagHeader(TevStream& stream, const _TEV_info& info, _TEV_data_info& entry, int64_t fieldsAt) {
    const bool hasSub = entry.has_sub_info != 0;
    const int64_t size = hasSub ? tev::kFieldSize + tev::kSubInfoLengthSize : tev::kFieldSize;
    unsigned char fields[tev::kFieldSize + tev::kSubInfoLengthSize] = {};
    const int64_t got = stream.read(fields, size);
    if (got != size) {
        if (got > 0) stream.seek(fieldsAt, tev::kSeekSet);
        return readTagHeaderByFields(stream, info, entry);
    }
    const uint32_t nameLength = tev::loadLittleEndian32(fields);
    if (!nameLengthAccepted(nameLength)) return false;
    const uint32_t subLength = hasSub ? tev::loadLittleEndian32(fields + tev::kFieldSize) : 0;
    if (hasSub && !subLengthAccepted(true, subLength)) return false;
    return readName(stream, info, entry, nameLength, subLength, fieldsAt + size);
}

uint32_t readNameOfEntry(_TEV_info* info, uint32_t index) {
    if (info == nullptr) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "TEV_info NULL");
        return 0;
    }
    if (index >= info->meta_count) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "index false");
        return 0;
    }
    if (info->Stream == nullptr) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "Stream is null");
        return 0;
    }
    if (!info->Stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "Pointer is null");
        return 0;
    }
    if (info->stream_size < 1) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "stream_size <= 0");
        return 0;
    }
    if (info->meta_data == nullptr || info->meta_data[index] == nullptr) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "meta_data NULL");
        return 0;
    }
    _TEV_data_info& entry = *info->meta_data[index];
    if (entry.start_offset == 0) {
        tev::logLine(tev::kLogError, "TEVInternal::_getNameOfData", "start_offset <= 0");
        return 0;
    }
    forgetName(entry);
    const int64_t fieldsAt = seekToNameLength(*info->Stream, *info, entry);
    if (fieldsAt < 0) return 0;
    return readTagHeader(*info->Stream, *info, entry, fieldsAt) ? 1 : 0;
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
    for (uint32_t i = 0; i < info->meta_count; ++i) {
        if (readNameOfEntry(info, i) == 0) {
            tev::logLine(tev::kLogError, "TEV::getAllNameOfDataList", "%dth data has no name!",
                         static_cast<int>(i));
            return 0;
        }
    }
    return 1;
}

}  // namespace

uint32_t _getNameOfData(_TEV_info* info, uint32_t index) { return readNameOfEntry(info, index); }

uint32_t _getNameOfDataBuffer(_TEV_info* info, uint32_t index) { return readNameOfEntry(info, index); }

uint32_t getAllNameOfDataList(_TEV_info* info) { return readAllNames(info); }

uint32_t getAllNameOfDataListBuffer(_TEV_info* info) { return readAllNames(info); }

uint32_t _getIndexOfName(_TEV_info_pack* pack, const char* name) {
    constexpr uint32_t kNotFound = 0xFFFFFFFFu;
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
