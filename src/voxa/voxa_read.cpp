// Handing out the sounds of a parsed Voxa block: raw reads at a position,
// the first sound as a buffer or as a position pair, and the small getters.
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "container/owned.h"
#include "tev/stream.h"
#include "tev/voxa.h"
#include "util/log.h"
#include "voxa/voxa_internal.h"

namespace {

using tev::voxa::SoundSpan;

using KBuffer = tev::KUnique<unsigned char>;
using FilePtr = tev::OwnedFile;

// The name count is the third little-endian word of the meta payload.
constexpr size_t kHeaderCountOffset = 8;

// Parses the file at `path` with its table; null when either step fails.
_voxa_info_struct* parseFileWithTable(const char* path) {
    _voxa_info_struct* info = ParseVoxa(path);
    if (info != nullptr && ParseVoxaSound(info) != LUMET_TEV_TRUE) {
        DestroyVoxa(info);
        return nullptr;
    }
    return info;
}

// The first entry of the sound table, as start and length (end − start in
// 32 bits). The table of a parsed block always holds at least one entry,
// zeros for a block that lists no sound; false only without a table.
bool firstTableEntry(const _voxa_info_struct* info, SoundSpan* span) {
    if (info == nullptr || info->sound_table == nullptr) return false;
    *span = SoundSpan{info->sound_table[0], info->sound_table[1] - info->sound_table[0]};
    return true;
}

}  // namespace

namespace tev::voxa {

bool firstSound(const _voxa_info_struct* info, SoundSpan* span) {
    if (info == nullptr || info->sound_table == nullptr || info->sound_count == 0) return false;
    const uint32_t start = info->sound_table[0];
    const uint32_t end = info->sound_table[1];
    if (end > info->file_size || start > info->file_size || end <= start) return false;
    *span = SoundSpan{start, end - start};
    return true;
}

}  // namespace tev::voxa

uint32_t ReadSoundData(TevStream* stream, uint32_t offset, uint32_t size, void* buffer) {
    if (stream == nullptr) return LUMET_TEV_FALSE;
    if (stream->seek(offset, SEEK_SET) < 0) {
        tev::logLine(tev::kLogError, "Voxa::ReadSoundData", "File Search error");
        return LUMET_TEV_FALSE;
    }
    // A short read leaves the rest of the caller's buffer as it was; without
    // a buffer the streams read nothing.
    stream->read(buffer, size);
    return LUMET_TEV_TRUE;
}

uint32_t ReadDataVoxa(_voxa_info_struct* info, uint32_t offset, uint32_t size, void* buffer) {
    if (info == nullptr) return LUMET_TEV_FALSE;
    return ReadSoundData(info->stream, offset, size, buffer);
}

// The first sound is taken as the table gives it, an empty one included. A
// sound that ends before it starts would ask for a buffer of nearly 4 GiB
// that the file cannot fill; it is refused as a failed parse.
unsigned char* GetAudioInVoxa(const char* path, uint32_t* size_out) {
    _voxa_info_struct* info = parseFileWithTable(path);
    SoundSpan sound{};
    if (info != nullptr && (!firstTableEntry(info, &sound) || info->sound_count == 0 ||
                            info->sound_table[1] < info->sound_table[0])) {
        DestroyVoxa(info);
        info = nullptr;
    }
    if (info == nullptr) {
        tev::logLine(tev::kLogError, "LUMET", "ParseVoxaFile :: voxa_info NULL");
        if (size_out != nullptr) *size_out = 0;
        return nullptr;
    }
    // Handed to the caller, who releases it with free(); an empty sound still
    // gets a buffer of its own.
    auto* data = static_cast<unsigned char*>(calloc(sound.length > 0 ? sound.length : 1, 1));
    if (data != nullptr) ReadSoundData(info->stream, sound.start, sound.length, data);
    DestroyVoxa(info);
    if (size_out != nullptr) *size_out = sound.length;
    return data;
}

unsigned char* _getAudioStreamBuffer(_voxa_info_struct* info) {
    SoundSpan sound{};
    if (!tev::voxa::firstSound(info, &sound) || info->stream == nullptr) return nullptr;
    KBuffer data(static_cast<unsigned char*>(_kmalloc(sound.length)));
    if (!data || info->stream->seek(sound.start, SEEK_SET) < 0) return nullptr;
    info->stream->read(data.get(), sound.length);
    return data.release();
}

// Creates (empties) the file at `path` but writes the sound back through the
// record's own stream, just after the sound, rather than into the new file.
// Clients have always received this behaviour and the library itself does
// not depend on the file's contents, so it is kept as it is. The first sound
// is taken as the table gives it, an empty one included; one that ends
// before it starts would be read and written back as nearly 4 GiB and is
// refused.
uint32_t _getSoundFileCreate(_voxa_info_struct* info, const char* path) {
    SoundSpan sound{};
    if (!firstTableEntry(info, &sound) || info->sound_count == 0 || info->sound_table[1] < info->sound_table[0] ||
        path == nullptr) {
        return 0;
    }
    KBuffer data(static_cast<unsigned char*>(_kmalloc(sound.length > 0 ? sound.length : 1)));
    if (!data) return 0;
    FilePtr file(_kfopen(path, "wb"));
    if (!file) return 0;

    TevStream* stream = info->stream;
    if (stream == nullptr) {
        // Nothing to read from or write through: the new file stays empty.
        puts("file null");
        return 0;
    }
    if (stream->seek(sound.start, SEEK_SET) < 0) {
        // Without a buffer there is nothing to read or write.
        tev::logLine(tev::kLogError, "VoxaAPIs::_getSoundFileCreate", "File Search error");
        return 0;
    }
    stream->read(data.get(), sound.length);
    const int64_t written = stream->write(data.get(), sound.length);
    return written < 0 ? 0 : static_cast<uint32_t>(written);
}

uint32_t _getAudioCountInImageFile(void* info) {
    if (info == nullptr) return 0;
    return static_cast<const _voxa_info_struct*>(info)->sound_count;
}

uint32_t getVoxaHeaderCount(char* payload) {
    if (payload == nullptr) return 0;
    const auto* bytes = reinterpret_cast<const unsigned char*>(payload) + kHeaderCountOffset;
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
}

// Only positions are handed out, so a first sound is refused only as the
// format says: an end or a start past the file, or no length at all.
VoxaSoundOffset* _getAudioInImageFile(_voxa_info_struct* info) {
    SoundSpan sound{};
    if (!firstTableEntry(info, &sound)) return nullptr;
    const uint32_t start = info->sound_table[0];
    const uint32_t end = info->sound_table[1];
    if (end > info->file_size || end == start || start > info->file_size) return nullptr;
    auto* offset = static_cast<VoxaSoundOffset*>(_kmalloc(sizeof(VoxaSoundOffset)));
    if (offset == nullptr) return nullptr;
    offset->offset = sound.start;
    offset->length = sound.length;
    return offset;
}
