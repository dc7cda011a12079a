// Writing a sound as a container record: the sound record, the
// "EchoFrame_Meta_Info" record with the name list, a directory over them
// and a version 107 Voxa block pointing at the sound record's data.
#include <cstdio>
#include <vector>

#include "container/format.h"
#include "editor/add_internal.h"
#include "tev/container.h"
#include "tev/sound.h"
#include "util/log.h"
#include "echo/meta_list.h"

namespace {

using tev::voxa::kMetaRecordName;
using tev::voxa::kMetaRecordNameLength;

constexpr char kFirstTag[] = "TEVEncoder::NewAddVoxaDataInFirstTimeStream";
constexpr char kAppendTag[] = "TEVEncoder::NewAddVoxaData";

// The two records as they go out.
struct SoundRecords {
    uint32_t soundType;
    uint32_t metaType;
    const char* name;
    uint32_t nameLength;
    const unsigned char* data;
    uint32_t dataSize;
    const unsigned char* meta;
    uint32_t metaSize;
    uint32_t soundLength = 0;
    uint32_t metaLength = 0;

    // Both lengths, and the sound's data inside 32-bit positions once the
    // records begin at `at`. False when something does not fit.
    bool measure(int64_t at) {
        soundLength = _getDataLength(0, nameLength, 0, dataSize);
        metaLength = _getDataLength(0, kMetaRecordNameLength, 0, metaSize);
        const uint64_t soundEnd = uint64_t(at) + tev::kTagHeaderSize + nameLength + dataSize;
        return soundLength != 0 && metaLength != 0 && uint64_t{soundLength} + metaLength <= UINT32_MAX &&
               at >= 0 && soundEnd <= UINT32_MAX;
    }
    uint32_t soundStart(int64_t at) const { return static_cast<uint32_t>(at + tev::kTagHeaderSize + nameLength); }
    _TEV_data_info soundEntry() const {
        return tev::makeEntry(_setMetaType(static_cast<uint16_t>(soundType), 0), soundLength + metaLength,
                              soundLength);
    }
    _TEV_data_info metaEntry() const {
        return tev::makeEntry(_setMetaType(static_cast<uint16_t>(metaType), 0), metaLength, metaLength);
    }
};

// Both records at the stream's position; false after logging under `tag`.
bool writeRecords(TevStream& stream, const SoundRecords& r, const char* tag) {
    if (stream.writeDataTagInfo(r.soundType, 0, r.name, r.nameLength, nullptr, 0) == 0) {
        tev::logLine(tev::kLogError, tag, "File _writeDataTagInfo Error");
        return false;
    }
    if (stream.write(r.data, r.dataSize) < 1) {
        tev::logLine(tev::kLogError, tag, "File _kfwrite Error");
        return false;
    }
    if (stream.writeDataTagInfo(r.metaType, 0, kMetaRecordName, kMetaRecordNameLength, nullptr, 0) == 0) {
        tev::logLine(tev::kLogError, tag, "File _writeDataTagInfo Error");
        return false;
    }
    if (stream.write(r.meta, r.metaSize) < 1) {
        tev::logLine(tev::kLogError, tag, "File _kfwrite Error");
        return false;
    }
    return true;
}

bool reportDirectory(const tev::DirectoryWrite& written, const char* tag) {
    static constexpr const char* kTexts[] = {
        "File _writeTEV_KTSS Error", "File _writeTEV_KVER Error", "File _writeTEV_KCnt Error",
        "File _writeTEV_KDR Error",  "File _writeTEV_KTHO Error", "File _writeTEV_KTS Error",
    };
    if (written.ok()) return true;
    tev::logLine(tev::kLogError, tag, "%s", kTexts[static_cast<int>(written.failedStep)]);
    return false;
}

bool writeBlock(TevStream& stream, const SoundRecords& r, int64_t at, const char* tag) {
    const uint32_t start = r.soundStart(at);
    if (stream.writeVoxaHeader(start, start + r.dataSize) != 1) {
        tev::logLine(tev::kLogError, tag, "File _writeVoxaHeader Error");
        return false;
    }
    return true;
}

bool acceptsRecords(TevStream* stream, const SoundRecords& r, const char* tag) {
    if (r.data == nullptr || r.dataSize == 0) {
        tev::logLine(tev::kLogError, tag, "voxa_data == LUMET_TEV_NULL || voxa_data_size <= 0 ");
        return false;
    }
    if (r.meta == nullptr || r.metaSize == 0) {
        tev::logLine(tev::kLogError, tag, "voxa_info_data == LUMET_TEV_NULL || voxa_info_data_size <= 0 ");
        return false;
    }
    if (stream == nullptr) {
        tev::logLine(tev::kLogError, tag, "Stream == LUMET_TEV_NULL ");
        return false;
    }
    return true;
}

}  // namespace

uint32_t NewAddVoxaDataInFirstTimeStream(TevStream* stream, uint32_t meta_type, uint32_t sound_type,
                                         const char* name, uint32_t name_len, const unsigned char* data,
                                         uint32_t data_size, const unsigned char* meta, uint32_t meta_size) {
    SoundRecords r{sound_type, meta_type, name, name_len, data, data_size, meta, meta_size};
    if (!acceptsRecords(stream, r, kFirstTag)) return LUMET_TEV_FALSE;
    if (!tev::isValidName(name, name_len)) {
        tev::logLine(tev::kLogError, kFirstTag, "File _writeDataTagInfo Error");
        return LUMET_TEV_FALSE;
    }
    const int64_t at = stream->seek(0, SEEK_END);
    if (!r.measure(at)) {
        tev::logLine(tev::kLogError, kFirstTag, "File _writeVoxaHeader Error");
        return LUMET_TEV_FALSE;
    }
    if (!writeRecords(*stream, r, kFirstTag)) return LUMET_TEV_FALSE;
    _TEV_data_info soundEntry = r.soundEntry();
    _TEV_data_info metaEntry = r.metaEntry();
    const std::vector<_TEV_data_info*> entries = {&soundEntry, &metaEntry};
    if (!reportDirectory(tev::writeDirectory(*stream, 2, entries), kFirstTag)) return LUMET_TEV_FALSE;
    return writeBlock(*stream, r, at, kFirstTag) ? LUMET_TEV_TRUE : LUMET_TEV_FALSE;
}

uint32_t NewAddVoxaData(_TEV_info* info, uint32_t meta_type, uint32_t sound_type, const char* name,
                        uint32_t name_len, const unsigned char* data, uint32_t data_size,
                        const unsigned char* meta, uint32_t meta_size) {
    SoundRecords r{sound_type, meta_type, name, name_len, data, data_size, meta, meta_size};
    TevStream* stream = info != nullptr ? info->Stream : nullptr;
    if (!acceptsRecords(stream, r, kAppendTag)) return LUMET_TEV_FALSE;
    if (!tev::isValidName(name, name_len) || !stream->CheckError()) {
        tev::logLine(tev::kLogError, kAppendTag, "File _writeDataTagInfo Error");
        return LUMET_TEV_FALSE;
    }
    // The records go where "TEVH" stands; every old record then lies both
    // new records' lengths further from the new directory.
    const int64_t at = tev::seekToDirectory(*stream, *info);
    if (at < 0 || stream->seek(at, SEEK_SET) != at) {
        tev::logLine(tev::kLogError, kAppendTag, "File Search Error");
        return LUMET_TEV_FALSE;
    }
    if (!r.measure(at) || !tev::shiftOffsets(*info, r.soundLength + r.metaLength)) {
        tev::logLine(tev::kLogError, kAppendTag, "Too big TEV data to add in the file");
        return LUMET_TEV_FALSE;
    }
    if (!writeRecords(*stream, r, kAppendTag)) return LUMET_TEV_FALSE;
    std::vector<_TEV_data_info*> entries;
    tev::collectEntries(*info, &entries);
    _TEV_data_info soundEntry = r.soundEntry();
    _TEV_data_info metaEntry = r.metaEntry();
    entries.push_back(&soundEntry);
    entries.push_back(&metaEntry);
    const uint32_t count = static_cast<uint32_t>(entries.size());
    if (!reportDirectory(tev::writeDirectory(*stream, count, entries), kAppendTag)) return LUMET_TEV_FALSE;
    if (!writeBlock(*stream, r, at, kAppendTag)) return LUMET_TEV_FALSE;
    tev::dropStaleTail(*stream, info->stream_size);
    return LUMET_TEV_TRUE;
}
