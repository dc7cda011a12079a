// Locating the directory (ParseTEV) and reading its entries into the index
// (getTEVList, _addData). Every value read from the stream is checked
// against the stream's size before it is used.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <new>

#include "container/format.h"
#include "container/index.h"
#include "tev/container.h"
#include "tev/detect.h"
#include "tev/stream.h"
#include "util/checked.h"
#include "util/log.h"

namespace {

// Distance from the end of the stream back to the KTHO field: 8 when the
// directory ends the stream; with a Voxa block behind it, taken from the
// block's length word 10 bytes before the end.
bool findTailDistance(TevStream& stream, uint32_t signature, int64_t* distance) {
    *distance = tev::kTailFieldsSize;
    if (signature != SIGNATURE_VOXA && signature != SIGNATURE_VOXA_TEV) return true;
    const int64_t at = stream.seek(-int64_t{tev::kVoxaLengthFieldDistance}, SEEK_END);
    if (at < 0) {
        tev::logLine(tev::kLogError, "TEV::ParseTEV_FP", "File Search Error %lld",
                     static_cast<long long>(at));
        return false;
    }
    uint32_t voxaLength = 0;
    if (!tev::readWord(stream, &voxaLength)) return false;
    *distance = int64_t{voxaLength} + tev::kVoxaTailDistanceBias;
    return true;
}

// Reads KTHO and checks the closing tag behind it.
bool readKtho(TevStream& stream, int64_t size, int64_t distance, uint32_t* ktho) {
    if (distance > size || stream.seek(-distance, SEEK_END) < 0) {
        tev::logLine(tev::kLogError, "TEV::ParseTEV", "Header Search Error");
        return false;
    }
    return tev::readWord(stream, ktho) && tev::readTag(stream, tev::kTagTail);
}

// Positions the stream on "TEVH", checks it and reads the version behind it.
// A directory that starts at the stream's first byte is refused.
bool readHead(TevStream& stream, int64_t size, int64_t headDistance, uint32_t* version) {
    const int64_t at = headDistance > size ? -1 : stream.seek(-headDistance, SEEK_END);
    if (at < 1) {
        tev::logLine(tev::kLogError, "TEV::ParseTEV", "File Search Error");
        return false;
    }
    return tev::readTag(stream, tev::kTagHead) && tev::readWord(stream, version);
}

}  // namespace

_TEV_info* ParseTEV(TevStream* stream, uint32_t signature) {
    if (stream == nullptr || !stream->CheckError()) return nullptr;
    int64_t distance = 0;
    if (!findTailDistance(*stream, signature, &distance)) return nullptr;
    const int64_t size = stream->seek(0, SEEK_END);
    if (size < 0) {
        tev::logLine(tev::kLogError, "TEV::ParseTEV", "File Search Error");
        return nullptr;
    }
    uint32_t ktho = 0;
    if (!readKtho(*stream, size, distance, &ktho)) return nullptr;
    if (ktho < tev::kMinKtho || ktho > size) {
        tev::logLine(tev::kLogError, "TEV::ParseTEV", "file has no sound OFFS");
        return nullptr;
    }
    const int64_t headDistance = distance + ktho;
    uint32_t version = 0;
    if (!readHead(*stream, size, headDistance, &version)) return nullptr;
    if (version >= tev::kFirstUnreadableVersion) {
        tev::logLine(
            tev::kLogError, "TEV::ParseTEV",
            "the source file has TEV data but current TEV version is too old to parse the source file");
        return nullptr;
    }
    // header_offset is a 32-bit field; only a stream beyond 4 GiB could need more.
    if (headDistance > std::numeric_limits<uint32_t>::max()) return nullptr;
    auto* info = static_cast<_TEV_info*>(_kmalloc(sizeof(_TEV_info)));
    if (info == nullptr) return nullptr;
    info->valid = 1;
    info->stream_size = size;
    info->Stream = stream;
    info->header_offset = static_cast<uint32_t>(headDistance);
    info->version = version;
    return info;
}

namespace {

// The entries must fit the stream as the version lays them out; so a count
// is refused before anything is allocated for it. (A count larger than the
// directory holds passes when the stream is long enough: its extra entries
// are read from whatever follows, and the first unusable one ends the list.)
bool directoryFits(const _TEV_info& info, uint32_t count) {
    const uint64_t entrySize =
        tev::isWideVersion(info.version) ? tev::kWideDirectoryEntrySize : tev::kDirectoryEntrySize;
    const uint64_t claimed = uint64_t{info.header_offset} + entrySize * count;
    return info.stream_size >= 0 && uint64_t(info.stream_size) >= claimed;
}

bool allocateEntries(_TEV_info* info, uint32_t count) {
    if (info->meta_data != nullptr) _destroyTEVDataList(info);
    info->meta_count = count;
    info->fill_cursor = 0;
    info->meta_data = static_cast<_TEV_data_info**>(_kcalloc(count, sizeof(_TEV_data_info*)));
    if (info->meta_data == nullptr) {
        tev::logLine(tev::kLogError, "TEV::getTEVList", "TEV_info->meta_data is NULL!!");
        return false;
    }
    return true;
}

// Directory entries are read this many at a time (96 KiB): a directory of up
// to this many entries costs one read, and the buffer stays small whatever
// count a damaged directory claims.
constexpr uint32_t kEntriesPerRead = 8192;

bool addEntry(_TEV_info* info, uint32_t metaType, uint32_t startOffset, uint32_t length) {
    if (_addData(info, startOffset, length, metaType) != 0) return true;
    tev::logLine(tev::kLogError, "TEV::getTEVList", "_addData return is LUMET_TEV_FALSE!!");
    return false;
}

// The next `count` entries, field by field: meta type, start offset, length.
// A field the stream cannot deliver keeps what the read stored (0 when it
// stored nothing); the entry is then judged by _addData like any other.
bool readEntriesByFields(TevStream& stream, _TEV_info* info, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i, ++info->fill_cursor) {
        uint32_t metaType = 0;
        uint32_t startOffset = 0;
        uint32_t length = 0;
        stream.readInt32(&metaType);
        stream.readInt32(&startOffset);
        stream.readInt32(&length);
        if (!addEntry(info, metaType, startOffset, length)) return false;
    }
    return true;
}

// The next `count` entries from one read into `bytes`. A read that comes up
// short (a stream cut inside the directory, or a memory buffer refusing the
// whole request) is undone and the entries are read field by field, so the
// failure comes at the same entry, after the same log lines, as it would
// without the batch.
bool readEntryBatch(TevStream& stream, _TEV_info* info, uint32_t count, unsigned char* bytes) {
    const int64_t size = int64_t{count} * tev::kDirectoryEntrySize;
    const int64_t got = stream.read(bytes, size);
    if (got != size) {
        if (got > 0) stream.seek(-got, SEEK_CUR);
        return readEntriesByFields(stream, info, count);
    }
    for (uint32_t i = 0; i < count; ++i, ++info->fill_cursor) {
        const unsigned char* entry = bytes + size_t{i} * tev::kDirectoryEntrySize;
        if (!addEntry(info, tev::loadLittleEndian32(entry), tev::loadLittleEndian32(entry + tev::kFieldSize),
                      tev::loadLittleEndian32(entry + 2 * tev::kFieldSize))) {
            return false;
        }
    }
    return true;
}

// Reads the entries in batches; without memory for a batch, field by field.
bool readEntries(_TEV_info* info) {
    TevStream& stream = *info->Stream;
    const uint32_t perRead = std::min(info->meta_count, kEntriesPerRead);
    std::unique_ptr<unsigned char[]> bytes(
        new (std::nothrow) unsigned char[size_t{perRead} * tev::kDirectoryEntrySize]);
    for (info->fill_cursor = 0; info->fill_cursor < info->meta_count;) {
        const uint32_t count = std::min(info->meta_count - info->fill_cursor, perRead);
        const bool read = bytes ? readEntryBatch(stream, info, count, bytes.get())
                                : readEntriesByFields(stream, info, count);
        if (!read) return false;
    }
    return true;
}

// The appended region starts at the first record, or earlier by its "tevd"
// box header and, from version 110 on, by the field in front of the record.
bool locateDataStart(_TEV_info* info) {
    const bool boxed = checkSignatureMP4Tag(info) == 1;
    int64_t shift = boxed ? tev::kBoxHeaderSize : 0;
    if (tev::isWideVersion(info->version)) shift += tev::kWideDataStartShift;
    const int64_t first = tev::recordStart(*info, *info->meta_data[0]);
    if (first < shift) return false;
    info->data_start_position = first - shift;
    return true;
}

}  // namespace

uint32_t getTEVList(_TEV_info* info) {
    if (info == nullptr) {
        tev::logLine(tev::kLogError, "TEV::getTEVList", "Wrong TEV_info");
        return 0;
    }
    if (info->valid != 1) {
        tev::logLine(tev::kLogError, "TEV::getTEVList", "TEV validation failed");
        return 0;
    }
    if (info->Stream == nullptr || !info->Stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEV::getTEVList", "File doesn't exist");
        return 0;
    }
    uint32_t count = 0;
    const bool counted = tev::readWord(*info->Stream, &count);
    if (!counted || count == 0) {
        tev::logLine(tev::kLogError, "TEV::getTEVList", "there is no data");
        return 0;
    }
    if (!directoryFits(*info, count)) {
        tev::logLine(tev::kLogError, "TEV::getTEVList", "header is bigger then file -> that's not true!!");
        return 0;
    }
    if (!allocateEntries(info, count)) return 0;
    if (!readEntries(info) || !locateDataStart(info)) {
        _destroyTEVDataList(info);
        info->fill_cursor = 0;
        return 0;
    }
    info->fill_cursor = 0;
    return 1;
}

uint32_t _addData(_TEV_info* info, uint32_t start_offset, uint32_t length, uint32_t meta_type) {
    if (info == nullptr) {
        tev::logLine(tev::kLogError, "TEVInternal::_addData", "_addData  TEV_info == LUMET_TEV_NULL !!");
        return 0;
    }
    if (info->Stream == nullptr) {
        tev::logLine(tev::kLogError, "TEVInternal::_addData", "Stream is null");
        return 0;
    }
    if (!info->Stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEVInternal::_addData", "Pointer is null");
        return 0;
    }
    if (info->stream_size < 1) {
        tev::logLine(tev::kLogError, "TEVInternal::_addData", "_addData  TEV_info->stream_size <= 0 !!");
        return 0;
    }
    if (start_offset == 0) {
        tev::logLine(tev::kLogError, "TEVInternal::_addData", "_addData  start_offset <= 0 !!");
        return 0;
    }
    if (info->meta_data == nullptr || info->fill_cursor >= info->meta_count) return 0;
    auto* entry = static_cast<_TEV_data_info*>(_kmalloc(sizeof(_TEV_data_info)));
    if (entry == nullptr) return 0;
    entry->start_offset = start_offset;
    entry->length = length;
    entry->meta_type = meta_type;
    entry->has_sub_info = (meta_type & tev::kSubInfoFlag) != 0 ? 1 : 0;
    _destroyTEVData(info->meta_data[info->fill_cursor]);
    info->meta_data[info->fill_cursor] = entry;
    return 1;
}

uint32_t _addDataBuffer(_TEV_info* info, uint32_t start_offset, uint32_t length, uint32_t meta_type) {
    return _addData(info, start_offset, length, meta_type);
}
