// saveDirectTEVData: saves a record that the caller has already formatted
// (tag header, name, sub-information, data). The name is used only to find
// an existing record and to size the capacity check; no MP4 box is written.
#include <cstring>

#include "editor/save_internal.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "util/log.h"
#include "container/check_internal.h"
#include "tev/query.h"
#include "tev/sound.h"

namespace tev {
namespace {

struct DirectRecord {
    FILE* fp;
    const unsigned char* bytes;
    uint32_t length;
    const char* name;  // NUL-terminated
    uint32_t hasSub;
    uint32_t type;
    uint32_t update;

    uint32_t nameLength() const { return static_cast<uint32_t>(std::strlen(name)); }
    bool replaces() const { return (update & kUpdateReplaceBit) != 0; }
};

// A container, with or without a Voxa block behind it. With the block, the
// delete and the append carry its descriptor so that the block follows the
// new directory; the refusals and their log lines are the same either way.
uint32_t saveDirectIntoContainer(TevStream& stream, const DirectRecord& r, bool withVoxa) {
    OwnedPackOnStream pack(checkTEVInStreamAndUpdate(&stream));
    if (!pack) {
        logLine(kLogError, "TEVEncoderAPIs::saveDirectTEVData", "SIGNATURE_TEV TEVdata NULL!!");
        return LUMET_TEV_FALSE;
    }
    if (checkTEVInfoForSaving(pack->info, r.length, 0, r.nameLength()) != LUMET_TEV_TRUE) {
        logLine(kLogError, "TEVEncoderAPIs::saveDirectTEVData", "SIGNATURE_TEV checkTEVInfoForSaving fail!!");
        return LUMET_TEV_FALSE;
    }
    OwnedVoxaOnStream voxa = withVoxa ? parseVoxaBlock(stream) : OwnedVoxaOnStream();
    const uint32_t index = findRecord(pack.get(), r.name);
    if (index != kNameNotFound) {
        if (!r.replaces()) return existingNameResult(stream);
        if (DeleteATEVDataStream(pack->info, index, voxa.get()) != LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
        pack.reset(checkTEVInStreamAndUpdate(&stream));
        if (!pack) {
            if (getSignatureStream(&stream) != SIGNATURE_DETECTION_FAIL) return LUMET_TEV_FALSE;
            return withVoxa ? AddDirectTEVDataInFirstTimeFP(r.fp, r.type, r.hasSub, r.bytes, r.length)
                            : AddDirectTEVDataInFirstTimeStream(&stream, r.type, r.hasSub, r.bytes, r.length);
        }
        // The delete moved the records and rewrote the block: the append
        // writes the block's current positions.
        if (withVoxa) voxa = parseVoxaBlock(stream);
    }
    if (withVoxa) return AddDirectTEVDataFP(r.fp, pack->info, r.type, r.hasSub, r.bytes, r.length, voxa.get());
    return AddDirectTEVDataStream(&stream, pack->info, r.type, r.hasSub, r.bytes, r.length, nullptr);
}

// Voxa sound without a container: the sound becomes the first EchoFrame
// record with its list, then the record is appended with the Voxa block
// behind the directory.
uint32_t saveDirectIntoVoxaImage(TevStream& stream, const DirectRecord& r) {
    OwnedPackOnStream pack;
    OwnedVoxaOnStream voxa;
    if (!convertVoxaImageForSave(stream, r.length, 0, r.nameLength(), "TEVEncoderAPIs::saveDirectTEVData", &pack,
                                 &voxa)) {
        return LUMET_TEV_FALSE;
    }
    return AddDirectTEVDataStream(&stream, pack->info, r.type, r.hasSub, r.bytes, r.length, voxa.get());
}

}  // namespace
}  // namespace tev

uint32_t saveDirectTEVData(FILE* fp, const unsigned char* record, uint32_t length, const char* name,
                           uint32_t has_sub, uint32_t type, uint32_t update) {
    using namespace tev;
    if (fp == nullptr) {
        logLine(kLogError, "TEVEncoderAPIs::saveDirectTEVData", "fp == LUMET_TEV_NULL");
        return LUMET_TEV_FALSE;
    }
    if (name == nullptr) {
        logLine(kLogError, "TEVEncoderAPIs::saveDirectTEVData", "TEVName == LUMET_TEV_NULL");
        return LUMET_TEV_FALSE;
    }
    if (record == nullptr || length == 0) {
        logLine(kLogError, "TEVEncoderAPIs::saveDirectTEVData", "data == LUMET_TEV_NULL || data_len <= 0");
        return LUMET_TEV_FALSE;
    }
    if (type == TEV_USER_DEFINED_DATA && has_sub == 0) {
        logLine(kLogError, "TEVEncoderAPIs::saveDirectTEVData",
                "data_type == TEV_USER_DEFINED_DATA && ( !check_data_sub_info )");
        return LUMET_TEV_FALSE;
    }
    TevStreamFile stream(fp);
    if (!stream.CheckError()) {
        logLine(kLogError, "TEVEncoderAPIs::AddTEVDataInFirstTime", "Stream CheckError is false");
        return LUMET_TEV_FALSE;
    }
    const DirectRecord direct{fp, record, length, name, has_sub, type, update};
    switch (getSignatureStream(&stream)) {
        case SIGNATURE_DETECTION_FAIL:
            return AddDirectTEVDataInFirstTimeStream(&stream, type, has_sub, record, length);
        case SIGNATURE_TEV:
            return saveDirectIntoContainer(stream, direct, false);
        case SIGNATURE_VOXA:
            return saveDirectIntoVoxaImage(stream, direct);
        case SIGNATURE_VOXA_TEV:
            return saveDirectIntoContainer(stream, direct, true);
        default:
            return LUMET_TEV_FALSE;
    }
}
