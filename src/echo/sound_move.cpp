// Sound in front of a container: removing it (the container moves forward
// to where the sound began) and putting a new one there (the container
// moves back behind it), with the Voxa block rewritten behind the directory.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "container/directory_image.h"
#include "container/format.h"
#include "container/owned.h"
#include "editor/delete_rebuild.h"
#include "stream/byte_move.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "tev/sound.h"
#include "tev/voxa.h"
#include "stream/safe_edit.h"
#include "util/log.h"
#include "voxa/sound_internal.h"

namespace {

using tev::deleting::RecordSpan;
using tev::voxa::SoundSpan;

// "VOXA", version, count, start, end, header length, "VOXABS".
constexpr int64_t kOneSoundBlock = tev::kVoxaOneSoundBlockSize;
constexpr char kExistTag[] = "VoxaAPIs::deleteVoxa_ExistTEV";

bool isIsoMedia(TevStream& stream) { return checkMP4Stream(&stream) == LUMET_TEV_TRUE; }

// The directory as the rebuilt container holds it: the records keep their
// order and their distances to "TEVH".
bool writeDirectory(TevStream& out, const _TEV_info& info) {
    std::vector<_TEV_data_info*> entries;
    return tev::collectEntries(info, &entries) && tev::writeDirectory(out, info.meta_count, entries).ok();
}

// Copies `length` bytes from `start` in `from` to where `to` stands.
bool copyRange(TevStream& from, int64_t start, int64_t length, TevStream& to) {
    const int64_t at = to.tell();
    return at >= 0 && tev::ByteMover().copy(from, start, to, at, length) == tev::MoveResult::kDone;
}

// The sound, the container's records as they are, a fresh directory over
// them and a version 106 block pointing at the sound, which starts at `at`.
bool buildTail(TevStream& stream, const _TEV_info& info, const RecordSpan& span, const void* data,
               uint32_t size, tev::deleting::TempStream& temp, int64_t* length) {
    const int64_t records = span.directory - span.first;
    const int64_t directory = int64_t{tev::kDirectoryFixedSize} + int64_t{tev::kDirectoryEntrySize} * info.meta_count;
    *length = int64_t{size} + records + directory + kOneSoundBlock;
    if (*length < 1) {
        tev::logLine(tev::kLogError, "VoxaAPIs::addVoxaSoundStream", "temp AllocSize is <= 0");
        return false;
    }
    if (!temp.open(*length)) {
        tev::logLine(tev::kLogError, "VoxaAPIs::addVoxaSoundStream", "temp handle is null");
        return false;
    }
    const uint32_t start = static_cast<uint32_t>(span.first);
    TevStream& out = temp.stream();
    return out.write(data, size) == size && copyRange(stream, span.first, records, out) &&
           writeDirectory(out, info) && out.WriteSoundHeader() == tev::kTagSize &&
           out.WriteSoundCount(1) == tev::kFieldSize && out.WriteSoundData(start, start + size) == tev::kFieldSize &&
           out.WriteSoundTailer(1) == tev::kVoxaTailMarkSize && temp.written() == *length;
}

// Takes the old sound away before the new one goes in: a sound kept as a
// record leaves the container with its record, a sound in front of the
// container is cut out. False when that fails.
bool removeOldSound(TevStream& stream, _voxa_info_struct* voxa) {
    const bool hasSound = voxa != nullptr && voxa->sound_count > 0;
    // Without a sound there is nothing to take away, whether or not the
    // container parses: the new sound then goes behind what is there.
    if (!hasSound) return true;
    tev::OwnedPackOnStream pack(checkTEVInStream(&stream));
    if (!pack) return false;
    const uint32_t index = FindOldVoxaIndex(pack->info, voxa);
    if (index < pack->info->meta_count) return DeleteATEVDataStream(pack->info, index, voxa) == LUMET_TEV_TRUE;
    return deleteVoxa_ExistTEV_Stream(&stream, voxa) == LUMET_TEV_TRUE;
}

// Moves the container behind a new sound placed where its records began.
int64_t insertInFrontOfContainer(TevStream& stream, const void* data, uint32_t size) {
    tev::OwnedPackOnStream pack(checkTEVInStream(&stream));
    if (!pack) return AddVoxaSoundInFirstTime(&stream, data, size);
    RecordSpan span{};
    if (!tev::deleting::locateRecords(*pack->info, &span) || uint64_t(span.first) + size > UINT32_MAX) {
        return 0;
    }
    tev::deleting::TempStream temp;
    int64_t length = 0;
    if (!buildTail(stream, *pack->info, span, data, size, temp, &length)) return 0;
    if (!tev::deleting::copyBack(stream, span.first, temp.stream(), length)) return 0;
    const int64_t end = stream.tell();
    stream.truncate(end);
    return end;
}

}  // namespace

namespace tev::voxa {

bool blockStart(const _voxa_info_struct& voxa, int64_t* start) {
    const int64_t at = int64_t{voxa.file_size} - voxa.header_length - kVoxaLengthFieldDistance;
    if (at < 0) return false;
    *start = at;
    return true;
}

}  // namespace tev::voxa

uint32_t deleteVoxa_ExistTEV_Stream(TevStream* stream, _voxa_info_struct* voxa) {
    if (stream == nullptr) return LUMET_TEV_FALSE;
    tev::OwnedPackOnStream pack(checkTEVInStreamAndUpdate(stream));
    if (voxa == nullptr || !pack) return LUMET_TEV_FALSE;
    if (voxa->stream == nullptr || voxa->stream->seek(0, SEEK_SET) < 0) {
        tev::logLine(tev::kLogError, kExistTag, "File Search Error 3");
        return LUMET_TEV_FALSE;
    }
    if (isIsoMedia(*stream)) {
        tev::logLine(tev::kLogError, "VoxaAPIs", "deleteVoxa_ExistTEV voxa not use MP4, heic tag\n");
        return LUMET_TEV_FALSE;
    }
    // A sound kept as a record goes with its record; with the block passed
    // along, the delete writes no block behind the new directory and drops
    // the name from the sound list, so the container comes out without the
    // sound, without the block, and with a list that names what is left.
    const uint32_t index = FindOldVoxaIndex(pack->info, voxa);
    if (index < pack->info->meta_count) return DeleteATEVDataStream(pack->info, index, voxa);
    SoundSpan sound{};
    RecordSpan span{};
    int64_t end = 0;
    // The sound must lie wholly in front of the records, the directory must
    // end where the block begins; anything else is not this layout.
    if (!tev::voxa::firstSound(voxa, &sound) || !tev::deleting::locateRecords(*pack->info, &span) ||
        !tev::voxa::blockStart(*voxa, &end) || end < span.directory ||
        int64_t{sound.start} + sound.length > span.first) {
        return LUMET_TEV_FALSE;
    }
    const int64_t length = end - span.first;
    if (length < 1) {
        tev::logLine(tev::kLogError, kExistTag, "temp AllocSize is <= 0");
        return LUMET_TEV_TRUE;
    }
    if (tev::ByteMover().forward(*stream, span.first, sound.start, length) != tev::MoveResult::kDone) {
        tev::logLine(tev::kLogError, kExistTag, "File Search Error 2");
        return LUMET_TEV_FALSE;
    }
    stream->truncate(int64_t{sound.start} + length);
    return LUMET_TEV_TRUE;
}

int64_t addVoxaSoundStream(TevStream* stream, void* /*ignored*/, const void* data, uint32_t size) {
    if (stream == nullptr || data == nullptr) return 0;
    tev::OwnedVoxaOnStream voxa(_checkAudioInImageStream(stream));
    if (hasTEVDataStream(stream, voxa.get()) != 2) {
        if (voxa && voxa->sound_count > 0 &&
            !tev::voxa::cutAtFirstSound(*stream, *voxa, "VoxaAPIs::deleteVoxa_NotExistTEV_FP")) {
            return 0;
        }
        return AddVoxaSoundInFirstTime(stream, data, size);
    }
    // Refused before anything moves, so an MP4 or HEIC file stays as it was.
    if (isIsoMedia(*stream)) {
        tev::logLine(tev::kLogError, "VoxaAPIs", "addVoxaSound voxa not use MP4, heic tag\n");
        return 0;
    }
    if (!removeOldSound(*stream, voxa.get())) return 0;
    return insertInFrontOfContainer(*stream, data, size);
}

uint32_t AddSoundInVoxaFile(const char* path, const void* data, uint32_t size) {
    FILE* fp = path != nullptr ? std::fopen(path, "r+b") : nullptr;
    if (fp == nullptr) {
        tev::logLine(tev::kLogError, "VoxaAPIs::AddSoundInVoxaFile", "File Search error");
        return LUMET_TEV_FALSE;
    }
    const tev::OwnedFile file(fp);
    // Declared after the file, so the stream is gone before the file closes:
    // releasing it still touches the descriptor.
    TevStreamFile stream(file.get());
    _voxa_info_struct* voxa = ParseVoxaStream(&stream);
    const bool damagedTable = voxa != nullptr && ParseVoxaSound(voxa) != LUMET_TEV_TRUE;
    DestroyVoxaStream(voxa);
    return damagedTable ? 0 : tev::guardedStreamEdit(&stream, [&](TevStream& edited) {
        return static_cast<uint32_t>(addVoxaSoundStream(&edited, nullptr, data, size));
    });
}

namespace {

enum class AudioCopy { kNoSound, kDone, kDestinationUnopened };

// The work of _copyAudioData over an open source. Every stream made here is
// gone when it returns, so the caller closes the files only after no
// stream can touch their descriptors any more.
AudioCopy copyFirstSoundFrom(FILE* srcFile, const char* dst) {
    TevStreamFile srcStream(srcFile);
    tev::OwnedVoxaOnStream voxa(_checkAudioInImageStream(&srcStream));
    SoundSpan sound{};
    if (!voxa || !tev::voxa::firstSound(voxa.get(), &sound)) return AudioCopy::kNoSound;
    FILE* dstFile = dst != nullptr ? _kfopen(dst, "r+b") : nullptr;
    if (dstFile == nullptr) return AudioCopy::kDestinationUnopened;
    {
        const tev::KUnique<unsigned char> bytes(static_cast<unsigned char*>(_kmalloc(sound.length)));
        TevStreamFile dstFileStream(dstFile);
        if (bytes && ReadSoundData(&srcStream, sound.start, sound.length, bytes.get()) == LUMET_TEV_TRUE) {
            tev::guardedStreamEdit(&dstFileStream, [&](TevStream& dstStream) {
                _voxa_info_struct* dstVoxa = ParseVoxaStream(&dstStream);
                const bool dstHasBlock = dstVoxa != nullptr;
                DestroyVoxaStream(dstVoxa);
                if (dstHasBlock) {
                    addVoxaSoundStream(&dstStream, nullptr, bytes.get(), sound.length);
                } else {
                    AddVoxaSoundInFirstTime(&dstStream, bytes.get(), sound.length);
                }
                return LUMET_TEV_TRUE;
            });
        }
    }
    _kfclose(dstFile);
    return AudioCopy::kDone;
}

}  // namespace

uint32_t _copyAudioData(const char* src, const char* dst) {
    FILE* srcFile = src != nullptr ? _kfopen(src, "rb") : nullptr;
    if (srcFile == nullptr) {
        tev::logLine(tev::kLogError, "Voxa::_copyAudioData", "Src File Open Error");
        return LUMET_TEV_FALSE;
    }
    if (copyFirstSoundFrom(srcFile, dst) == AudioCopy::kDestinationUnopened) {
        // The source is left open here, as callers of this routine expect.
        tev::logLine(tev::kLogError, "Voxa::_copyAudioData", "Dst File Open Error");
        return LUMET_TEV_FALSE;
    }
    _kfclose(srcFile);
    return LUMET_TEV_TRUE;
}
