// saveTEVDataToStream: the one body behind every save entry point. It looks
// at what the stream already holds and adds the record as a first record, as
// an append, or as a replacement of a record of the same name, keeping the
// "tevd" box of MP4 media up to date.
#include <cstdio>
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "container/check_internal.h"
#include "container/format.h"
#include "editor/add_internal.h"
#include "editor/save_internal.h"
#include "editor/sound_bridge.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "tev/mp4.h"
#include "tev/query.h"
#include "tev/sound.h"
#include "util/log.h"

namespace tev {

KUnique<char[]> copyNameKey(const char* name, uint32_t length) {
    KUnique<char[]> key(static_cast<char*>(_kmalloc(size_t{length} + 1)));
    if (key) std::memcpy(key.get(), name, length);
    return key;
}

OwnedVoxaOnStream parseVoxaBlock(TevStream& stream) {
    OwnedVoxaOnStream voxa(_checkAudioInImageStream(&stream));
    if (voxa && voxa->version < kVoxaWriterVersion && voxa->sound_count == 0) voxa.reset();
    return voxa;
}

uint32_t voxaPositionMark(_TEV_info& info, _voxa_info_struct& voxa, uint32_t index) {
    const uint32_t soundIndex = FindOldVoxaIndex(&info, &voxa);
    if (soundIndex >= info.meta_count) return kVoxaMarkAfter;
    if (index < soundIndex) return kVoxaMarkBefore;
    return index == soundIndex ? kVoxaMarkItself : kVoxaMarkAfter;
}

uint32_t findRecord(_TEV_info_pack* pack, const char* key) {
    const uint32_t index = _getIndexOfName(pack, key);
    return index < pack->data_count ? index : kNameNotFound;
}

uint32_t existingNameResult(TevStream& stream) {
    return stream.GetStreamType() == TEV_STREAM_BUFFER ? LUMET_TEV_TRUE : LUMET_TEV_FALSE;
}

uint32_t appendRequest(TevStream& stream, _TEV_info* info, const SaveRequest& r, _voxa_info_struct* voxa,
                       bool* complete) {
    const RecordArgs record{r.name, r.nameLength, r.type, r.sub, r.subLength, r.data, r.dataLength};
    return appendRecord(&stream, info, record, voxa, complete);
}

namespace {

uint32_t addFirstRecord(TevStream& stream, const SaveRequest& r) {
    return AddTEVDataInFirstTimeStream(&stream, r.name, r.nameLength, r.type, r.sub, r.subLength,
                                       r.data, r.dataLength);
}


// On MP4 media, opens a "tevd" box with a placeholder size at the end of the
// stream. True when the box header was written.
bool openBoxOnMp4Media(TevStream& stream, int64_t* boxPosition) {
    if (checkMP4Stream(&stream) != LUMET_TEV_TRUE) return false;
    if (stream.seek(0, SEEK_END) < 0) return false;
    return writeMP4TagStream(&stream, boxPosition) == LUMET_TEV_TRUE;
}

// Re-parses the stream after an edit so that the box can be sized from the
// new index; logs when nothing parses.
OwnedPackOnStream reparseForBox(TevStream& stream) {
    OwnedPackOnStream pack(checkTEVInStreamAndUpdate(&stream));
    if (!pack) logLine(kLogError, "TEVEncoderAPIs::saveTEVDataToStream", "updateMP4Tag TEVdata is NULL.");
    return pack;
}

// After records were written whole behind media into a box: size the box
// from a fresh index of the directory alone. Every record is either one the
// parse before the write read in full, untouched by the write, or the one
// just written, so the names are not read again to size the box.
void resizeBox(TevStream& stream) {
    const OwnedTevInfo info = parseStreamIndex(&stream, false);
    if (!info) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataToStream", "updateMP4Tag TEVdata is NULL.");
        return;
    }
    updateMP4Tag(info.get());
}

// After records were written behind media: bring the box size (or, for a
// container that has no box yet, the box itself) up to date.
void refreshBox(TevStream& stream, bool wrapFirst) {
    OwnedPackOnStream pack = reparseForBox(stream);
    if (pack && wrapFirst) {
        // The wrap writes the container's own length as the box size; the
        // update below, on a fresh index that sees the box, writes its full length.
        if (writeMP4Tag(pack->info) != LUMET_TEV_TRUE) return;
        pack = reparseForBox(stream);
    }
    if (pack) updateMP4Tag(pack->info);
}

}  // namespace

uint32_t readdAsFirstRecord(TevStream& stream, const SaveRequest& r, bool withBox) {
    // A container that is still there but no longer parses is not written over.
    if (getSignatureStream(&stream) != SIGNATURE_DETECTION_FAIL) return LUMET_TEV_FALSE;
    int64_t boxPosition = 0;
    const bool boxed = withBox && openBoxOnMp4Media(stream, &boxPosition);
    const uint32_t added = addFirstRecord(stream, r);
    // In a box, the result is that of sizing the box, whatever the add gave.
    return boxed ? updateMP4TagStream(&stream, boxPosition) : added;
}

namespace {

constexpr char kSaveTag[] = "TEVEncoderAPIs::saveTEVDataToStream";

// Voxa sound without a container: the sound is first turned into the
// container's "EchoFrame_000" record with its "EchoFrame_Meta_Info" list,
// then the record is appended with the Voxa block behind the directory.
uint32_t saveIntoVoxaImage(TevStream& stream, const SaveRequest& r) {
    OwnedPackOnStream pack;
    OwnedVoxaOnStream voxa;
    if (!convertVoxaImageForSave(stream, r.dataLength, r.subLength, r.nameLength, kSaveTag, &pack, &voxa)) {
        return LUMET_TEV_FALSE;
    }
    return appendRequest(stream, pack->info, r, voxa.get());
}

// Container followed by Voxa sound: every delete and append carries the
// Voxa descriptor, so the block is rewritten behind each new directory.
uint32_t saveIntoVoxaContainer(TevStream& stream, const SaveRequest& r, const char* key) {
    OwnedPackOnStream pack;
    OwnedVoxaOnStream voxa;
    if (!openVoxaContainerForSave(stream, r.dataLength, r.subLength, r.nameLength, kSaveTag, &pack, &voxa)) {
        return LUMET_TEV_FALSE;
    }
    const uint32_t index = findRecord(pack.get(), key);
    if (index == kNameNotFound) return appendRequest(stream, pack->info, r, voxa.get());
    if (!r.replaces()) {
        logLine(kLogError, kSaveTag, "SIGNATURE_VOXA_TEV NOT UPDATE!!");
        return existingNameResult(stream);
    }
    const bool listed = sound_bridge::isListedSound(pack.get(), key);
    uint32_t mark = kVoxaMarkAfter;
    if (listed) mark = voxaPositionMark(*pack->info, *voxa, index);
    voxa->position_mark = mark;
    if (DeleteATEVDataStream(pack->info, index, voxa.get()) != LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
    pack.reset(checkTEVInStreamAndUpdate(&stream));
    if (!pack) return readdAsFirstRecord(stream, r, false);
    if (listed) return sound_bridge::relistReplacedSound(stream, r, std::move(pack), mark);
    voxa = parseVoxaBlock(stream);
    return appendRequest(stream, pack->info, r, voxa.get());
}

}  // namespace

bool convertVoxaImageForSave(TevStream& stream, uint32_t dataLength, uint32_t subLength, uint32_t nameLength,
                             const char* tag, OwnedPackOnStream* pack, OwnedVoxaOnStream* voxa) {
    if (checkMP4Stream(&stream) == LUMET_TEV_TRUE) {
        logLine(kLogError, tag, "SIGNATURE_VOXA is not use MP4 Format");
        return false;
    }
    if (!sound_bridge::convertBareSound(stream, dataLength, subLength, nameLength, tag)) return false;
    pack->reset(checkTEVInStreamAndUpdate(&stream));
    *voxa = parseVoxaBlock(stream);
    return *pack && *voxa;
}

bool openVoxaContainerForSave(TevStream& stream, uint32_t dataLength, uint32_t subLength, uint32_t nameLength,
                              const char* tag, OwnedPackOnStream* pack, OwnedVoxaOnStream* voxa) {
    if (checkMP4Stream(&stream) == LUMET_TEV_TRUE) {
        logLine(kLogError, tag, "SIGNATURE_VOXA_TEV is not use MP4 Format");
        return false;
    }
    pack->reset(checkTEVInStreamAndUpdate(&stream));
    *voxa = parseVoxaBlock(stream);
    if (!*pack || !*voxa) {
        logLine(kLogError, tag, "SIGNATURE_VOXA_TEV TEVdata == NULL!!");
        return false;
    }
    if (checkTEVInfoForSaving((*pack)->info, dataLength, subLength, nameLength) != LUMET_TEV_TRUE) {
        logLine(kLogError, tag, "SIGNATURE_VOXA_TEV checkTEVInfoForSaving ERROR!!");
        return false;
    }
    return true;
}

uint32_t saveIntoPlainMedia(TevStream& stream, const SaveRequest& r, bool withBox) {
    int64_t boxPosition = 0;
    const bool boxed = withBox && openBoxOnMp4Media(stream, &boxPosition);
    const uint32_t added = addFirstRecord(stream, r);
    // A first record that was added went out whole, with its directory.
    if (boxed && added == LUMET_TEV_TRUE) {
        resizeBox(stream);
    } else if (boxed) {
        refreshBox(stream, false);
    }
    return added;
}

uint32_t saveIntoContainer(TevStream& stream, const SaveRequest& r, const char* key, bool withBox) {
    OwnedPackOnStream pack(checkTEVInStreamAndUpdate(&stream));
    if (!pack) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataToStream", "SIGNATURE_TEV TEVdata NULL!!");
        return LUMET_TEV_FALSE;
    }
    if (checkTEVInfoForSaving(pack->info, r.dataLength, r.subLength, r.nameLength) != LUMET_TEV_TRUE) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataToStream",
                "SIGNATURE_TEV checkTEVInfoForSaving fail!!");
        return LUMET_TEV_FALSE;
    }
    const bool wasBoxed = withBox && checkSignatureMP4Tag(pack->info) == LUMET_TEV_TRUE;
    const uint32_t index = findRecord(pack.get(), key);
    if (index != kNameNotFound) {
        if (!r.replaces()) return existingNameResult(stream);
        if (DeleteATEVDataStream(pack->info, index, nullptr) != LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
        pack.reset(checkTEVInStreamAndUpdate(&stream));
        if (!pack) return readdAsFirstRecord(stream, r, withBox);
    }
    bool complete = false;
    const uint32_t added = appendRequest(stream, pack->info, r, nullptr, &complete);
    pack.reset();
    if (wasBoxed && complete) {
        resizeBox(stream);
    } else if (wasBoxed) {
        refreshBox(stream, false);
    } else if (withBox && checkMP4Stream(&stream) == LUMET_TEV_TRUE) {
        refreshBox(stream, true);
    }
    return added;
}

}  // namespace tev

uint32_t saveTEVDataToStream(TevStream* stream, const char* name, uint32_t name_len,
                             const unsigned char* sub, uint32_t sub_len, const unsigned char* data,
                             uint32_t data_len, uint32_t type, uint32_t update) {
    using namespace tev;
    if (name == nullptr || name_len == 0) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataToStream",
                "TEVName == LUMET_TEV_NULL || TEVName_len <= 0");
        return LUMET_TEV_FALSE;
    }
    if (data == nullptr || data_len == 0) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataToStream", "data == LUMET_TEV_NULL || data_len <= 0");
        return LUMET_TEV_FALSE;
    }
    if (type == TEV_USER_DEFINED_DATA && (sub == nullptr || sub_len == 0)) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataToStream", "type & sub wrong !!");
        return LUMET_TEV_FALSE;
    }
    if (data_len >= kTooBigDataLength) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataToStream", "Too big TEV data to add in the file");
        return LUMET_TEV_FALSE;
    }
    if (stream == nullptr) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataToStream", "Stream NULL !!");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) {
        logLine(kLogError, "TEVEncoderAPIs::saveTEVDataToStream", "Stream CheckError is false");
        return LUMET_TEV_FALSE;
    }
    const SaveRequest request{name, name_len, sub, sub_len, data, data_len, type, update};
    const uint32_t signature = getSignatureStream(stream);
    switch (signature) {
        case SIGNATURE_DETECTION_FAIL:
            return saveIntoPlainMedia(*stream, request, true);
        case SIGNATURE_VOXA:
            return saveIntoVoxaImage(*stream, request);
        case SIGNATURE_TEV:
        case SIGNATURE_VOXA_TEV: {
            const KUnique<char[]> key = copyNameKey(name, name_len);
            if (!key) return LUMET_TEV_FALSE;
            return signature == SIGNATURE_TEV ? saveIntoContainer(*stream, request, key.get(), true)
                                              : saveIntoVoxaContainer(*stream, request, key.get());
        }
        default:
            logLine(kLogError, "TEVEncoderAPIs::saveTEVDataToStream", "Signature detection fail!! mode : %d\n",
                    static_cast<int>(signature));
            return LUMET_TEV_FALSE;
    }
}

uint32_t saveFastTEVDataToStream(TevStream* stream, const char* name, uint32_t name_len,
                                 const unsigned char* sub, uint32_t sub_len, const unsigned char* data,
                                 uint32_t data_len, uint32_t type, uint32_t update) {
    return saveTEVDataToStream(stream, name, name_len, sub, sub_len, data, data_len, type, update);
}
