// Storing a named sound in an image whatever it already holds, and copying
// the sounds of one image into another.
#include <cstdio>
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "container/format.h"
#include "container/owned.h"
#include "editor/add_internal.h"
#include "editor/save_internal.h"
#include "tev/container.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "tev/query.h"
#include "tev/sound.h"
#include "tev/voxa.h"
#include "stream/safe_edit.h"
#include "util/log.h"
#include "echo/meta_list.h"
#include "voxa/sound_internal.h"

namespace {

using tev::voxa::kFirstSoundName;
using tev::voxa::kFirstSoundNameLength;
using tev::voxa::kMetaRecordName;
using tev::voxa::kMetaRecordNameLength;
using tev::voxa::kMetaType;
using tev::voxa::kSoundType;
using tev::voxa::MetaList;

constexpr char kTag[] = "TEVVoxaAPIs::saveVoxaToImageStream";
constexpr uint32_t kTooBigSound = tev::kTooBigDataLength;

// One sound as the caller hands it over.
struct Sound {
    const unsigned char* data;
    uint32_t size;
    const char* name;
    uint32_t nameLength;
    std::string key() const { return std::string(name, nameLength); }
};

bool readList(_TEV_info_pack* pack, MetaList* list) {
    const tev::OwnedUnit unit(extractTEVDataFromFilebyName(pack, kMetaRecordName, kMetaRecordNameLength));
    return unit && tev::voxa::parseMetaList(unit->data, unit->data_length, list);
}

uint32_t saveSoundRecord(TevStream& stream, const Sound& s) {
    return saveTEVDataToStream(&stream, s.name, s.nameLength, nullptr, 0, s.data, s.size, kSoundType, 1);
}

uint32_t addFirst(TevStream& stream, const Sound& s, const MetaList& list) {
    const std::vector<unsigned char> meta = list.bytes();
    return NewAddVoxaDataInFirstTimeStream(&stream, kMetaType, kSoundType, s.name, s.nameLength, s.data, s.size,
                                           meta.data(), static_cast<uint32_t>(meta.size()));
}

uint32_t addBehind(_TEV_info* info, const Sound& s, const MetaList& list) {
    const std::vector<unsigned char> meta = list.bytes();
    return NewAddVoxaData(info, kMetaType, kSoundType, s.name, s.nameLength, s.data, s.size, meta.data(),
                          static_cast<uint32_t>(meta.size()));
}

// A container without a Voxa block. A record of the sound's name goes
// first; the sound and a list naming it alone follow, with a block behind
// the new directory (a list left by earlier edits stays as it is).
uint32_t saveIntoContainer(TevStream& stream, const Sound& s) {
    tev::OwnedPackOnStream pack(checkTEVInStreamAndUpdate(&stream));
    if (!pack || checkTEVInfoForSaving(pack->info, s.size, 0, s.nameLength) != LUMET_TEV_TRUE) {
        return LUMET_TEV_FALSE;
    }
    const std::string key = s.key();
    const uint32_t index = _getIndexOfName(pack.get(), key.c_str());
    if (index < pack->info->meta_count) {
        if (DeleteATEVDataStream(pack->info, index, nullptr) != LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
        pack.reset(checkTEVInStreamAndUpdate(&stream));
    }
    MetaList list;
    list.names.push_back(key);
    if (!pack) {
        if (getSignatureStream(&stream) != SIGNATURE_DETECTION_FAIL) return LUMET_TEV_FALSE;
        return addFirst(stream, s, list);
    }
    return addBehind(pack->info, s, list);
}

// A bare Voxa block: its sound becomes "EchoFrame_000" and the caller's
// sound a record beside it.
uint32_t saveIntoBareVoxa(TevStream& stream, const Sound& s) {
    if (checkMP4Stream(&stream) == LUMET_TEV_TRUE) {
        tev::logLine(tev::kLogError, kTag, "SIGNATURE_VOXA is not use MP4 Format");
        return LUMET_TEV_FALSE;
    }
    tev::OwnedVoxaOnStream voxa = tev::parseVoxaBlock(stream);
    if (!voxa) return LUMET_TEV_FALSE;
    if (checkVoxaInfoForSaving(voxa.get(), s.size, 0, s.nameLength) != LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
    tev::voxa::SoundSpan old{};
    if (!tev::voxa::firstSound(voxa.get(), &old)) {
        // A block without a sound stays between the media and the records.
        // The list names "EchoFrame_000" while the record bears the
        // caller's name.
        voxa.reset();
        MetaList list;
        list.names.emplace_back(kFirstSoundName);
        return addFirst(stream, s, list);
    }
    const tev::KUnique<unsigned char> bytes(_getAudioStreamBuffer(voxa.get()));
    if (!bytes) return LUMET_TEV_FALSE;
    voxa.reset();
    if (deleteAVoxaStream(&stream) != LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
    MetaList list;
    list.names = {kFirstSoundName, s.key()};
    const Sound first{bytes.get(), old.length, kFirstSoundName, kFirstSoundNameLength};
    if (addFirst(stream, first, list) != LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
    return saveSoundRecord(stream, s);
}

// A container with a block whose sound is not kept as a record yet: the
// old sound becomes "EchoFrame_000" and the caller's sound joins it.
uint32_t convertOldSoundThenSave(TevStream& stream, _voxa_info_struct* voxa, const Sound& s) {
    const tev::KUnique<unsigned char> bytes(_getAudioStreamBuffer(voxa));
    tev::voxa::SoundSpan old{};
    if (!bytes || !tev::voxa::firstSound(voxa, &old)) return saveIntoContainer(stream, s);
    if (deleteAVoxaStream(&stream) != LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
    MetaList list;
    list.names = {kFirstSoundName, s.key()};
    const Sound first{bytes.get(), old.length, kFirstSoundName, kFirstSoundNameLength};
    tev::OwnedPackOnStream pack(checkTEVInStreamAndUpdate(&stream));
    uint32_t added = LUMET_TEV_FALSE;
    if (pack) {
        added = addBehind(pack->info, first, list);
    } else if (getSignatureStream(&stream) == SIGNATURE_DETECTION_FAIL) {
        added = addFirst(stream, first, list);
    }
    pack.reset();
    return added == LUMET_TEV_TRUE ? saveSoundRecord(stream, s) : LUMET_TEV_FALSE;
}

// The meta record's list with the caller's name appended, as the list
// builder writes it into room for 100 bytes per record (more when the list
// would not fit there); empty when the list does not read.
std::vector<unsigned char> listWithName(_TEV_info* info, uint32_t metaIndex, const Sound& s) {
    const _TEV_data_info* entry = info->meta_data[metaIndex];
    const uint64_t fits = uint64_t{entry != nullptr ? entry->length : 0} + sizeof(uint32_t) + s.nameLength;
    std::vector<unsigned char> header(std::max<uint64_t>(uint64_t{100} * info->meta_count, fits));
    const uint32_t size = makeAddVoxaHeader(reinterpret_cast<char*>(header.data()), info, metaIndex, s.name,
                                            s.nameLength);
    header.resize(size);
    return header;
}

// A container followed by a Voxa block. Without a list the old sound is
// turned into "EchoFrame_000" first; a listed name is replaced in place;
// a new name is added to the list, then its sound is saved.
uint32_t saveIntoVoxaContainer(TevStream& stream, const Sound& s) {
    tev::OwnedPackOnStream pack;
    tev::OwnedVoxaOnStream voxa;
    if (!tev::openVoxaContainerForSave(stream, s.size, 0, s.nameLength, kTag, &pack, &voxa)) {
        return LUMET_TEV_FALSE;
    }
    const uint32_t metaIndex = _getIndexOfName(pack.get(), kMetaRecordName);
    if (metaIndex >= pack->info->meta_count) {
        pack.reset();
        return convertOldSoundThenSave(stream, voxa.get(), s);
    }
    const tev::OwnedUnit meta(extractTEVDataFromFilebyName(pack.get(), kMetaRecordName, kMetaRecordNameLength));
    if (isIdenticalNameInMetaInfo(meta.get(), s.key().c_str()) != 0) {
        pack.reset();
        return saveSoundRecord(stream, s);
    }
    const std::vector<unsigned char> header = listWithName(pack->info, metaIndex, s);
    pack.reset();
    voxa.reset();
    if (saveTEVDataToStream(&stream, kMetaRecordName, kMetaRecordNameLength, nullptr, 0, header.data(),
                            static_cast<uint32_t>(header.size()), kMetaType, 1) != LUMET_TEV_TRUE) {
        tev::logLine(tev::kLogError, kTag, "SIGNATURE_VOXA_TEV NOT UPDATE!!");
        return LUMET_TEV_FALSE;
    }
    return saveSoundRecord(stream, s);
}

// The records of `src` named by its list, in directory order, saved into
// `dst` one by one so that the destination's list grows by the same names.
// A source without a list has nothing to copy.
void copyListedSounds(TevStream& src, TevStream& dst) {
    tev::OwnedPackOnStream pack(checkTEVInStreamAndUpdate(&src));
    MetaList list;
    if (!pack || !readList(pack.get(), &list)) return;
    std::vector<std::pair<std::string, tev::OwnedUnit>> sounds;
    for (uint32_t i = 0; i < pack->info->meta_count; ++i) {
        const char* name = pack->info->meta_data[i]->name;
        if (name == nullptr || !list.contains(name)) continue;
        sounds.emplace_back(name, tev::OwnedUnit(extractTEVDataFromFilebyIndex(pack.get(), i)));
    }
    pack.reset();
    for (auto& [name, unit] : sounds) {
        if (!unit || unit->data == nullptr) continue;
        saveVoxaToImageStream(&dst, unit->data, unit->data_length, name.c_str(),
                              static_cast<uint32_t>(name.size()));
    }
}

// A bare sound becomes records in place; true when the stream then holds them.
bool convertInPlace(TevStream& stream) {
    _voxa_info_struct* voxa = checkVoxaInStream(&stream);
    if (voxa == nullptr) return false;
    const uint32_t converted = convertVoxaToEchoFrame(&voxa);
    DestroyVoxaStream(voxa);
    return converted == LUMET_TEV_TRUE;
}

}  // namespace

uint32_t saveVoxaToImageStream(TevStream* stream, unsigned char* data, uint32_t size, const char* name,
                               uint32_t name_len) {
    if (stream == nullptr) {
        tev::logLine(tev::kLogError, kTag, "Stream is null");
        return LUMET_TEV_FALSE;
    }
    if (data == nullptr || size == 0) {
        tev::logLine(tev::kLogError, kTag, "audioStream null");
        return LUMET_TEV_FALSE;
    }
    if (size >= kTooBigSound) return LUMET_TEV_FALSE;
    if (name == nullptr || name_len == 0) {
        tev::logLine(tev::kLogError, kTag, "voxa name is null or voxa_name_len is 0");
        return LUMET_TEV_FALSE;
    }
    const Sound sound{data, size, name, name_len};
    const uint32_t signature = getSignatureStream(stream);
    // Sounds live only in images: the records of an MP4 or HEIC file sit in
    // one "tevd" box that must end with the file, which a sound block
    // behind it would break. A bare sound or a container with sound gets
    // its own refusal below.
    if ((signature == SIGNATURE_DETECTION_FAIL || signature == SIGNATURE_TEV) &&
        checkMP4Stream(stream) == LUMET_TEV_TRUE) {
        tev::logLine(tev::kLogError, kTag, "sound is not saved in MP4 or HEIC");
        return LUMET_TEV_FALSE;
    }
    switch (signature) {
        case SIGNATURE_DETECTION_FAIL: {
            MetaList list;
            list.names.push_back(sound.key());
            return addFirst(*stream, sound, list);
        }
        case SIGNATURE_TEV:
            return saveIntoContainer(*stream, sound);
        case SIGNATURE_VOXA:
            return saveIntoBareVoxa(*stream, sound);
        case SIGNATURE_VOXA_TEV:
            return saveIntoVoxaContainer(*stream, sound);
        default:
            return LUMET_TEV_TRUE;
    }
}

uint32_t saveVoxaToImageFile(const char* path, unsigned char* data, uint32_t size, const char* name,
                             uint32_t name_len) {
    if (size >= kTooBigSound) {
        tev::logLine(tev::kLogError, "TEVVoxaAPIs::saveVoxaToImageFile", "Too big file to add");
        return LUMET_TEV_FALSE;
    }
    const tev::OwnedFile file(path != nullptr ? std::fopen(path, "r+b") : nullptr);
    if (!file) return LUMET_TEV_FALSE;
    // Declared after the file, so the stream is gone before the file closes:
    // releasing it still touches the descriptor.
    TevStreamFile stream(file.get());
    return tev::guardedStreamEdit(&stream, [&](TevStream& edited) {
        return saveVoxaToImageStream(&edited, data, size, name, name_len);
    });
}

uint32_t copyEchoFrameData(TevStream* src, TevStream* dst) {
    if (src == nullptr || dst == nullptr || !dst->CheckError()) return LUMET_TEV_FALSE;
    tev::OwnedPackOnStream pack(checkTEVInStream(src));
    MetaList list;
    if (!pack || !readList(pack.get(), &list) || list.names.empty()) return LUMET_TEV_FALSE;
    const tev::OwnedUnit meta(extractTEVDataFromFilebyName(pack.get(), kMetaRecordName, kMetaRecordNameLength));
    if (!meta) return LUMET_TEV_FALSE;
    std::vector<tev::OwnedUnit> sounds;
    for (const std::string& name : list.names) {
        sounds.emplace_back(extractTEVDataFromFilebyName(pack.get(), name.c_str(),
                                                         static_cast<unsigned int>(name.size())));
        if (!sounds.back()) return LUMET_TEV_FALSE;
    }
    const int64_t at = dst->seek(0, SEEK_END);
    // Records, directory and block must keep every position in 32 bits.
    uint64_t total = uint64_t(at < 0 ? 0 : at) + meta->data_length + kMetaRecordNameLength;
    std::vector<uint32_t> lengths;
    for (size_t i = 0; i < sounds.size(); ++i) {
        lengths.push_back(_getDataLength(0, static_cast<uint32_t>(list.names[i].size()), 0, sounds[i]->data_length));
        total += uint64_t{lengths.back()};
    }
    const uint32_t metaLength = _getDataLength(0, kMetaRecordNameLength, 0, meta->data_length);
    if (at < 0 || metaLength == 0 || total + 1024 >= UINT32_MAX) return LUMET_TEV_FALSE;
    // The sound records in list order, then the list record with the
    // source's payload unchanged; a write that fails ends the copy.
    for (size_t i = 0; i < sounds.size(); ++i) {
        const std::string& name = list.names[i];
        if (writeTEVData(dst, kSoundType, 0, name.data(), static_cast<uint32_t>(name.size()), nullptr, 0,
                         sounds[i]->data, sounds[i]->data_length) != sounds[i]->data_length) {
            return LUMET_TEV_FALSE;
        }
    }
    if (writeTEVData(dst, kMetaType, 0, kMetaRecordName, kMetaRecordNameLength, nullptr, 0, meta->data,
                     meta->data_length) != meta->data_length) {
        return LUMET_TEV_FALSE;
    }
    // One entry per sound record, offsets counted back from the directory,
    // then the list record's entry.
    uint32_t behind = metaLength;
    for (uint32_t length : lengths) behind += length;
    std::vector<_TEV_data_info> entries;
    for (size_t i = 0; i < sounds.size(); ++i) {
        entries.push_back(tev::makeEntry(_setMetaType(static_cast<uint16_t>(sounds[i]->data_type), 0), behind,
                                         lengths[i]));
        behind -= lengths[i];
    }
    entries.push_back(tev::makeEntry(_setMetaType(kMetaType, 0), metaLength, metaLength));
    std::vector<_TEV_data_info*> directory;
    for (_TEV_data_info& entry : entries) directory.push_back(&entry);
    if (!tev::writeDirectory(*dst, static_cast<uint32_t>(directory.size()), directory).ok()) {
        return LUMET_TEV_FALSE;
    }
    const uint32_t start = static_cast<uint32_t>(at + tev::kTagHeaderSize + list.names[0].size());
    return dst->writeVoxaHeader(start, start + sounds[0]->data_length) == 1 ? LUMET_TEV_TRUE : LUMET_TEV_FALSE;
}

uint32_t copyVoxaDataStream(TevStream* src, TevStream* dst) {
    if (src == nullptr || dst == nullptr) return LUMET_TEV_FALSE;
    const uint32_t dstSignature = getSignatureStream(dst);
    uint32_t srcSignature = getSignatureStream(src);
    if (dstSignature < SIGNATURE_DETECTION_FAIL || dstSignature > SIGNATURE_VOXA_TEV) return LUMET_TEV_TRUE;
    // A bare sound in the destination becomes records first, whatever the
    // source turns out to hold.
    if (dstSignature == SIGNATURE_VOXA) convertInPlace(*dst);
    if (srcSignature == SIGNATURE_DETECTION_FAIL || srcSignature == SIGNATURE_TEV) return LUMET_TEV_FALSE;
    // A bare sound in the source becomes records there too; the copy then
    // goes on from the converted source.
    if (srcSignature == SIGNATURE_VOXA) {
        if (!convertInPlace(*src)) return LUMET_TEV_FALSE;
        srcSignature = getSignatureStream(src);
        if (srcSignature != SIGNATURE_VOXA_TEV) return LUMET_TEV_FALSE;
    }
    if (dstSignature == SIGNATURE_DETECTION_FAIL) {
        copyEchoFrameData(src, dst);
        return LUMET_TEV_TRUE;
    }
    copyListedSounds(*src, *dst);
    return LUMET_TEV_TRUE;
}

uint32_t copyVoxaData(const char* src, const char* dst) {
    const tev::OwnedFile srcFile(src != nullptr ? _kfopen(src, "r+b") : nullptr);
    const tev::OwnedFile dstFile(dst != nullptr ? _kfopen(dst, "r+b") : nullptr);
    if (srcFile && dstFile) {
        TevStreamFile srcStream(srcFile.get());
        TevStreamFile dstStream(dstFile.get());
        // The source may be converted in place too: both are guarded edits.
        tev::guardedStreamEdit(&dstStream, [&](TevStream& dstEdited) {
            return tev::guardedStreamEdit(&srcStream, [&](TevStream& srcEdited) {
                return copyVoxaDataStream(&srcEdited, &dstEdited);
            });
        });
    }
    return LUMET_TEV_TRUE;
}
