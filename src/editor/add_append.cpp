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
    if (stream.seek(directory, SEEK_SET) < 0) {
        tev::logLine(tev::kLogError, kTag, "File Search Error");
        return false;
    }
    return true;
}

}  // namespace

namespace tev {

uint32_t appendRecord(TevStream* stream, _TEV_info* info, const RecordArgs& record, _voxa_info_struct* voxa,
                      bool* complete) {
    if (complete != nullptr) *complete = false;
    if (!acceptsAppend(stream, info, record)) return LUMET_TEV_FALSE;
    if (!positionOnDirectory(*stream, *info)) return LUMET_TEV_FALSE;
    // Every record moves L bytes further away from the new "TEVH"; refuse
    // before writing when a distance would no longer fit its field.
    uint32_t length = 0;
    if (!computeRecordLength(record, &length) || !shiftOffsets(*info, length)) {
        logLine(kLogError, kTag, "Too big TEV data to add in the file");
        return LUMET_TEV_FALSE;
    }
    // While the record goes in, the file keeps ending with a directory of
    // the old records (see placeOldDirectoryBehind).
    const int64_t directory = stream->tell();
    const uint32_t newDirectorySize = _calculateTEV_KTHO(info->meta_count + 1) + kTailFieldsSize;
    const int64_t newEnd = directory + length + newDirectorySize;
    const bool oldDirectoryBehind =
        voxa == nullptr && placeOldDirectoryBehind(*stream, *info, newEnd, newDirectorySize);
    if (stream->seek(directory, SEEK_SET) != directory) return LUMET_TEV_FALSE;
    const bool tagWritten = stream->writeDataTagInfo(record.type, record.hasSubFlag(), record.name,
                                                     record.nameLength, record.sub,
                                                     record.storedSubLength()) != 0;
    const int64_t dataWritten = stream->write(record.data, record.dataLength);
    if (dataWritten < 0) {
        logLine(kLogError, kTag, "file write error\n");
        return LUMET_TEV_FALSE;
    }
    const bool directoryWritten =
        writeAppendedDirectory(*stream, *info, makeEntry(record.metaType(), length, length)).ok();
    if (voxa != nullptr) {
        uint32_t start = 0;
        uint32_t end = 0;
        firstSoundOf(*voxa, &start, &end);
        if (!writeSoundTrailer(*stream, kVoxaAppendVersion, voxa->sound_count, start, end)) {
            logLine(kLogError, "TEVEncoder::AddTEVData", "file write error\n");
            return LUMET_TEV_FALSE;
        }
    }
    if (oldDirectoryBehind) {
        // The copy behind goes; the file now ends with the new directory.
        const int64_t end = stream->tell();
        if (end < 1 || stream->truncate(end) != 0) {
            logLine(kLogError, kTag, "file truncate error\n");
            return LUMET_TEV_FALSE;
        }
    } else {
        dropStaleTail(*stream, info->stream_size);
    }
    if (complete != nullptr) {
        *complete = tagWritten && dataWritten == record.dataLength && directoryWritten && voxa == nullptr;
    }
    return LUMET_TEV_TRUE;
}

}  // namespace tev

uint32_t AddTEVDataStream(TevStream* stream, _TEV_info* info, const char* name, uint32_t name_len,
                          uint32_t type, const unsigned char* sub, uint32_t sub_len,
                          const unsigned char* data, uint32_t data_len, _voxa_info_struct* voxa) {
    const tev::RecordArgs record{name, name_len, type, sub, sub_len, data, data_len};
    return tev::appendRecord(stream, info, record, voxa, nullptr);
}
