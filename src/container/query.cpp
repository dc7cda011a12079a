// Questions about a parsed container: where a record's data or
// sub-information lies, its type, the records of a type, and copies of whole
// records. Positions come only from the index's position routines and are
// checked against the stream size once more before anything is allocated or
// read, so a damaged directory can never make a query read outside the stream.
#include <cstdio>
#include <cstring>
#include <limits>

#include "container/index.h"
#include "container/owned.h"
#include "tev/container.h"
#include "tev/query.h"
#include "util/checked.h"
#include "util/log.h"

namespace {

using tev::kLogError;
using tev::logLine;

constexpr unsigned int kNoType = 0xFFFFFFFFu;
constexpr int64_t kMaxPartLength = std::numeric_limits<uint32_t>::max();

// readDataOfIndexOffset or readSubDataInfoOfDataOffset.
using PartLocator = uint32_t (*)(_TEV_info*, uint32_t, int64_t*, int64_t*);

_TEV_data_info* entryAt(const _TEV_info* info, uint32_t index) {
    if (info == nullptr || info->meta_data == nullptr || index >= info->meta_count) return nullptr;
    return info->meta_data[index];
}

// The position and length of one part of record `index`: true only for a
// non-empty part that lies wholly inside the stream as it was parsed.
bool locatePart(const _TEV_info_pack* pack, uint32_t index, PartLocator locate, TevOffsetInfo* part) {
    if (pack == nullptr || pack->info == nullptr || index >= pack->data_count) return false;
    int64_t position = 0;
    int64_t length = 0;
    if (locate(pack->info, index, &position, &length) == LUMET_TEV_FALSE) return false;
    if (length < 1 || position < 0) return false;
    if (!tev::rangeFits(position, length, pack->info->stream_size)) return false;
    *part = TevOffsetInfo{position, length};
    return true;
}

TevOffsetInfo* offsetByIndex(_TEV_info_pack* pack, uint32_t index, PartLocator locate) {
    TevOffsetInfo part{};
    if (!locatePart(pack, index, locate, &part)) return nullptr;
    auto* result = static_cast<TevOffsetInfo*>(_kmalloc(sizeof(TevOffsetInfo)));
    if (result != nullptr) *result = part;
    return result;
}

TevOffsetInfo* offsetByName(_TEV_info_pack* pack, const char* name, PartLocator locate) {
    if (pack == nullptr || name == nullptr) return nullptr;
    return offsetByIndex(pack, _getIndexOfName(pack, name), locate);
}

// A new buffer with the bytes of `part`. The read itself is not required to
// be complete: a short read leaves zero bytes at the end of the buffer.
unsigned char* readPart(TevStream& stream, const TevOffsetInfo& part) {
    if (part.length > kMaxPartLength) return nullptr;
    tev::KUnique<unsigned char> bytes(static_cast<unsigned char*>(_kmalloc(static_cast<size_t>(part.length))));
    if (!bytes || stream.seek(part.position, SEEK_SET) != part.position) return nullptr;
    stream.read(bytes.get(), part.length);
    return bytes.release();
}

// A NUL-terminated copy of an entry's name (empty when it was never read).
char* copyName(const _TEV_data_info& entry) {
    auto* copy = static_cast<char*>(_kmalloc(size_t{entry.name_length} + 1));
    if (copy != nullptr && entry.name != nullptr) std::memcpy(copy, entry.name, entry.name_length);
    return copy;
}

void freeNameList(char** names, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) _kfree(names[i]);
    _kfree(names);
}

uint32_t countOfType(const _TEV_info* info, int type) {
    uint32_t matches = 0;
    for (uint32_t i = 0; i < info->meta_count; ++i) {
        const _TEV_data_info* entry = entryAt(info, i);
        if (entry != nullptr && static_cast<int>(_getDataType(entry->meta_type)) == type) ++matches;
    }
    return matches;
}

}  // namespace

TevOffsetInfo* getTEVInStreamByName(_TEV_info_pack* pack, const char* name) {
    return offsetByName(pack, name, readDataOfIndexOffset);
}

TevOffsetInfo* getTEVInFileByName(_TEV_info_pack* pack, const char* name) {
    return getTEVInStreamByName(pack, name);
}

TevOffsetInfo* getTEVInStreamByIndex(_TEV_info_pack* pack, unsigned int index) {
    return offsetByIndex(pack, index, readDataOfIndexOffset);
}

TevOffsetInfo* getTEVInFileByIndex(_TEV_info_pack* pack, unsigned int index) {
    return getTEVInStreamByIndex(pack, index);
}

TevOffsetInfo* getTEVSubInfoInStreamByName(_TEV_info_pack* pack, const char* name) {
    return offsetByName(pack, name, readSubDataInfoOfDataOffset);
}

TevOffsetInfo* getTEVSubInfoInFileByName(_TEV_info_pack* pack, const char* name) {
    return getTEVSubInfoInStreamByName(pack, name);
}

TevOffsetInfo* getTEVSubInfoInStreamByIndex(_TEV_info_pack* pack, unsigned int index) {
    return offsetByIndex(pack, index, readSubDataInfoOfDataOffset);
}

TevOffsetInfo* getTEVSubInfoInFileByIndex(_TEV_info_pack* pack, unsigned int index) {
    return getTEVSubInfoInStreamByIndex(pack, index);
}

void DestroyOffsetInfo(TevOffsetInfo* offset) { _kfree(offset); }

unsigned int getTEVDataType(_TEV_info_pack* pack, const char* name) {
    if (pack == nullptr) return kNoType;
    const _TEV_data_info* entry = entryAt(pack->info, _getIndexOfName(pack, name));
    return entry != nullptr ? _getDataType(entry->meta_type) : kNoType;
}

char** getNameListByDataType(_TEV_info_pack* pack, int type, unsigned int* count) {
    if (pack == nullptr) {
        logLine(kLogError, "getNameListByDataType", "TEV_data null!!!\n");
        return nullptr;
    }
    const _TEV_info* info = pack->info;
    if (info == nullptr || count == nullptr || pack->data_count == 0) return nullptr;
    const uint32_t matches = countOfType(info, type);
    if (matches == 0) return nullptr;
    auto* names = static_cast<char**>(_kcalloc(matches, sizeof(char*)));
    if (names == nullptr) return nullptr;
    uint32_t filled = 0;
    for (uint32_t i = 0; i < info->meta_count && filled < matches; ++i) {
        const _TEV_data_info* entry = entryAt(info, i);
        if (entry == nullptr || static_cast<int>(_getDataType(entry->meta_type)) != type) continue;
        names[filled] = copyName(*entry);
        if (names[filled] == nullptr) {
            freeNameList(names, filled);
            return nullptr;
        }
        ++filled;
    }
    *count = matches;
    return names;
}

_TEV_data_unit* extractTEVDataFromFilebyName(_TEV_info_pack* pack, const char* name, unsigned int name_len) {
    if (name == nullptr || name_len == 0) return nullptr;
    const uint32_t index = _getIndexOfName(pack, name);
    if (pack == nullptr || index >= pack->data_count) return nullptr;
    return extractTEVDataFromFilebyIndex(pack, index);
}

_TEV_data_unit* extractTEVDataFromFilebyIndex(_TEV_info_pack* pack, unsigned int index) {
    if (pack == nullptr || pack->valid != LUMET_TEV_TRUE) return nullptr;
    TevOffsetInfo subPart{};
    const bool hasSub = locatePart(pack, index, readSubDataInfoOfDataOffset, &subPart);
    TevOffsetInfo dataPart{};
    if (!locatePart(pack, index, readDataOfIndexOffset, &dataPart)) return nullptr;
    const _TEV_data_info* entry = entryAt(pack->info, index);
    if (entry == nullptr) return nullptr;

    TevStream* stream = pack->info->Stream;
    if (stream == nullptr) {
        logLine(kLogError, "TEVDecoderAPIs::extractTEVDataFromFilebyIndex", "Stream is null");
        return nullptr;
    }
    if (!stream->CheckError()) {
        logLine(kLogError, "TEVDecoderAPIs::extractTEVDataFromFilebyIndex", "Pointer is null");
        return nullptr;
    }
    tev::KUnique<unsigned char> sub(hasSub ? readPart(*stream, subPart) : nullptr);
    if (hasSub && !sub) return nullptr;
    tev::KUnique<unsigned char> data(readPart(*stream, dataPart));
    auto* unit = static_cast<_TEV_data_unit*>(_kmalloc(sizeof(_TEV_data_unit)));
    if (!data || unit == nullptr) {
        _kfree(unit);
        return nullptr;
    }
    unit->sub_info_length = hasSub ? static_cast<uint32_t>(subPart.length) : 0;
    unit->sub_info = sub.release();
    unit->data_length = static_cast<uint32_t>(dataPart.length);
    unit->data = data.release();
    unit->data_type = _getDataType(entry->meta_type);
    return unit;
}

char* GetNameInList(_TEV_info_pack* pack, int count, int index) {
    if (pack == nullptr) {
        logLine(kLogError, "GetNameInList", "List is null");
        return nullptr;
    }
    if (count == 0) {
        logLine(kLogError, "GetNameInList", "Count is 0");
        return nullptr;
    }
    if (index < 0) {
        logLine(kLogError, "GetNameInList", "Index < 0");
        return nullptr;
    }
    if (index >= count) {
        logLine(kLogError, "GetNameInList", "Index < Count");
        return nullptr;
    }
    // The count is the caller's; the list itself only holds the pack's records.
    if (pack->name_list == nullptr || static_cast<uint32_t>(index) >= pack->data_count) return nullptr;
    return pack->name_list[index];
}

unsigned int GetNameType(_TEV_info_pack* pack) {
    if (pack == nullptr) {
        logLine(kLogError, "GetNameType", "List is null");
        return 0;
    }
    return pack->valid;
}

unsigned int GetTevCount(_TEV_info_pack* pack) {
    if (pack == nullptr) {
        logLine(kLogError, "GetTevCount", "List is null");
        return 0;
    }
    return pack->data_count;
}
