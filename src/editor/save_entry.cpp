// Entry points of the save family over a path, a FILE*, a descriptor or a
// memory buffer handle. Each checks its own arguments, wraps its target in a
// stream, hands over to saveTEVDataToStream and releases what it made; what
// the caller handed in is never closed.
#include "container/format.h"
#include "editor/save_internal.h"
#include "stream/safe_edit.h"
#include "tev/editor.h"
#include "util/log.h"

namespace tev {

namespace {

// The save on an open file, as a crash-safe edit.
uint32_t saveRequestToFP(FILE* fp, const SaveRequest& r) {
    TevStreamFile file(fp);  // keeps a stream over a null FILE* the way it always was
    if (fp == nullptr) {
        return saveTEVDataToStream(&file, r.name, r.nameLength, r.sub, r.subLength, r.data,
                                   r.dataLength, r.type, r.update);
    }
    return guardedEdit(descriptorOf(fp), TEV_STREAM_FILE, [&](TevStream& stream) {
        return saveTEVDataToStream(&stream, r.name, r.nameLength, r.sub, r.subLength, r.data,
                                   r.dataLength, r.type, r.update);
    });
}

}  // namespace

uint32_t saveRequestToPath(const char* path, const SaveRequest& r) {
    if (path == nullptr) return LUMET_TEV_FALSE;
    const OwnedFile file(_kfopen(path, "r+b"));
    if (!file) return LUMET_TEV_FALSE;
    return saveRequestToFP(file.get(), r);
}

namespace {

// The path forms differ only in the tag their size refusal is logged under.
uint32_t saveCheckedToPath(const char* tooBigTag, const char* path, const SaveRequest& r) {
    if (r.dataLength >= kTooBigDataLength) {
        logLine(kLogError, tooBigTag, "Too big TEV data to add in the file");
        return LUMET_TEV_FALSE;
    }
    return saveRequestToPath(path, r);
}

}  // namespace
}  // namespace tev

using tev::kLogError;
using tev::logLine;

uint32_t saveTEVDataToFile(const char* path, const char* name, uint32_t name_len,
                           const unsigned char* sub, uint32_t sub_len, const unsigned char* data,
                           uint32_t data_len, uint32_t type, uint32_t update) {
    return tev::saveCheckedToPath("TEVAPI::saveTEVDataToFileAddTag", path,
                                  {name, name_len, sub, sub_len, data, data_len, type, update});
}

uint32_t saveTEVDataToFileAddTag(const char* path, const char* name, uint32_t name_len,
                                 const unsigned char* sub, uint32_t sub_len, const unsigned char* data,
                                 uint32_t data_len, uint32_t type, uint32_t update) {
    return tev::saveCheckedToPath("TEVAPI::saveTEVDataToFileAddTag", path,
                                  {name, name_len, sub, sub_len, data, data_len, type, update});
}

uint32_t saveFastTEVDataToFile(const char* path, const char* name, uint32_t name_len,
                               const unsigned char* sub, uint32_t sub_len, const unsigned char* data,
                               uint32_t data_len, uint32_t type, uint32_t update) {
    return tev::saveCheckedToPath("TEVAPI", path,
                                  {name, name_len, sub, sub_len, data, data_len, type, update});
}

uint32_t saveTEVDataToFP(FILE* fp, const char* name, uint32_t name_len, const unsigned char* sub,
                         uint32_t sub_len, const unsigned char* data, uint32_t data_len, uint32_t type,
                         uint32_t update) {
    if (fp == nullptr) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataToFP", "fp NULL !!");
        return LUMET_TEV_FALSE;
    }
    return tev::saveRequestToFP(fp, {name, name_len, sub, sub_len, data, data_len, type, update});
}

uint32_t saveFastTEVDataToFP(FILE* fp, const char* name, uint32_t name_len, const unsigned char* sub,
                             uint32_t sub_len, const unsigned char* data, uint32_t data_len,
                             uint32_t type, uint32_t update) {
    if (fp == nullptr) {
        logLine(kLogError, "TEVEncoderAPIs::saveFastTEVDataToFP", "fp null\n");
        return LUMET_TEV_FALSE;
    }
    if (name == nullptr) {
        logLine(kLogError, "TEVEncoderAPIs::saveFastTEVDataToFP", "TEVName null\n");
        return LUMET_TEV_FALSE;
    }
    if (data == nullptr) {
        logLine(kLogError, "TEVEncoderAPIs::saveFastTEVDataToFP", "data is null\n");
        return LUMET_TEV_FALSE;
    }
    if (type == TEV_USER_DEFINED_DATA && (sub == nullptr || sub_len == 0)) {
        logLine(kLogError, "TEVEncoderAPIs::saveFastTEVDataToFP", "data_type null\n");
        return LUMET_TEV_FALSE;
    }
    return tev::saveRequestToFP(fp, {name, name_len, sub, sub_len, data, data_len, type, update});
}

uint32_t saveTEVDataToFPAddTag(FILE* fp, const char* name, uint32_t name_len,
                               const unsigned char* sub, uint32_t sub_len, const unsigned char* data,
                               uint32_t data_len, uint32_t type, uint32_t update) {
    return saveTEVDataToFP(fp, name, name_len, sub, sub_len, data, data_len, type, update);
}

uint32_t saveTEVDataToFPToMP4(FILE* fp, const char* name, uint32_t name_len, const unsigned char* sub,
                              uint32_t sub_len, const unsigned char* data, uint32_t data_len,
                              uint32_t type, uint32_t update) {
    return saveTEVDataToFP(fp, name, name_len, sub, sub_len, data, data_len, type, update);
}

uint32_t saveTEVDataToFd(int fd, const char* name, uint32_t name_len, const unsigned char* sub,
                         uint32_t sub_len, const unsigned char* data, uint32_t data_len, uint32_t type,
                         uint32_t update) {
    if (fd < 1) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataToFd", "fd is <= 0!!");
        return LUMET_TEV_FALSE;
    }
    TevStreamFD lent(fd);  // rewinds the descriptor when it goes
    return tev::guardedEdit(fd, TEV_STREAM_FD, [&](TevStream& stream) {
        return saveTEVDataToStream(&stream, name, name_len, sub, sub_len, data, data_len, type, update);
    });
}

uint32_t saveTEVDataToBuffer(TevBufferHandle* handle, const char* name, uint32_t name_len,
                             const unsigned char* sub, uint32_t sub_len, const unsigned char* data,
                             uint32_t data_len, uint32_t type, uint32_t update) {
    if (handle == nullptr) {
        logLine(kLogError, "TEVEncoderAPIsBuffer::saveTEVDataToBuffer", "Buffer NULL !!");
        return LUMET_TEV_FALSE;
    }
    TevStreamBuffer stream(handle);
    return saveTEVDataToStream(&stream, name, name_len, sub, sub_len, data, data_len, type, update);
}

uint32_t saveTEVDataToBufferAddTag(TevBufferHandle* handle, const char* name, uint32_t name_len,
                                   const unsigned char* sub, uint32_t sub_len,
                                   const unsigned char* data, uint32_t data_len, uint32_t type,
                                   uint32_t update) {
    return saveTEVDataToBuffer(handle, name, name_len, sub, sub_len, data, data_len, type, update);
}
