// Sound behind an image without a container in between: the room check,
// what ends the file, appending a sound with its block, and cutting it off.
#include <cstdio>
#include <cstring>

#include "container/format.h"
#include "container/owned.h"
#include "tev/sound.h"
#include "tev/voxa.h"
#include "stream/safe_edit.h"
#include "util/log.h"
#include "voxa/sound_internal.h"

namespace {

// "TEVT" sits this far before "VOXA": the length field (4) and "VOXABS" (6)
// are counted from the end, then the block's own header length, then 4.
constexpr int64_t kTevTagBeforeMagic = 14;

// The end of the last sound, or the file size when the block lists none.
uint64_t lastSoundEnd(const _voxa_info_struct& voxa) {
    if (voxa.sound_count == 0 || voxa.sound_table == nullptr) return voxa.file_size;
    return voxa.sound_table[2 * uint64_t{voxa.sound_count} - 1];
}

bool endsWithTevTag(TevStream& stream, int64_t distance) {
    char tag[tev::kTagSize] = {};
    if (stream.seek(-distance, SEEK_END) < 0) return false;
    return stream.read(tag, sizeof tag) == sizeof tag && std::memcmp(tag, tev::kTagTail, sizeof tag) == 0;
}

}  // namespace

namespace tev::voxa {

bool cutAtFirstSound(TevStream& stream, const _voxa_info_struct& voxa, const char* tag) {
    // Only the start counts: an empty sound (end = start) is cut there too.
    const bool listed = voxa.sound_table != nullptr && voxa.sound_count > 0;
    const int64_t start = listed ? int64_t{voxa.sound_table[0]} : -1;
    if (!listed || stream.seek(start, SEEK_SET) != start) {
        logLine(kLogError, tag, "File Search Error");
        return false;
    }
    stream.truncate(start);
    return true;
}

}  // namespace tev::voxa

uint32_t checkVoxaInfoForSaving(_voxa_info_struct* voxa, uint32_t data_len, uint32_t sub_len, uint32_t name_len) {
    if (voxa == nullptr) {
        tev::logLine(tev::kLogError, "checkVoxaInfoForSaving", "tev info null");
        return LUMET_TEV_FALSE;
    }
    const uint64_t total = uint64_t{data_len} + sub_len + name_len + lastSoundEnd(*voxa);
    if (total >= tev::kVoxaSaveBound) {
        tev::logLine(tev::kLogError, "checkVoxaInfoForSaving",
                     "There is no space for saving TEV data in the source file, a voax data");
        return LUMET_TEV_FALSE;
    }
    return LUMET_TEV_TRUE;
}

uint32_t hasTEVDataStream(TevStream* stream, _voxa_info_struct* voxa) {
    if (voxa == nullptr) {
        if (stream == nullptr || !endsWithTevTag(*stream, tev::kTagSize)) return 0;
        std::puts("meta not null");
        return 2;
    }
    if (voxa->stream == nullptr || voxa->file_size == 0) return 0;
    const int64_t distance = int64_t{voxa->header_length} + kTevTagBeforeMagic;
    if (voxa->stream->seek(-distance, SEEK_END) < 0) {
        tev::logLine(tev::kLogError, "VoxaAPIs::hasTEVData", "File Search Error");
        return 0;
    }
    char tag[tev::kTagSize] = {};
    const bool container = voxa->stream->read(tag, sizeof tag) == sizeof tag &&
                           std::memcmp(tag, tev::kTagTail, sizeof tag) == 0;
    std::puts(container ? "meta not null" : "meta null");
    return container ? 2 : 1;
}

uint32_t deleteVoxa_NotExistTEV_Stream(TevStream* stream, _voxa_info_struct* voxa) {
    if (stream == nullptr || voxa == nullptr) return LUMET_TEV_FALSE;
    return tev::voxa::cutAtFirstSound(*stream, *voxa, "VoxaAPIs::deleteVoxa_NotExistTEV_FP") ? LUMET_TEV_TRUE
                                                                                          : LUMET_TEV_FALSE;
}

int64_t AddVoxaSoundInFirstTime(TevStream* stream, const void* data, uint32_t size) {
    if (stream == nullptr || data == nullptr) return 0;
    const int64_t start = stream->seek(0, SEEK_END);
    // The table holds 32-bit positions.
    if (start < 0 || uint64_t(start) + size > UINT32_MAX) {
        tev::logLine(tev::kLogError, "Voxa::AddVoxaSoundInFirstTime", "File Search error %lld",
                     static_cast<long long>(start < 0 ? start : -1));
        return -1;
    }
    if (stream->write(data, size) == -1) {
        tev::logLine(tev::kLogError, "Voxa::AddVoxaSoundInFirstTime", "File Search error %lld", -1LL);
        return -1;
    }
    const uint32_t soundStart = static_cast<uint32_t>(start);
    stream->WriteSoundHeader();
    stream->WriteSoundCount(1);
    stream->WriteSoundData(soundStart, soundStart + size);
    stream->WriteSoundTailer(1);
    const int64_t end = stream->seek(0, SEEK_END);
    if (end <= 0) {
        tev::logLine(tev::kLogError, "Voxa::AddVoxaSoundInFirstTime", "File Search error %lld",
                     static_cast<long long>(end));
        return -1;
    }
    return end;
}

uint32_t deleteAVoxaStream(TevStream* stream) {
    tev::OwnedVoxaOnStream voxa(_checkAudioInImageStream(stream));
    if (!voxa) return LUMET_TEV_FALSE;
    if (voxa->sound_count == 0) {
        std::puts("sound_count 0");
        return LUMET_TEV_FALSE;
    }
    switch (hasTEVDataStream(stream, voxa.get())) {
        case 1:
            // A failed cut is logged and leaves the file as it was.
            tev::voxa::cutAtFirstSound(*stream, *voxa, "VoxaAPIs::deleteVoxa_NotExistTEV_FP");
            return LUMET_TEV_TRUE;
        case 2:
            deleteVoxa_ExistTEV_Stream(stream, voxa.get());
            return LUMET_TEV_TRUE;
        default:
            std::puts("error");
            return LUMET_TEV_FALSE;
    }
}

uint32_t deleteAVoxa(const char* path) {
    const tev::OwnedFile file(path != nullptr ? _kfopen(path, "r+b") : nullptr);
    if (!file) {
        tev::logLine(tev::kLogError, "Voxa::deleteAVoxa", "File open error.");
        return LUMET_TEV_FALSE;
    }
    TevStreamFile stream(file.get());
    return tev::guardedStreamEdit(&stream, [](TevStream& edited) { return deleteAVoxaStream(&edited); });
}

uint32_t deleteAVoxaFd(int fd) {
    if (fd < 1) {
        tev::logLine(tev::kLogError, "Voxa::deleteAVoxa", "File descriptor error");
        return LUMET_TEV_FALSE;
    }
    TevStreamFD stream(fd);
    return tev::guardedStreamEdit(&stream, [](TevStream& edited) { return deleteAVoxaStream(&edited); });
}
