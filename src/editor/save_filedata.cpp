// The "FileData" forms of the save family: the record's data is the whole
// content of a second file, read into memory in one piece, checked for size
// before anything is allocated, and freed after the save.
#include "container/format.h"
#include "editor/save_internal.h"
#include "tev/editor.h"
#include "util/log.h"

namespace tev {

namespace {

// Reads `size` bytes from the start of the stream into `out`.
bool readWholeStream(TevStream& stream, unsigned char* out, int64_t size) {
    if (stream.seek(0, SEEK_SET) < 0) return false;
    int64_t done = 0;
    while (done < size) {
        const int64_t got = stream.read(out + done, size - done);
        if (got <= 0) return false;
        done += got;
    }
    return true;
}

}  // namespace

DataFileStatus readWholeDataFile(const char* path, DataFile* out) {
    const OwnedFile file(path != nullptr ? _kfopen(path, "rb") : nullptr);
    if (!file) return DataFileStatus::kOpenFailed;
    TevStreamFile stream(file.get());  // goes before the file is closed

    const int64_t size = stream.seek(0, SEEK_END);
    if (size < 0) return DataFileStatus::kSeekFailed;
    if (size == 0) return DataFileStatus::kEmpty;
    if (size >= int64_t{kTooBigDataLength}) return DataFileStatus::kTooBig;

    KUnique<unsigned char[]> bytes(static_cast<unsigned char*>(_kmalloc(static_cast<size_t>(size))));
    if (!bytes || !readWholeStream(stream, bytes.get(), size)) return DataFileStatus::kUnreadable;
    out->bytes = std::move(bytes);
    out->length = static_cast<uint32_t>(size);
    return DataFileStatus::kOk;
}

// Reads the data file and hands its bytes to `save`; a file that is too big
// is logged under `tooBigTag`, every other refusal silently gives 0.
template <typename Save>
uint32_t saveWithDataFile(const char* data_path, const char* tooBigTag, Save save) {
    DataFile file;
    const DataFileStatus status = readWholeDataFile(data_path, &file);
    if (status == DataFileStatus::kTooBig) {
        logLine(kLogError, tooBigTag, "Too big TEV data to add in the file");
    }
    if (status != DataFileStatus::kOk) return LUMET_TEV_FALSE;
    return save(file.bytes.get(), file.length);
}

}  // namespace tev

using tev::DataFile;
using tev::DataFileStatus;
using tev::kLogError;
using tev::logLine;
using tev::readWholeDataFile;

uint32_t saveTEVFileDataToFile(const char* path, const char* name, uint32_t name_len,
                               const unsigned char* sub, uint32_t sub_len, const char* data_path,
                               uint32_t type, uint32_t update) {
    DataFile file;
    const DataFileStatus status = readWholeDataFile(data_path, &file);
    if (status == DataFileStatus::kTooBig) {
        logLine(kLogError, "TEVAPI", "Too big TEV data to add in the file");
        return LUMET_TEV_FALSE;
    }
    if (status != DataFileStatus::kOk) {
        logLine(kLogError, "TEVAPI", "data null\n");
        return LUMET_TEV_FALSE;
    }
    return saveTEVDataToFile(path, name, name_len, sub, sub_len, file.bytes.get(), file.length, type,
                             update);
}

uint32_t saveTEVFileDataToFP(FILE* fp, const char* name, uint32_t name_len, const unsigned char* sub,
                             uint32_t sub_len, const char* data_path, uint32_t type, uint32_t update) {
    if (fp == nullptr) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVFileDataToFP", "fp null\n");
        return LUMET_TEV_FALSE;
    }
    if (name == nullptr || name_len == 0) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVFileDataToFP",
                "TEVName null or tev name length is 0. the length is larger than 1\n");
        return LUMET_TEV_FALSE;
    }
    if (type == TEV_USER_DEFINED_DATA && (sub == nullptr || sub_len == 0)) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVFileDataToFP", "data_type fail\n");
        return LUMET_TEV_FALSE;
    }
    DataFile file;
    switch (readWholeDataFile(data_path, &file)) {
        case DataFileStatus::kOk:
            return saveTEVDataToFP(fp, name, name_len, sub, sub_len, file.bytes.get(), file.length, type,
                                   update);
        case DataFileStatus::kOpenFailed:
            logLine(kLogError, "TEVEncoderAPIs::saveTEVFileDataToFP", "fopen fail");
            return LUMET_TEV_FALSE;
        case DataFileStatus::kEmpty:
            logLine(kLogError, "TEVEncoderAPIs::saveTEVFileDataToFP", "File Search Error %d\n", 0);
            return LUMET_TEV_FALSE;
        case DataFileStatus::kSeekFailed:
            logLine(kLogError, "TEVEncoderAPIs::saveTEVFileDataToFP", "File Search Error\n");
            return LUMET_TEV_FALSE;
        case DataFileStatus::kTooBig:
            logLine(kLogError, "TEVEncoderAPIs::saveTEVFileDataToFP", "Too big TEV data to add in the file");
            return LUMET_TEV_FALSE;
        case DataFileStatus::kUnreadable:
            break;
    }
    logLine(kLogError, "TEVEncoderAPIs::saveTEVFileDataToFP", "data null\n");
    return LUMET_TEV_FALSE;
}

uint32_t saveFastTEVDataFileToFile(const char* path, const char* name, uint32_t name_len,
                                   const unsigned char* sub, uint32_t sub_len, const char* data_path,
                                   uint32_t type, uint32_t update) {
    return saveTEVFileDataToFile(path, name, name_len, sub, sub_len, data_path, type, update);
}

uint32_t saveFastTEVNameToFP(FILE* fp, const char* name, uint32_t name_len, const unsigned char* sub,
                             uint32_t sub_len, const char* data_path, uint32_t type, uint32_t update) {
    return saveTEVFileDataToFP(fp, name, name_len, sub, sub_len, data_path, type, update);
}

uint32_t saveTEVDataFileToFPAddTag(FILE* fp, const char* name, uint32_t name_len,
                                   const unsigned char* sub, uint32_t sub_len, const char* data_path,
                                   uint32_t type, uint32_t update) {
    const auto save = [&](const unsigned char* data, uint32_t length) {
        return saveTEVDataToFPAddTag(fp, name, name_len, sub, sub_len, data, length, type, update);
    };
    return tev::saveWithDataFile(data_path, "TEVAPI::saveTEVDataFileToFPAddTag", save);
}

uint32_t saveTEVDataFileToFPToMP4(FILE* fp, const char* name, uint32_t name_len,
                                  const unsigned char* sub, uint32_t sub_len, const char* data_path,
                                  uint32_t type, uint32_t update) {
    const auto save = [&](const unsigned char* data, uint32_t length) {
        return saveTEVDataToFPToMP4(fp, name, name_len, sub, sub_len, data, length, type, update);
    };
    return tev::saveWithDataFile(data_path, "TEVAPI", save);
}

uint32_t saveTEVDataFileToFileAddTag(const char* path, const char* name, uint32_t name_len,
                                     const unsigned char* sub, uint32_t sub_len, const char* data_path,
                                     uint32_t type, uint32_t update) {
    const auto save = [&](const unsigned char* data, uint32_t length) {
        return saveTEVDataToFileAddTag(path, name, name_len, sub, sub_len, data, length, type,
                                       update);
    };
    return tev::saveWithDataFile(data_path, "TEVAPI::saveTEVDataFileToFileAddTag", save);
}
