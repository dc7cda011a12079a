// saveDirectTEVData: saves a record that the caller has already formatted
// (tag header, name, sub-information, data). The name is used only to find
// an existing record and to size the capacity check; no MP4 box is written.
#include <cstring>
#include <vector>

#include "editor/save_internal.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "util/log.h"
#include "echo/echoframe_internal.h"
#include "echo/meta_list.h"
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

bool isListedSound(_TEV_info_pack* pack, const char* name) {
    _TEV_data_unit* meta = extractTEVDataFromFilebyName(pack, voxa::kMetaRecordName, voxa::kMetaRecordNameLength);
    const bool listed = meta != nullptr && isIdenticalNameInMetaInfo(meta, name) != 0;
    destroyTEVDATA_UNIT(meta);
    return listed;
}

void relistSound(TevStream& stream, const char* name) {
    OwnedTevInfo info = parseStreamIndex(&stream, true);
    voxa::MetaList list;
    if (!info || !voxa::readMetaList(info.get(), &list) || list.contains(name)) return;
    info.reset();
    list.names.emplace_back(name);
    const std::vector<unsigned char> payload = list.bytes();
    saveTEVDataToStream(&stream, voxa::kMetaRecordName, voxa::kMetaRecordNameLength, nullptr, 0, payload.data(),
                        static_cast<uint32_t>(payload.size()), voxa::kMetaType, 1);
}

uint32_t saveDirectIntoContainer(TevStream& stream, const DirectRecord& r) {
    StreamPackPtr pack(checkTEVInStreamAndUpdate(&stream));
    if (!pack) {
        logLine(kLogError, "TEVEncoderAPIs::saveDirectTEVData", "SIGNATURE_TEV TEVdata NULL!!");
        return LUMET_TEV_FALSE;
    }
    if (checkTEVInfoForSaving(pack->info, r.length, 0, r.nameLength()) != LUMET_TEV_TRUE) {
        logLine(kLogError, "TEVEncoderAPIs::saveDirectTEVData", "SIGNATURE_TEV checkTEVInfoForSaving fail!!");
        return LUMET_TEV_FALSE;
    }
    const uint32_t index = findRecord(pack.get(), r.name);
    if (index != kNameNotFound) {
        if (!r.replaces()) return existingNameResult(stream);
        if (DeleteATEVDataStream(pack->info, index, nullptr) != LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
        pack.reset(checkTEVInStreamAndUpdate(&stream));
        if (!pack) {
            if (getSignatureStream(&stream) != SIGNATURE_DETECTION_FAIL) return LUMET_TEV_FALSE;
            return AddDirectTEVDataInFirstTimeStream(&stream, r.type, r.hasSub, r.bytes, r.length);
        }
    }
    return AddDirectTEVDataStream(&stream, pack->info, r.type, r.hasSub, r.bytes, r.length, nullptr);
}

// Voxa sound without a container: the sound becomes the first EchoFrame
// record with its list, then the record is appended with the Voxa block
// behind the directory.
uint32_t saveDirectIntoVoxaImage(TevStream& stream, const DirectRecord& r) {
    if (checkMP4Stream(&stream) == LUMET_TEV_TRUE) {
        logLine(kLogError, "TEVEncoderAPIs::saveDirectTEVData", "SIGNATURE_VOXA is not use MP4 Format");
        return LUMET_TEV_FALSE;
    }
    if (!voxa::convertBareSoundForSave(stream, r.length, 0, r.nameLength(), "TEVEncoderAPIs::saveDirectTEVData")) {
        return LUMET_TEV_FALSE;
    }
    StreamPackPtr pack(checkTEVInStreamAndUpdate(&stream));
    OwnedVoxaOnStream voxa = parseVoxaBlock(stream);
    if (!pack || !voxa) return LUMET_TEV_FALSE;
    return AddDirectTEVDataStream(&stream, pack->info, r.type, r.hasSub, r.bytes, r.length, voxa.get());
}

// Container followed by Voxa sound: deletes and appends with the Voxa
// descriptor so that the Voxa trailer follows every new directory.
uint32_t saveDirectIntoVoxaContainer(TevStream& stream, const DirectRecord& r) {
    StreamPackPtr pack(checkTEVInStreamAndUpdate(&stream));
    OwnedVoxaOnStream voxa = parseVoxaBlock(stream);
    if (!pack || !voxa) {
        logLine(kLogError, "TEVEncoderAPIs::saveDirectTEVData", "SIGNATURE_VOXA_TEV TEVdata == NULL!!");
        return LUMET_TEV_FALSE;
    }
    if (checkTEVInfoForSaving(pack->info, r.length, 0, r.nameLength()) != LUMET_TEV_TRUE) {
        logLine(kLogError, "TEVEncoderAPIs::saveDirectTEVData",
                "SIGNATURE_VOXA_TEV checkTEVInfoForSaving ERROR!!");
        return LUMET_TEV_FALSE;
    }
    const uint32_t index = findRecord(pack.get(), r.name);
    if (index != kNameNotFound) {
        if (!r.replaces()) {
            logLine(kLogError, "TEVEncoderAPIs::saveDirectTEVData", "SIGNATURE_VOXA_TEV NOT UPDATE!!");
            return existingNameResult(stream);
        }
        const bool listed = isListedSound(pack.get(), r.name);
        if (DeleteATEVDataStream(pack->info, index, voxa.get()) != LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
        // The delete moved the records and rewrote the Voxa trailer: both
        // are parsed again so that the append writes the current positions.
        pack.reset(checkTEVInStreamAndUpdate(&stream));
        voxa = parseVoxaBlock(stream);
        if (!pack) {
            if (getSignatureStream(&stream) != SIGNATURE_DETECTION_FAIL) return LUMET_TEV_FALSE;
            return AddDirectTEVDataInFirstTimeFP(r.fp, r.type, r.hasSub, r.bytes, r.length);
        }
        const uint32_t added = AddDirectTEVDataFP(r.fp, pack->info, r.type, r.hasSub, r.bytes, r.length, voxa.get());
        pack.reset();
        // The delete took a listed sound's name out of the list; the record
        // is back, so its name is too.
        if (added == LUMET_TEV_TRUE && listed) relistSound(stream, r.name);
        return added;
    }
    return AddDirectTEVDataFP(r.fp, pack->info, r.type, r.hasSub, r.bytes, r.length, voxa.get());
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
            return saveDirectIntoContainer(stream, direct);
        case SIGNATURE_VOXA:
            return saveDirectIntoVoxaImage(stream, direct);
        case SIGNATURE_VOXA_TEV:
            return saveDirectIntoVoxaContainer(stream, direct);
        default:
            return LUMET_TEV_FALSE;
    }
}
