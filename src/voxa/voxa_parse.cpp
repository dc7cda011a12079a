// Parsing the Voxa block at the end of a stream: the block itself
// (ParseVoxaStream) and then its sound table (ParseVoxaSound).
//
// Layout, read backwards from the end of the file:
//   "VOXA" | version | count | count x (start, end) | header length | "VOXABS"
// The header length counts the bytes from "VOXA" up to the length field, so
// the block starts header length + 10 bytes before the end.
#include <cstdio>
#include <cstring>
#include <limits>

#include "container/format.h"
#include "tev/stream.h"
#include "tev/voxa.h"
#include "util/log.h"
#include "voxa/voxa_internal.h"

namespace {

using tev::voxa::kBlockFixedSize;
using tev::voxa::kMaxSoundCount;
using tev::voxa::kMinHeaderLength;
using tev::voxa::kTableEntrySize;
using tev::voxa::kValuesPerSound;

constexpr int64_t kInt32Size = 4;

bool readMark(TevStream& stream, const char* mark, size_t size) {
    char got[tev::kVoxaTailMarkSize] = {};
    if (size > sizeof got) return false;
    return stream.read(got, static_cast<int64_t>(size)) == static_cast<int64_t>(size) &&
           memcmp(got, mark, size) == 0;
}

// Reads the header length field and the tail mark. False without a message
// when the mark is missing: most images simply carry no sound.
bool readTail(TevStream& stream, uint32_t* headerLength) {
    if (stream.seek(-static_cast<int64_t>(tev::kVoxaLengthFieldDistance), SEEK_END) <= 0) {
        tev::logLine(tev::kLogError, "Voxa::ParseVoxa", "File Search Error");
        return false;
    }
    uint32_t length = 0;
    if (stream.readInt32(&length) != kInt32Size) return false;
    if (!readMark(stream, tev::kVoxaTailMark, tev::kVoxaTailMarkSize)) return false;
    *headerLength = length;
    return true;
}

// Checks the header length against the file and moves to the block's start.
bool seekToBlock(TevStream& stream, uint32_t headerLength, int64_t fileSize) {
    if (headerLength < kMinHeaderLength || fileSize < headerLength) {
        tev::logLine(tev::kLogError, "Voxa::ParseVoxa", "file has no suond OFFS");
        return false;
    }
    // The block must start after the first byte of the file; checking the
    // distance first keeps the seek from going before the start.
    const int64_t distance = static_cast<int64_t>(headerLength) + tev::kVoxaLengthFieldDistance;
    if (distance >= fileSize || stream.seek(-distance, SEEK_END) <= 0) {
        tev::logLine(tev::kLogError, "Voxa::ParseVoxa", "File Search Error");
        return false;
    }
    return true;
}

// Reads "VOXA" and the version, leaving the stream on the sound count.
bool readHead(TevStream& stream, uint32_t* version) {
    if (!readMark(stream, tev::kVoxaMagic, tev::voxa::kMagicSize)) return false;
    uint32_t value = 0;
    if (stream.readInt32(&value) != kInt32Size) return false;
    if (value >= tev::kVoxaFirstUnreadableVersion) {
        tev::logLine(tev::kLogError, "Voxa::ParseVoxa",
                     "the source file has TEV data but current TEV version is too old to parse the "
                     "source file");
        return false;
    }
    *version = value;
    return true;
}

// Sizes are kept in 32 bits; a larger file keeps the largest value, which
// is still a safe upper bound for the 32-bit sound positions.
uint32_t clampSize(int64_t size) {
    constexpr int64_t kMax = std::numeric_limits<uint32_t>::max();
    return static_cast<uint32_t>(size > kMax ? kMax : size);
}

bool checkRecord(const _voxa_info_struct* info) {
    const char* problem = nullptr;
    if (info == nullptr) {
        problem = "Wrong voxa_info";
    } else if (info->is_valid != LUMET_TEV_TRUE) {
        problem = "Voxa validation failed";
    } else if (info->stream == nullptr) {
        problem = "Stream doesn't exist";
    }
    if (problem == nullptr) return true;
    tev::logLine(tev::kLogError, "Voxa::ParseVoxaSound", "%s", problem);
    return false;
}

// Reads `count` sounds into a new zero-filled table. The table always has
// room for one sound, so a reader looking at the first entry of an empty
// table sees zeros rather than nothing.
uint32_t* readTable(TevStream& stream, uint32_t count) {
    const size_t values = count == 0 ? kValuesPerSound : size_t{count} * kValuesPerSound;
    auto* table = static_cast<uint32_t*>(_kmalloc(values * sizeof(uint32_t)));
    if (table == nullptr) {
        tev::logLine(tev::kLogError, "Voxa::ParseVoxa", "sound data _kmalloc fail");
        return nullptr;
    }
    // count < kMaxSoundCount, so the byte count fits easily in 64 bits.
    const int64_t bytes = static_cast<int64_t>(count) * kTableEntrySize;
    if (bytes > 0 && stream.read(table, bytes) != bytes) {
        _kfree(table);
        tev::logLine(tev::kLogError, "Voxa::ParseVoxa", "sound data read fail.");
        return nullptr;
    }
    return table;
}

bool soundsFitBeforeHeader(const _voxa_info_struct& info, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        const uint64_t end = info.sound_table[i * kValuesPerSound + 1];
        if (end + info.header_size > info.file_size) {
            tev::logLine(tev::kLogError, "Voxa::ParseVoxaSound",
                         "data + header is bigger then file -> that's not true!!");
            return false;
        }
    }
    return true;
}

}  // namespace

_voxa_info_struct* ParseVoxaStream(TevStream* stream) {
    if (stream == nullptr) return nullptr;
    uint32_t headerLength = 0;
    if (!readTail(*stream, &headerLength)) return nullptr;

    const int64_t fileSize = stream->seek(0, SEEK_END);
    if (fileSize < 1) {
        tev::logLine(tev::kLogError, "Voxa::ParseVoxa", "file search error %d\n", static_cast<int>(fileSize));
        return nullptr;
    }
    uint32_t version = 0;
    if (!seekToBlock(*stream, headerLength, fileSize) || !readHead(*stream, &version)) return nullptr;

    auto* info = static_cast<_voxa_info_struct*>(_kmalloc(sizeof(_voxa_info_struct)));
    if (info == nullptr) return nullptr;
    info->is_valid = LUMET_TEV_TRUE;
    info->file_size = clampSize(fileSize);
    info->header_length = headerLength;
    info->version = version;
    info->stream = stream;
    return info;
}

uint32_t ParseVoxaSound(_voxa_info_struct* info) {
    if (!checkRecord(info)) return LUMET_TEV_FALSE;

    uint32_t count = 0;
    info->stream->readInt32(&count);
    if (count >= kMaxSoundCount) {
        tev::logLine(tev::kLogError, "Voxa::ParseVoxa", "There is too much sound data.");
        return LUMET_TEV_FALSE;
    }
    // count < 2^27, so the header size stays far below 2^32.
    info->header_size = count * kTableEntrySize + kBlockFixedSize;
    if (info->header_size > info->file_size) {
        tev::logLine(tev::kLogError, "Voxa::ParseVoxaSound", "header is bigger then file -> that's not true!!");
        return LUMET_TEV_FALSE;
    }

    if (info->sound_table != nullptr) _kfree(info->sound_table);
    info->sound_table = readTable(*info->stream, count);
    if (info->sound_table == nullptr) return LUMET_TEV_FALSE;
    if (!soundsFitBeforeHeader(*info, count)) return LUMET_TEV_FALSE;

    info->sound_count = count;
    return LUMET_TEV_TRUE;
}
