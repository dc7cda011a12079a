// Two-step save into plain media: the record's tag header first, then the
// data written by the caller, then the one-entry directory. A stream that
// already holds a container or Voxa data is left untouched by both steps.
#include "container/format.h"
#include "editor/save_internal.h"
#include "tev/container.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "util/log.h"

uint32_t saveTEVDataHeaderToStream(TevStream* stream, const char* name, uint32_t name_len,
                                   const unsigned char* sub, uint32_t sub_len, uint32_t type) {
    using namespace tev;
    if (stream == nullptr) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataHeaderToStream", "Stream open error");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataHeaderToStream", "Stream CheckError is false");
        return LUMET_TEV_FALSE;
    }
    if (name == nullptr || name_len == 0) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataHeaderToStream",
                "TEVName == LUMET_TEV_NULL || TEVName_len <= 0");
        return LUMET_TEV_FALSE;
    }
    const uint32_t hasSub = (sub != nullptr && sub_len != 0) ? 1 : 0;
    if (type == TEV_USER_DEFINED_DATA && hasSub == 0) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataHeaderToStream",
                "data_type == TEV_USER_DEFINED_DATA && (data_sub_info == LUMET_TEV_NULL || "
                "data_sub_info_len <= 0)");
        return LUMET_TEV_FALSE;
    }
    if (getSignatureStream(stream) != SIGNATURE_DETECTION_FAIL) return LUMET_TEV_TRUE;
    if (stream->seek(0, SEEK_END) <= 0) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataHeaderToStream", "File Search Error");
        return LUMET_TEV_FALSE;
    }
    if (stream->writeDataTagInfo(type, hasSub, name, name_len, sub, sub_len) != LUMET_TEV_TRUE) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataHeaderToStream", "File Write Error");
        return LUMET_TEV_FALSE;
    }
    return _getDataLength(hasSub, name_len, sub_len, 0);
}

uint32_t saveTEVDataHeaderToFP(FILE* fp, const char* name, uint32_t name_len, const unsigned char* sub,
                               uint32_t sub_len, uint32_t type) {
    TevStreamFile stream(fp);
    if (!stream.CheckError()) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::saveTEVDataHeaderToFP", "fp open error");
        return LUMET_TEV_FALSE;
    }
    return saveTEVDataHeaderToStream(&stream, name, name_len, sub, sub_len, type);
}

uint32_t saveTEVTailToStream(TevStream* stream, uint32_t length, uint32_t type, uint32_t has_sub) {
    using namespace tev;
    if (stream == nullptr) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVTailToStream", "Stream open error");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVTailToStream", "Stream CheckError is false");
        return LUMET_TEV_FALSE;
    }
    if (length >= kTooBigDataLength) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVTailToStream", "Too big TEV data to add in the file");
        return LUMET_TEV_FALSE;
    }
    if (getSignatureStream(stream) != SIGNATURE_DETECTION_FAIL) return LUMET_TEV_TRUE;
    return saveFirstTEVTailToStream(stream, length, type, has_sub);
}

uint32_t saveTEVTailToFP(FILE* fp, uint32_t length, uint32_t type, uint32_t has_sub) {
    TevStreamFile stream(fp);
    if (!stream.CheckError()) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::saveTEVTailToFP", "fp open error");
        return LUMET_TEV_FALSE;
    }
    return saveTEVTailToStream(&stream, length, type, has_sub);
}
