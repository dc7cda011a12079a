// The first record behind media that has no container yet: the record at
// the end of the stream and a one-entry directory behind it.
#include <cstdio>

#include "container/format.h"
#include "editor/add_internal.h"
#include "tev/container.h"
#include "tev/editor.h"
#include "util/log.h"

namespace {

using tev::DirectoryStep;
using tev::RecordArgs;

constexpr uint32_t kOneEntry = 1;

// The log texts of one entry point: its tag, the text for a failed record
// write and one text per directory step.
struct FirstTimeTexts {
    const char* tag;
    const char* recordWrite;
    const char* directoryStep[static_cast<int>(DirectoryStep::kDone)];
};

constexpr FirstTimeTexts kStreamTexts = {
    "TEVEncoder::AddTEVDataInFirstTimeStream",
    "Stream write error\n",
    {"Stream writeTEV_KTSS error\n", "Stream writeTEV_KVER error\n", "Stream writeTEV_KCnt error\n",
     "Stream writeTEV_KDR error\n", "Stream writeTEV_KTHO error\n", "Stream writeTEV_KTS error\n"}};

constexpr FirstTimeTexts kPathTexts = {
    "TEVEncoder::AddTEVDataInFirstTime",
    "file write error\n",
    {"file write error\n", "file write error\n", "file write error\n", "file _writeTEV_KDR error\n",
     "file _writeTEV_KTHO error\n", "file _writeTEV_KTS error\n"}};

bool writeRecord(TevStream& stream, const RecordArgs& record) {
    if (stream.writeDataTagInfo(record.type, record.hasSubFlag(), record.name, record.nameLength,
                                record.sub, record.storedSubLength()) == 0) {
        return false;
    }
    return stream.write(record.data, record.dataLength) > 0;
}

// Writes the record at the stream's position, then its one-entry directory.
uint32_t writeFirstContainer(TevStream& stream, const RecordArgs& record, uint32_t length,
                             const FirstTimeTexts& texts) {
    if (!writeRecord(stream, record)) {
        tev::logLine(tev::kLogError, texts.tag, "%s", texts.recordWrite);
        return LUMET_TEV_FALSE;
    }
    _TEV_data_info entry = tev::makeEntry(record.metaType(), length, length);
    const tev::DirectoryWrite directory = tev::writeDirectory(stream, kOneEntry, {&entry});
    if (!directory.ok()) {
        tev::logLine(tev::kLogError, texts.tag, "%s",
                     texts.directoryStep[static_cast<int>(directory.failedStep)]);
        return LUMET_TEV_FALSE;
    }
    return LUMET_TEV_TRUE;
}

// A stream over a file this code opened itself; closed again on every path.
class OpenedFileStream {
public:
    OpenedFileStream(const char* path, const char* mode)
        : mFp(path != nullptr ? _kfopen(path, mode) : nullptr), mStream(mFp) {}
    ~OpenedFileStream() {
        if (mFp != nullptr) mStream.destroyPointer();
    }
    OpenedFileStream(const OpenedFileStream&) = delete;
    OpenedFileStream& operator=(const OpenedFileStream&) = delete;

    TevStream& stream() { return mStream; }
    bool usable() { return mFp != nullptr && mStream.CheckError(); }

private:
    FILE* mFp;
    TevStreamFile mStream;
};

}  // namespace

uint32_t AddTEVDataInFirstTimeStream(TevStream* stream, const char* name, uint32_t name_len,
                                     uint32_t type, const unsigned char* sub, uint32_t sub_len,
                                     const unsigned char* data, uint32_t data_len) {
    const char* tag = kStreamTexts.tag;
    const RecordArgs record{name, name_len, type, sub, sub_len, data, data_len};
    if (stream == nullptr) {
        tev::logLine(tev::kLogError, tag, "Stream open error");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) {
        tev::logLine(tev::kLogError, tag, "file open error");
        return LUMET_TEV_FALSE;
    }
    if (tev::lacksUserDataSubInfo(type, record.hasSub())) {
        tev::logLine(tev::kLogError, tag, "if Data type is UserData then must use DataSubInfo");
        return LUMET_TEV_FALSE;
    }
    if (!tev::isValidName(name, name_len)) {
        tev::logLine(tev::kLogError, tag, "name_size <= 0 || name == NULL");
        return LUMET_TEV_FALSE;
    }
    if (data == nullptr || data_len == 0) {
        tev::logLine(tev::kLogError, tag, "data == 0 || data_size <= 0");
        return LUMET_TEV_FALSE;
    }
    uint32_t length = 0;
    if (!tev::computeRecordLength(record, &length)) {
        tev::logLine(tev::kLogError, tag, "Too big TEV data to add in the file");
        return LUMET_TEV_FALSE;
    }
    if (stream->seek(0, SEEK_END) < 0) {
        tev::logLine(tev::kLogError, tag, "Stream Search error\n");
        return LUMET_TEV_FALSE;
    }
    return writeFirstContainer(*stream, record, length, kStreamTexts);
}

uint32_t AddTEVDataInFirstTime(const char* path, const char* name, uint32_t name_len, uint32_t type,
                               const unsigned char* sub, uint32_t sub_len,
                               const unsigned char* data, uint32_t data_len) {
    const char* tag = kPathTexts.tag;
    const RecordArgs record{name, name_len, type, sub, sub_len, data, data_len};
    if (tev::lacksUserDataSubInfo(type, record.hasSub())) {
        tev::logLine(tev::kLogError, tag, "if Data type is UserData then must use DataSubInfo");
        return LUMET_TEV_FALSE;
    }
    if (!tev::isValidName(name, name_len)) {
        tev::logLine(tev::kLogError, tag, "name null");
        return LUMET_TEV_FALSE;
    }
    if (data == nullptr || data_len == 0) {
        tev::logLine(tev::kLogError, tag, "data null");
        return LUMET_TEV_FALSE;
    }
    uint32_t length = 0;
    if (!tev::computeRecordLength(record, &length)) {
        tev::logLine(tev::kLogError, tag, "Too big TEV data to add in the file");
        return LUMET_TEV_FALSE;
    }
    OpenedFileStream file(path, "r+b");
    if (!file.usable()) {
        tev::logLine(tev::kLogError, tag, "file open error");
        return LUMET_TEV_FALSE;
    }
    // The path form adds behind existing media only.
    const int64_t end = file.stream().seek(0, SEEK_END);
    if (end < 1) {
        tev::logLine(tev::kLogError, tag, "file search error = %lld\n",
                     static_cast<long long>(end));
        return LUMET_TEV_FALSE;
    }
    return writeFirstContainer(file.stream(), record, length, kPathTexts);
}

// The FILE* and buffer forms report 0 whatever the stream form did.
uint32_t AddTEVDataInFirstTimeFP(FILE* fp, const char* name, uint32_t name_len, uint32_t type,
                                 const unsigned char* sub, uint32_t sub_len,
                                 const unsigned char* data, uint32_t data_len) {
    TevStreamFile stream(fp);
    if (!stream.CheckError()) {
        tev::logLine(tev::kLogError, "TEVEncoder::AddTEVDataInFirstTime", "file open error");
        return LUMET_TEV_FALSE;
    }
    AddTEVDataInFirstTimeStream(&stream, name, name_len, type, sub, sub_len, data, data_len);
    tev::logLine(tev::kLogError, "TEVEncoder::AddTEVDataInFirstTimeStream", "error \n");
    return LUMET_TEV_FALSE;
}

uint32_t AddTEVDataInFirstTimeBuffer(TevBufferHandle* handle, const char* name, uint32_t name_len,
                                     uint32_t type, const unsigned char* sub, uint32_t sub_len,
                                     const unsigned char* data, uint32_t data_len) {
    TevStreamBuffer stream(handle);
    if (!stream.CheckError()) {
        tev::logLine(tev::kLogError, "TEVEncoder::AddTEVDataInFirstTime", "file open error");
        return LUMET_TEV_FALSE;
    }
    AddTEVDataInFirstTimeStream(&stream, name, name_len, type, sub, sub_len, data, data_len);
    tev::logLine(tev::kLogError, "TEVEncoder::AddTEVDataInFirstTimeStream", "error \n");
    return LUMET_TEV_FALSE;
}

uint32_t saveFirstTEVTailToStream(TevStream* stream, uint32_t length, uint32_t type,
                                  uint32_t has_sub) {
    const char* tag = "TEVEncoder::saveFirstTEVTailToFP";
    if (stream == nullptr) {
        tev::logLine(tev::kLogError, tag, "Stream open error");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) {
        tev::logLine(tev::kLogError, tag, "Stream CheckError is false");
        return LUMET_TEV_FALSE;
    }
    if (stream->seek(0, SEEK_END) < 0) {
        tev::logLine(tev::kLogError, tag, "File Search Error");
        return LUMET_TEV_FALSE;
    }
    _TEV_data_info entry =
        tev::makeEntry(_setMetaType(static_cast<uint16_t>(type), has_sub), length, length);
    tev::writeDirectory(*stream, kOneEntry, {&entry});
    return LUMET_TEV_TRUE;
}

uint32_t saveFirstTEVTailToFP(FILE* fp, uint32_t length, uint32_t type, uint32_t has_sub) {
    TevStreamFile stream(fp);
    return saveFirstTEVTailToStream(&stream, length, type, has_sub);
}
