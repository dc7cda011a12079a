// Appending a record to a parsed container: the record goes where "TEVH"
// stood and a directory one entry longer follows it.
#include "container/format.h"
#include "editor/add_internal.h"
#include "tev/container.h"
#include "tev/editor.h"
#include "util/log.h"

namespace {

constexpr const char* kTag = "TEVEncoder::AddTEVDataStream";

// The argument checks, in the order the callers rely on; false after logging.
bool acceptsAppend(TevStream* stream, _TEV_info* info, const tev::RecordArgs& record) {
    if (tev::lacksUserDataSubInfo(record.type, record.hasSub())) {
        tev::logLine(tev::kLogError, kTag, "if Data type is UserData then must use DataSubInfo");
        return false;
    }
    if (!tev::isValidName(record.name, record.nameLength)) {
        tev::logLine(tev::kLogError, kTag, "name_size <= 0 || name == NULL");
        return false;
    }
    if (record.data == nullptr || record.dataLength == 0) {
        tev::logLine(tev::kLogError, kTag, "data == NULL || data_size <= 0");
        return false;
    }
    if (info == nullptr) {
        tev::logLine(tev::kLogError, kTag, "TEV_info == NULL");
        return false;
    }
    if (stream == nullptr) {
        tev::logLine(tev::kLogError, kTag, "Stream == NULL");
        return false;
    }
    if (!stream->CheckError()) {
        tev::logLine(tev::kLogError, kTag, "CheckError is false");
        return false;
    }
    return true;
}

// Puts the stream on the first byte of "TEVH"; false after logging.
bool positionOnDirectory(TevStream& stream, const _TEV_info& info) {
    const int64_t directory = tev::seekToDirectory(stream, info);
    if (directory < 0) {
        tev::logLine(tev::kLogError, kTag, "File Search Error ");
        return false;
    }
    if (stream.seek(directory, tev::kSeekSet) < 0) {
        tev::logLine(tev::kLogError, kTag, "File Search Error");
        return false;
    }
    return true;
}

}  // namespace

uint32_t AddTEVDataStream(TevStream* stream, _TEV_info* info, const char* name, uint32_t name_len,
                          uint32_t type, const unsigned char* sub, uint32_t sub_len,
                          const unsigned char* data, uint32_t data_len, _voxa_info_struct* voxa) {
    const tev::RecordArgs record{name, name_len, type, sub, sub_len, data, data_len};
    if (!acceptsAppend(stream, info, record)) return LUMET_TEV_FALSE;
    if (!positionOnDirectory(*stream, *info)) return LUMET_TEV_FALSE;
    // Every record moves L bytes further away from the new "TEVH"; refuse
    // before writing when a distance would no longer fit its field.
    uint32_t length = 0;
    if (!tev::computeRecordLength(record, &length) || !tev::shiftOffsets(*info, length)) {
        tev::logLine(tev::kLogError, kTag, "Too big TEV data to add in the file");
        return LUMET_TEV_FALSE;
    }
    stream->writeDataTagInfo(type, record.hasSubFlag(), name, name_len, sub,
                             record.storedSubLength());
    if (stream->write(data, data_len) < 0) {
        tev::logLine(tev::kLogError, kTag, "file write error\n");
        return LUMET_TEV_FALSE;
    }
    tev::writeAppendedDirectory(*stream, *info, tev::makeEntry(record.metaType(), length, length));
    if (voxa != nullptr) {
        uint32_t start = 0;
        uint32_t end = 0;
        tev::firstSoundOf(*voxa, &start, &end);
        if (!tev::writeVoxaTrailer(*stream, tev::kVoxaAppendVersion, voxa->sound_count, start,
                                   end)) {
            tev::logLine(tev::kLogError, "TEVEncoder::AddTEVData", "file write error\n");
            return LUMET_TEV_FALSE;
        }
    }
    tev::dropStaleTail(*stream, info->stream_size);
    return LUMET_TEV_TRUE;
}
