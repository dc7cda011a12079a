// Adding a record whose bytes the caller has already formatted (tag header,
// name, sub-information, data): the bytes go on the stream unchanged and
// only the directory is written here.
#include <cstdio>
#include <cstdint>
#include <limits>

#include "container/format.h"
#include "editor/add_internal.h"
#include "tev/container.h"
#include "tev/editor.h"
#include "util/log.h"

namespace {

constexpr const char* kFirstTag = "TEVEncoder::AddDirectTEVDataInFirstTimeStream";
// The stream form of the append logs under the name of its FILE* form.
constexpr const char* kAppendTag = "TEVEncoder::AddDirectTEVDataFP";
constexpr uint32_t kOneEntry = 1;
constexpr uint32_t kOneSound = 1;

uint32_t metaTypeOf(uint32_t type, uint32_t has_sub) {
    return _setMetaType(static_cast<uint16_t>(type), has_sub);
}

bool acceptsDirectAppend(TevStream* stream, _TEV_info* info, uint32_t type, uint32_t has_sub,
                         const unsigned char* record, uint32_t length) {
    if (static_cast<uint16_t>(type) == TEV_USER_DEFINED_DATA && has_sub == 0) {
        tev::logLine(tev::kLogError, kAppendTag,
                     "if Data type is UserData then must use DataSubInfo");
        return false;
    }
    if (record == nullptr || length == 0) {
        tev::logLine(tev::kLogError, kAppendTag, "data == LUMET_TEV_NULL || data_size <= 0");
        return false;
    }
    if (info == nullptr) {
        tev::logLine(tev::kLogError, kAppendTag, "TEV_info == LUMET_TEV_NULL");
        return false;
    }
    if (stream == nullptr || !stream->CheckError()) {
        tev::logLine(tev::kLogError, kAppendTag, "Stream == LUMET_TEV_NULL");
        return false;
    }
    return true;
}

// Puts the stream on "TEVH". The position is handed on as a 32-bit value;
// a directory beyond 4 GiB is refused rather than written at the cut position.
bool positionOnDirectory(TevStream& stream, const _TEV_info& info) {
    const int64_t directory = tev::seekToDirectory(stream, info);
    if (directory < 0 || directory > std::numeric_limits<uint32_t>::max() ||
        stream.seek(static_cast<uint32_t>(directory), SEEK_SET) < 0) {
        tev::logLine(tev::kLogError, kAppendTag, "File Search Error");
        return false;
    }
    return true;
}

}  // namespace

uint32_t AddDirectTEVDataInFirstTimeStream(TevStream* stream, uint32_t type, uint32_t has_sub,
                                           const unsigned char* record, uint32_t length) {
    if (stream == nullptr) {
        tev::logLine(tev::kLogError, kFirstTag, "src_tev_info->Stream is null");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) {
        tev::logLine(tev::kLogError, kFirstTag, "src_tev_info->Stream CheckError is false");
        return LUMET_TEV_FALSE;
    }
    if (record == nullptr || length == 0) {
        tev::logLine(tev::kLogError, kFirstTag, "data == LUMET_TEV_NULL || data_size <= 0");
        return LUMET_TEV_FALSE;
    }
    if (stream->seek(0, SEEK_END) < 0) {
        tev::logLine(tev::kLogError, kFirstTag, "File Search Error");
        return LUMET_TEV_FALSE;
    }
    if (stream->write(record, length) < 0) {
        tev::logLine(tev::kLogError, kFirstTag, "File Write Error");
        return LUMET_TEV_FALSE;
    }
    _TEV_data_info entry = tev::makeEntry(metaTypeOf(type, has_sub), length, length);
    tev::writeDirectory(*stream, kOneEntry, {&entry});
    return LUMET_TEV_TRUE;
}

uint32_t AddDirectTEVDataInFirstTimeFP(FILE* fp, uint32_t type, uint32_t has_sub,
                                       const unsigned char* record, uint32_t length) {
    if (fp == nullptr) {
        tev::logLine(tev::kLogError, "TEVEncoder::AddDirectTEVDataInFirstTimeFP", "fp is null");
        return LUMET_TEV_FALSE;
    }
    TevStreamFile stream(fp);
    return AddDirectTEVDataInFirstTimeStream(&stream, type, has_sub, record, length);
}

uint32_t AddDirectTEVDataStream(TevStream* stream, _TEV_info* info, uint32_t type, uint32_t has_sub,
                                const unsigned char* record, uint32_t length,
                                _voxa_info_struct* voxa) {
    if (!acceptsDirectAppend(stream, info, type, has_sub, record, length)) return LUMET_TEV_FALSE;
    if (!positionOnDirectory(*stream, *info)) return LUMET_TEV_FALSE;
    if (!tev::shiftOffsets(*info, length)) {
        tev::logLine(tev::kLogError, kAppendTag, "Too big TEV data to add in the file");
        return LUMET_TEV_FALSE;
    }
    if (stream->write(record, length) < 0) {
        tev::logLine(tev::kLogError, kAppendTag, "File Write Error");
        return LUMET_TEV_FALSE;
    }
    tev::writeAppendedDirectory(*stream, *info,
                                tev::makeEntry(metaTypeOf(type, has_sub), length, length));
    if (voxa != nullptr) {
        uint32_t start = 0;
        uint32_t end = 0;
        tev::firstSoundOf(*voxa, &start, &end);
        tev::writeSoundTrailer(*stream, tev::kVoxaWriterVersion, kOneSound, start, end);
    }
    tev::dropStaleTail(*stream, info->stream_size);
    return LUMET_TEV_TRUE;
}

uint32_t AddDirectTEVDataFP(FILE* fp, _TEV_info* info, uint32_t type, uint32_t has_sub,
                            const unsigned char* record, uint32_t length, _voxa_info_struct* voxa) {
    if (fp == nullptr) {
        tev::logLine(tev::kLogError, kAppendTag, "fp == LUMET_TEV_NULL");
        return LUMET_TEV_FALSE;
    }
    TevStreamFile stream(fp);
    return AddDirectTEVDataStream(&stream, info, type, has_sub, record, length, voxa);
}
