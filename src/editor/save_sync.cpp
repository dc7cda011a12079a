// saveTEVDataToFileSync: a save into a file path that handles plain media and
// containers only and leaves any MP4 box alone.
#include "container/format.h"
#include "editor/save_internal.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "stream/safe_edit.h"
#include "util/log.h"

uint32_t saveTEVDataToFileSync(const char* path, const char* name, uint32_t name_len,
                               const unsigned char* sub, uint32_t sub_len, const unsigned char* data,
                               uint32_t data_len, uint32_t type, uint32_t update,
                               unsigned char /*ignored*/) {
    using namespace tev;
    if (data_len >= kTooBigDataLength) {
        logLine(kLogError, "TEVAPI", "Too big TEV data to add in the file");
        return LUMET_TEV_FALSE;
    }
    if (path == nullptr) {
        logLine(kLogError, "TEVAPI", "filename == LUMET_TEV_NULL");
        return LUMET_TEV_FALSE;
    }
    if (name == nullptr || name_len == 0) {
        logLine(kLogError, "TEVAPI", "TEVName == LUMET_TEV_NULL || TEVName_len <= 0");
        return LUMET_TEV_FALSE;
    }
    if (data == nullptr || data_len == 0) {
        logLine(kLogError, "TEVAPI", "data == LUMET_TEV_NULL || data_len <= 0");
        return LUMET_TEV_FALSE;
    }
    if (type == TEV_USER_DEFINED_DATA && (sub == nullptr || sub_len == 0)) {
        logLine(kLogError, "TEVAPI",
                "data_type == TEV_USER_DEFINED_DATA && ( data_sub_info == LUMET_TEV_NULL || "
                "data_sub_info_len <= 0 )");
        return LUMET_TEV_FALSE;
    }
    const OwnedFile file(_kfopen(path, "r+b"));
    TevStreamFile fileStream(file.get());  // goes before the file is closed
    return tev::guardedStreamEdit(&fileStream, [&](TevStream& stream) -> uint32_t {
        if (!stream.CheckError()) {
            logLine(kLogError, "TEVEncoderAPIs::saveTEVDataToFileSync", "Stream CheckError is false");
            return LUMET_TEV_FALSE;
        }
        const SaveRequest request{name, name_len, sub, sub_len, data, data_len, type, update};
        switch (getSignatureStream(&stream)) {
            case SIGNATURE_DETECTION_FAIL:
                return saveIntoPlainMedia(stream, request, false);
            case SIGNATURE_TEV: {
                const KUnique<char[]> key = copyNameKey(name, name_len);
                if (!key) return LUMET_TEV_FALSE;
                return saveIntoContainer(stream, request, key.get(), false);
            }
            default:
                return LUMET_TEV_FALSE;
        }
    });
}
