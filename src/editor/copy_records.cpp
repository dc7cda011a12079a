// Copying the records of one file's container into another, record by
// record through the ordinary save, so that the destination's container is
// rebuilt in its own framing (plain, or inside its MP4 "tevd" box).
// Sub-information is not carried over: each record is saved with its name,
// data and type only.
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "container/owned.h"
#include "tev/copy.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "tev/mp4.h"
#include "tev/query.h"
#include "tev/sound.h"
#include "tev/voxa.h"
#include "stream/safe_edit.h"
#include "util/log.h"

namespace {

constexpr char kTypeTag[] = "TEVEncoderAPIs::copyTEVDataType";
constexpr char kMetaName[] = "EchoFrame_Meta_Info";
constexpr char kFirstSoundName[] = "EchoFrame_000";
constexpr uint32_t kReplace = 1;
constexpr uint32_t kKeep = 0;

// A sound list taken out of a pack: each name and the array freed with _kfree.
class NameList {
public:
    explicit NameList(_TEV_info_pack* pack) {
        if (pack != nullptr) getEchoFrameNameList(pack, &names_, &count_);
    }
    ~NameList() {
        for (uint32_t i = 0; i < count_; ++i) _kfree(names_[i]);
        _kfree(names_);
    }
    NameList(const NameList&) = delete;
    NameList& operator=(const NameList&) = delete;
    bool empty() const { return count_ == 0; }
    bool contains(const char* name) const {
        for (uint32_t i = 0; i < count_; ++i) {
            if (std::strcmp(names_[i], name) == 0) return true;
        }
        return false;
    }

private:
    char** names_ = nullptr;
    uint32_t count_ = 0;
};

const char* entryName(_TEV_info_pack* pack, uint32_t index) {
    const _TEV_info* info = pack->info;
    if (info == nullptr || info->meta_data == nullptr || index >= info->meta_count) return nullptr;
    const _TEV_data_info* entry = info->meta_data[index];
    return entry != nullptr ? entry->name : nullptr;
}

// Saves record `index` of the source into `dst` without its sub-information.
uint32_t saveRecord(_TEV_info_pack* pack, uint32_t index, TevStream& dst, uint32_t update) {
    const char* name = entryName(pack, index);
    const tev::OwnedUnit unit(extractTEVDataFromFilebyIndex(pack, index));
    if (name == nullptr || !unit) return LUMET_TEV_FALSE;
    return saveTEVDataToStream(&dst, name, static_cast<uint32_t>(getStringLen(name)), nullptr, 0, unit->data,
                               unit->data_length, unit->data_type, update);
}

uint32_t saveSound(_TEV_info_pack* pack, uint32_t index, TevStream& dst) {
    const char* name = entryName(pack, index);
    const tev::OwnedUnit unit(extractTEVDataFromFilebyIndex(pack, index));
    if (name == nullptr || !unit) return LUMET_TEV_FALSE;
    return saveVoxaToImageStream(&dst, unit->data, unit->data_length, name, static_cast<uint32_t>(std::strlen(name)));
}

// The first sound of the source's Voxa block, saved as "EchoFrame_000".
uint32_t copyFirstSound(_voxa_info_struct* voxa, TevStream& dst) {
    if (voxa == nullptr || voxa->sound_table == nullptr || voxa->sound_count == 0) return LUMET_TEV_FALSE;
    const uint32_t start = voxa->sound_table[0];
    const uint32_t end = voxa->sound_table[1];
    // The table was checked against the file when it was read; an empty or
    // reversed first sound has nothing to copy.
    if (end <= start) return LUMET_TEV_FALSE;
    std::vector<unsigned char> bytes(end - start);
    if (ReadSoundData(voxa->stream, start, end - start, bytes.data()) != LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
    return saveVoxaToImageStream(&dst, bytes.data(), end - start, kFirstSoundName, sizeof kFirstSoundName - 1);
}

// Sizes the destination's "tevd" box to reach the end of the stream once
// the copy is done. With no boxed container (no record landed) there is no
// box to size, and nothing is written.
uint32_t sizeBoxAtEnd(TevStream& dst) {
    const uint32_t signature = getSignatureStream(&dst);
    if (signature == SIGNATURE_TEV || signature == SIGNATURE_VOXA_TEV) {
        tev::OwnedPackOnStream pack(checkTEVInStreamAndUpdate(&dst));
        if (pack && checkSignatureMP4Tag(pack->info) == LUMET_TEV_TRUE) return updateMP4Tag(pack->info);
    }
    return dst.CheckError() ? LUMET_TEV_TRUE : LUMET_TEV_FALSE;
}

uint32_t copyContainer(TevStream& src, TevStream& dst) {
    // A damaged source whose directory does not parse has nothing to copy.
    tev::OwnedPackOnStream pack(checkTEVInStream(&src));
    if (!pack) return LUMET_TEV_FALSE;
    const uint32_t count = GetTevCount(pack.get());
    if (count == 0) {
        tev::logLine(tev::kLogError, kTypeTag, "There is no data equivalent to the keyname.\n");
        return LUMET_TEV_FALSE;
    }
    // MP4 media get their "tevd" box from the save itself: it opens the box
    // with the first record and sizes it after every later one, so the
    // records land in one box (added to the container already there, if
    // any) instead of a second box opened around the saves' own.
    const bool isoMedia = checkMP4Stream(&dst) == LUMET_TEV_TRUE;
    uint32_t result = LUMET_TEV_FALSE;
    for (uint32_t i = 0; i < count; ++i) result = saveRecord(pack.get(), i, dst, kReplace);
    // For MP4 the copy answers with the sizing of the box at the end, not
    // with the last save's result.
    return isoMedia ? sizeBoxAtEnd(dst) : result;
}

// Sources with sound: the sounds go through the sound save, which rebuilds
// the destination's list; the list record itself is never copied as such.
uint32_t copyWithSound(TevStream& src, TevStream& dst, bool withContainer) {
    if (checkMP4Stream(&dst) == LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
    tev::OwnedPackOnStream pack(checkTEVInStream(&src));
    tev::OwnedVoxaOnStream voxa(_checkAudioInImageStream(&src));
    const NameList sounds(pack.get());
    if (!withContainer) return voxa && sounds.empty() ? copyFirstSound(voxa.get(), dst) : LUMET_TEV_FALSE;
    uint32_t result = LUMET_TEV_FALSE;
    if (voxa && sounds.empty()) {
        result = copyFirstSound(voxa.get(), dst);
        if (result == LUMET_TEV_FALSE) return LUMET_TEV_FALSE;
    }
    // A container that does not parse has no records to copy; the first
    // sound above may still have been.
    const uint32_t count = pack ? GetTevCount(pack.get()) : 0;
    for (uint32_t i = 0; i < count; ++i) {
        const char* name = entryName(pack.get(), i);
        if (name == nullptr) continue;
        if (voxa && !sounds.empty() && sounds.contains(name)) {
            result = saveSound(pack.get(), i, dst);
        } else if (std::strcmp(name, kMetaName) != 0) {
            result = saveRecord(pack.get(), i, dst, kReplace);
        }
    }
    return result;
}

// The type and name copies write only into media without records or sound.
// Go on, refuse (the answer is 0), or nothing to do (the answer is 1).
enum class Start { kGo, kRefuse, kDone };

// `withSound`: a source whose container is followed by a Voxa block is
// copied from (the type copy) or answered with 1 untouched (the name copy).
// Null streams are answered by their signature, 0.
Start startSelectiveCopy(TevStream* src, TevStream* dst, bool withSound) {
    if (getSignatureStream(src) == SIGNATURE_DETECTION_FAIL) return Start::kRefuse;
    if (getSignatureStream(dst) != SIGNATURE_DETECTION_FAIL) return Start::kDone;
    const uint32_t signature = getSignatureStream(src);
    if (signature == SIGNATURE_DETECTION_FAIL) return Start::kRefuse;
    if (signature == SIGNATURE_TEV || (withSound && signature == SIGNATURE_VOXA_TEV)) return Start::kGo;
    return Start::kDone;
}

// `key` is given for the name copy (first match only), null for the type copy.
template <typename Match>
uint32_t copyMatching(TevStream* src, TevStream* dst, Match matches, bool byName, const char* key) {
    switch (startSelectiveCopy(src, dst, !byName)) {
        case Start::kRefuse: return LUMET_TEV_FALSE;
        case Start::kDone: return LUMET_TEV_TRUE;
        case Start::kGo: break;
    }
    tev::OwnedPackOnStream pack(checkTEVInStreamAndUpdate(src));
    if (!pack) return LUMET_TEV_FALSE;
    const uint32_t count = GetTevCount(pack.get());
    // A missing name cannot be compared with the records' names.
    if (byName && count != 0 && key == nullptr) return LUMET_TEV_FALSE;
    for (uint32_t i = 0; i < count; ++i) {
        if (!matches(pack.get(), i)) continue;
        // An existing record of the same name is kept; results are not
        // reported, the copy goes on with the next record.
        saveRecord(pack.get(), i, *dst, kKeep);
        if (byName) break;
    }
    return LUMET_TEV_TRUE;
}

// Opens both paths "r+b" (the source too) and runs `copy` over file streams.
template <typename Copy>
uint32_t copyPaths(const char* src, const char* dst, Copy copy) {
    if (src == nullptr || dst == nullptr) return LUMET_TEV_FALSE;
    FILE* srcFile = _kfopen(src, "r+b");
    FILE* dstFile = _kfopen(dst, "r+b");
    TevStream* srcStream = new TevStreamFile(srcFile);
    TevStream* dstStream = new TevStreamFile(dstFile);
    // The source may be converted in place too: both are guarded edits.
    const uint32_t result = tev::guardedStreamEdit(dstStream, [&](TevStream& dstEdited) {
        return tev::guardedStreamEdit(srcStream, [&](TevStream& srcEdited) { return copy(srcEdited, dstEdited); });
    });
    if (srcFile != nullptr) srcStream->destroyPointer();
    if (dstFile != nullptr) dstStream->destroyPointer();
    delete srcStream;
    delete dstStream;
    return result;
}

}  // namespace

uint32_t copyTEVDataStream(TevStream* src, TevStream* dst) {
    if (src == nullptr || dst == nullptr) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::copyTEVDataStream", "Stream is null\n");
        return LUMET_TEV_FALSE;
    }
    const uint32_t signature = getSignatureStream(src);
    getSignatureStream(dst);
    switch (signature) {
        case SIGNATURE_DETECTION_FAIL:
            // The type copy's tag, as clients have always seen it here.
            tev::logLine(tev::kLogError, kTypeTag, "SIGNATURE_DETECTION_FAIL\n");
            return LUMET_TEV_FALSE;
        case SIGNATURE_TEV:
            return copyContainer(*src, *dst);
        case SIGNATURE_VOXA:
            return copyWithSound(*src, *dst, false);
        case SIGNATURE_VOXA_TEV:
            return copyWithSound(*src, *dst, true);
        default:
            return LUMET_TEV_FALSE;
    }
}

uint32_t copyTEVDataTypeStream(TevStream* src, TevStream* dst, unsigned int type) {
    if (src == nullptr || dst == nullptr || !src->CheckError() || !dst->CheckError()) return LUMET_TEV_FALSE;
    auto ofType = [type](_TEV_info_pack* pack, uint32_t i) {
        return _getDataType(pack->info->meta_data[i]->meta_type) == type;
    };
    return copyMatching(src, dst, ofType, false, nullptr);
}

uint32_t copyTEVDataKeyNameStream(TevStream* src, TevStream* dst, const char* key) {
    // The streams are not checked first: a null or unusable one has
    // signature 0, so a null source into plain media, or any source into a
    // null destination, is answered with 1 and nothing copied.
    auto named = [key](_TEV_info_pack* pack, uint32_t i) {
        const char* name = entryName(pack, i);
        return name != nullptr && std::strcmp(name, key) == 0;
    };
    return copyMatching(src, dst, named, true, key);
}

uint32_t copyTEVData(const char* src, const char* dst) {
    return copyPaths(src, dst, [](TevStream& s, TevStream& d) { return copyTEVDataStream(&s, &d); });
}

uint32_t mergeTEVData(const char* src, const char* dst) { return copyTEVData(src, dst); }

uint32_t copyTEVDataFd(int src, int dst) {
    if (src < 1 || dst < 1) return LUMET_TEV_FALSE;
    TevStreamFD srcStream(src);
    TevStreamFD dstStream(dst);
    return tev::guardedStreamEdit(&dstStream, [&](TevStream& dstEdited) {
        return tev::guardedStreamEdit(&srcStream, [&](TevStream& srcEdited) {
            return copyTEVDataStream(&srcEdited, &dstEdited);
        });
    });
}

uint32_t copyTEVDataType(const char* src, const char* dst, unsigned int type) {
    return copyPaths(src, dst, [type](TevStream& s, TevStream& d) { return copyTEVDataTypeStream(&s, &d, type); });
}

uint32_t copyTEVDataKeyName(const char* src, const char* dst, const char* key) {
    return copyPaths(src, dst, [key](TevStream& s, TevStream& d) { return copyTEVDataKeyNameStream(&s, &d, key); });
}

uint32_t copyMergeTEVData(_TEV_info* info, FILE* dst) {
    if (info == nullptr || dst == nullptr || info->Stream == nullptr || info->meta_count == 0 ||
        info->meta_data == nullptr || info->meta_data[0] == nullptr) {
        return LUMET_TEV_FALSE;
    }
    // From the first byte of the first record to the end of the source.
    // A size past the source's start makes the seek below fail.
    const int64_t size = int64_t{info->meta_data[0]->start_offset} + info->header_offset;
    const tev::KUnique<unsigned char> bytes(static_cast<unsigned char*>(_kmalloc(size)));
    if (!bytes) {
        tev::logLine(tev::kLogError, "TEVAPIs::mergeTEVData", "data null\n");
        return LUMET_TEV_FALSE;
    }
    const int64_t from = info->stream_size - size;
    const int64_t landed = info->Stream->seek(from, SEEK_SET);
    if (landed < 0 || landed != from) {
        tev::logLine(tev::kLogError, "TEVAPIs", "copyMergeTEVData start\n");
        return LUMET_TEV_FALSE;
    }
    if (info->Stream->read(bytes.get(), size) < 1) {
        tev::logLine(tev::kLogError, "TEVAPIs::mergeTEVData", "File Read Error");
        return LUMET_TEV_FALSE;
    }
    TevStreamFile out(dst);
    const int64_t end = out.seek(0, SEEK_END);
    if (end < 1) {
        tev::logLine(tev::kLogError, "TEVAPIs::mergeTEVData", "File Search Error %lld\n", static_cast<long long>(end));
        return LUMET_TEV_FALSE;
    }
    if (out.write(bytes.get(), size) == -1) {
        tev::logLine(tev::kLogError, "TEVAPIs::mergeTEVData", "File write Error\n");
        return LUMET_TEV_FALSE;
    }
    return LUMET_TEV_TRUE;
}
