// The sound records of a container: their name list, lookups, conversion of
// a bare Voxa sound into records, and deleting sounds from an image file.
#include <cstring>

#include "container/format.h"
#include "container/owned.h"
#include "tev/container.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "tev/query.h"
#include "tev/sound.h"
#include "tev/voxa.h"
#include "stream/safe_edit.h"
#include "util/log.h"
#include "echo/echoframe_internal.h"
#include "echo/meta_list.h"
#include "voxa/voxa_internal.h"

namespace {

using tev::voxa::kFirstSoundName;
using tev::voxa::kFirstSoundNameLength;
using tev::voxa::kMetaRecordName;
using tev::voxa::kMetaRecordNameLength;
using tev::voxa::MetaList;

using tev::OwnedUnit;

OwnedUnit extractMeta(_TEV_info_pack* pack) {
    return OwnedUnit(extractTEVDataFromFilebyName(pack, kMetaRecordName, kMetaRecordNameLength));
}

// The pack's sound list; false when there is no meta record or it is damaged.
bool metaListOf(_TEV_info_pack* pack, MetaList* list) {
    const OwnedUnit unit = extractMeta(pack);
    return unit && tev::voxa::parseMetaList(unit->data, unit->data_length, list);
}

uint32_t deleteByName(TevStream* stream, const char* name) {
    _TEV_info_pack* pack = checkTEVInStreamAndUpdate(stream);
    if (pack == nullptr) return LUMET_TEV_FALSE;
    const uint32_t result =
        deleteTEVDataFromStreambyName(stream, pack, name, static_cast<uint32_t>(std::strlen(name)));
    destroyTEVDATA_Stream(pack);
    return result;
}

// The name count K of the list decides: one name, the record `name` and
// then the list go; more, the one record goes and the list is left as it
// is. Either way the result is 1, whether or not `name` was a listed sound
// or a record at all. No list (or K = 0): nothing happens, 0.
uint32_t deleteFromVoxaContainer(TevStream& stream, const char* name) {
    tev::OwnedPackOnStream pack(checkTEVInStreamAndUpdate(&stream));
    const uint32_t count = pack ? getVoxaCntInFile(pack.get()) : 0xFFFFFFFFu;
    if (count == 0 || count == 0xFFFFFFFFu) return LUMET_TEV_FALSE;
    if (count == 1) {
        pack.reset();
        deleteByName(&stream, name);
        deleteByName(&stream, kMetaRecordName);
        return LUMET_TEV_TRUE;
    }
    _TEV_info_pack* raw = pack.release();
    deleteEchoFrameDataFromFilebyName(&raw, name, static_cast<uint32_t>(std::strlen(name)), 0);
    destroyTEVDATA_Stream(raw);
    return LUMET_TEV_TRUE;
}

}  // namespace

_voxa_info_struct* checkVoxaInStream(TevStream* stream) {
    const uint32_t signature = getSignatureStream(stream);
    if (signature != SIGNATURE_VOXA && signature != SIGNATURE_VOXA_TEV) return nullptr;
    _voxa_info_struct* voxa = _checkAudioInImageStream(stream);
    if (voxa != nullptr && voxa->version < tev::kVoxaWriterVersion && voxa->sound_count == 0) {
        DestroyVoxaStream(voxa);
        return nullptr;
    }
    return voxa;
}

uint32_t getEchoFrameNameList(_TEV_info_pack* pack, char*** names, uint32_t* count) {
    if (names == nullptr || count == nullptr) return LUMET_TEV_FALSE;
    *names = nullptr;
    *count = 0;
    MetaList list;
    if (pack == nullptr || !metaListOf(pack, &list)) return LUMET_TEV_FALSE;
    const size_t total = list.names.size();
    char** out = static_cast<char**>(_kcalloc(total == 0 ? 1 : total, sizeof(char*)));
    if (out == nullptr) return LUMET_TEV_FALSE;
    for (size_t i = 0; i < total; ++i) {
        out[i] = static_cast<char*>(_kmalloc(list.names[i].size() + 1));
        if (out[i] == nullptr) {
            for (size_t j = 0; j < i; ++j) _kfree(out[j]);
            _kfree(out);
            return LUMET_TEV_FALSE;
        }
        std::memcpy(out[i], list.names[i].data(), list.names[i].size());
    }
    *names = out;
    *count = static_cast<uint32_t>(total);
    return LUMET_TEV_TRUE;
}

uint32_t getVoxaCntInFile(_TEV_info_pack* pack) {
    const OwnedUnit unit = extractMeta(pack);
    // The count is the third word; a shorter payload holds no list.
    constexpr uint32_t kCountEnd = 12;
    if (!unit || unit->data == nullptr || unit->data_length < kCountEnd) return 0xFFFFFFFFu;
    return getVoxaHeaderCount(reinterpret_cast<char*>(unit->data));
}

void getVoxaInFile(_TEV_info_pack* pack, char* name, uint32_t /*len*/) {
    if (pack == nullptr || name == nullptr) return;
    DestroyOffsetInfo(getTEVInFileByName(pack, name));
}

_voxa_audio_buffer* getAudioStreamBuffer(_TEV_info_pack* pack, char* name, uint32_t len) {
    if (pack == nullptr || name == nullptr) return nullptr;
    TevOffsetInfo* where = getTEVInFileByName(pack, name);
    if (where == nullptr) return nullptr;
    const int64_t length = where->length;
    DestroyOffsetInfo(where);
    OwnedUnit unit(extractTEVDataFromFilebyName(pack, name, len));
    if (!unit) return nullptr;
    auto* buffer = static_cast<_voxa_audio_buffer*>(_kmalloc(sizeof(_voxa_audio_buffer)));
    if (buffer == nullptr) return nullptr;
    buffer->length = static_cast<uint32_t>(length);
    buffer->data_unit = unit.release();
    return buffer;
}

void destroyAudioStreamBuffer(_voxa_audio_buffer* buffer) {
    if (buffer == nullptr) return;
    destroyTEVDATA_UNIT(buffer->data_unit);
    _kfree(buffer);
}

uint32_t deleteEchoFrameDataFromFilebyName(_TEV_info_pack** pack, const char* name, uint32_t /*len*/,
                                           uint32_t /*unused*/) {
    if (pack == nullptr || *pack == nullptr || name == nullptr || (*pack)->info == nullptr) return 0;
    _TEV_info* info = (*pack)->info;
    const uint32_t index = _getIndexOfName(*pack, name);
    if (index >= info->meta_count || info->Stream == nullptr) return 0;
    tev::OwnedVoxaOnStream voxa(_checkAudioInImageStream(info->Stream));
    if (!voxa) return 0;
    return DeleteATEVDataStream(info, index, voxa.get()) == LUMET_TEV_TRUE ? 1 : 0;
}

uint32_t deleteEchoFrameDataFromFilebyIndex(_TEV_info* /*info*/, int64_t /*index*/, uint32_t /*unused*/) {
    return 0;
}

uint32_t isIdenticalNameInMetaInfo(_TEV_data_unit* unit, const char* name) {
    MetaList list;
    if (unit == nullptr || name == nullptr || !tev::voxa::parseMetaList(unit->data, unit->data_length, &list)) {
        return 0;
    }
    return list.contains(name) ? 1 : 0;
}

uint32_t convertVoxaToEchoFrame(_voxa_info_struct** voxa) {
    if (voxa == nullptr || *voxa == nullptr || (*voxa)->stream == nullptr) return LUMET_TEV_FALSE;
    tev::voxa::SoundSpan sound{};
    if (!tev::voxa::firstSound(*voxa, &sound)) return LUMET_TEV_FALSE;
    const tev::KUnique<unsigned char> bytes(_getAudioStreamBuffer(*voxa));
    if (!bytes) return LUMET_TEV_FALSE;
    TevStream* stream = (*voxa)->stream;
    if (deleteVoxa_NotExistTEV_Stream(stream, *voxa) != LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
    unsigned char meta[tev::voxa::kMetaBufferSize];
    const uint32_t metaSize = makeFirstVoxaHeader(meta, kFirstSoundName, kFirstSoundNameLength);
    return NewAddVoxaDataInFirstTimeStream(stream, tev::voxa::kMetaType, tev::voxa::kSoundType, kFirstSoundName,
                                           kFirstSoundNameLength, bytes.get(), sound.length, meta, metaSize);
}

uint32_t deleteVoxaFromImageFile(const char* path, const char* name) {
    const tev::OwnedFile file(path != nullptr ? std::fopen(path, "r+b") : nullptr);
    if (!file || name == nullptr) return LUMET_TEV_FALSE;
    TevStreamFile fileStream(file.get());
    return tev::guardedStreamEdit(&fileStream, [&](TevStream& stream) -> uint32_t {
        switch (getSignatureStream(&stream)) {
            case SIGNATURE_DETECTION_FAIL:
            case SIGNATURE_TEV:
                return LUMET_TEV_FALSE;
            case SIGNATURE_VOXA:
                return deleteAVoxaStream(&stream);
            case SIGNATURE_VOXA_TEV:
                return deleteFromVoxaContainer(stream, name);
            default:
                return LUMET_TEV_TRUE;
        }
    });
}

uint32_t deleteAllVoxaFromImageFile(const char* path) {
    const tev::OwnedFile file(path != nullptr ? std::fopen(path, "r+b") : nullptr);
    if (!file) return LUMET_TEV_FALSE;
    TevStreamFile fileStream(file.get());
    return tev::guardedStreamEdit(&fileStream, [&](TevStream& stream) -> uint32_t {
        if (getSignatureStream(&stream) != SIGNATURE_VOXA_TEV) return LUMET_TEV_FALSE;
        tev::OwnedVoxaOnStream voxa(_checkAudioInImageStream(&stream));
        MetaList list;
        {
            tev::OwnedPackOnStream pack(checkTEVInStreamAndUpdate(&stream));
            if (!voxa || !pack) return LUMET_TEV_FALSE;
            if (!metaListOf(pack.get(), &list) || list.names.empty()) {
                deleteVoxa_ExistTEV_Stream(&stream, voxa.get());
                return LUMET_TEV_TRUE;
            }
        }
        for (const std::string& name : list.names) deleteByName(&stream, name.c_str());
        // The list goes last, if deleting its sounds left it behind.
        tev::OwnedPackOnStream pack(checkTEVInStreamAndUpdate(&stream));
        const uint32_t metaIndex = pack ? _getIndexOfName(pack.get(), kMetaRecordName) : 0xFFFFFFFFu;
        if (pack && metaIndex < pack->info->meta_count) DeleteATEVDataStream(pack->info, metaIndex, nullptr);
        return LUMET_TEV_TRUE;
    });
}

namespace tev::voxa {

bool convertBareSoundForSave(TevStream& stream, uint32_t dataLength, uint32_t subLength, uint32_t nameLength,
                             const char* tag) {
    OwnedVoxaOnStream voxa(checkVoxaInStream(&stream));
    if (!voxa || checkVoxaInfoForSaving(voxa.get(), dataLength, subLength, nameLength) != LUMET_TEV_TRUE) {
        return false;
    }
    SoundSpan sound{};
    if (!firstSound(voxa.get(), &sound)) return false;
    const KUnique<unsigned char> bytes(_getAudioStreamBuffer(voxa.get()));
    if (!bytes || deleteVoxa_NotExistTEV_Stream(&stream, voxa.get()) != LUMET_TEV_TRUE) return false;
    unsigned char meta[kMetaBufferSize];
    const uint32_t metaSize = makeFirstVoxaHeader(meta, kFirstSoundName, kFirstSoundNameLength);
    if (metaSize == 0) {
        logLine(kLogError, tag, "headerBuff_szie <= 0");
        return false;
    }
    if (NewAddVoxaDataInFirstTimeStream(&stream, kMetaType, kSoundType, kFirstSoundName, kFirstSoundNameLength,
                                        bytes.get(), sound.length, meta, metaSize) != LUMET_TEV_TRUE) {
        logLine(kLogError, tag, "NewAddVoxaDataInFirstTimeFP fail");
        return false;
    }
    return true;
}

}  // namespace tev::voxa
