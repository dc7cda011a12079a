// Deleting records by name: the entry points over a stream, a parsed pack
// and a path. They find the record, delete it through DeleteATEVDataStream
// and bring the MP4 "tevd" box up to date.
#include <cstdio>
#include <cstring>

#include "editor/delete_rebuild.h"
#include "tev/container.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "tev/mp4.h"
#include "tev/voxa.h"
#include "stream/safe_edit.h"
#include "util/log.h"

using tev::OwnedFile;
using tev::KUnique;
using tev::OwnedPackOnStream;
using tev::OwnedVoxaOnStream;

namespace {

// Names arrive as bytes and a length; the index look-up wants a
// NUL-terminated string.
KUnique<char> terminatedName(const char* name, uint32_t length) {
    KUnique<char> copy(static_cast<char*>(_kmalloc(static_cast<size_t>(length) + 1)));
    if (copy) std::memcpy(copy.get(), name, length);
    return copy;
}

// Index of the named record, or the pack's data count when it is absent. A
// null name is looked up as it is, so that the look-up reports it.
uint32_t indexOfName(_TEV_info_pack* pack, const char* name, uint32_t length) {
    if (name == nullptr) {
        _getIndexOfName(pack, nullptr);
        return pack->data_count;
    }
    const KUnique<char> key = terminatedName(name, length);
    if (!key) return pack->data_count;
    const uint32_t index = _getIndexOfName(pack, key.get());
    return index < pack->data_count ? index : pack->data_count;
}

// After a delete in an MP4 file: a boxed container gets its box size fixed;
// an unboxed one is wrapped in a box now, then its size is fixed as well, so
// that the box ends with the file. `pack` is re-parsed whenever the
// container moves.
void refreshMP4Box(TevStream* stream, _TEV_info_pack*& pack, bool boxed) {
    if (boxed) {
        updateMP4Tag(pack->info);
        return;
    }
    if (checkMP4Stream(stream) != 1 || writeMP4Tag(pack->info) != 1) return;
    destroyTEVDATA_Stream(pack);
    pack = checkTEVInStreamAndUpdate(stream);
    if (pack != nullptr) updateMP4Tag(pack->info);
}

// A guarded edit runs on its own view of the file: the pack is pointed at
// it, and parsed again when the file changed since the pack was made (another
// caller's edit in between).
void packOnStream(_TEV_info_pack*& pack, TevStream& stream) {
    if (pack->info->Stream == &stream) return;
    pack->info->Stream = &stream;
    const int64_t at = stream.tell();
    const int64_t size = stream.seek(0, SEEK_END);
    stream.seek(at, SEEK_SET);
    if (pack->info->stream_size == size) return;
    destroyTEVDATA_Stream(pack);
    pack = checkTEVInStreamAndUpdate(&stream);
}

}  // namespace

// The Voxa block of the stream goes to the delete whatever its table holds;
// the box is brought up to date afterwards and does not change the result.
// Without a pack there is nothing to look the name up in.
uint32_t deleteTEVDataFromStreambyName(TevStream*& stream, _TEV_info_pack*& pack, const char* name,
                                       uint32_t name_len) {
    if (pack == nullptr || pack->info == nullptr) return LUMET_TEV_FALSE;
    OwnedVoxaOnStream voxa(_checkAudioInImageStream(stream));
    const bool boxed = checkSignatureMP4Tag(pack->info) == 1;
    const uint32_t index = indexOfName(pack, name, name_len);
    if (index >= pack->data_count) return LUMET_TEV_FALSE;
    if (DeleteATEVDataStream(pack->info, index, voxa.get()) != 1) return LUMET_TEV_FALSE;
    destroyTEVDATA_Stream(pack);
    pack = checkTEVInStreamAndUpdate(stream);
    if (pack != nullptr) refreshMP4Box(stream, pack, boxed);
    return LUMET_TEV_TRUE;
}

uint32_t deleteTEVDataFromFilebyName(_TEV_info_pack** pack, const char* name, uint32_t name_len) {
    if (pack == nullptr || *pack == nullptr || (*pack)->info == nullptr) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteTEVDataFromFilebyName", "TEVDATA is null");
        return LUMET_TEV_FALSE;
    }
    TevStream* stream = (*pack)->info->Stream;
    const uint32_t result = tev::guardedStreamEdit(stream, [&](TevStream& edited) {
        packOnStream(*pack, edited);
        if (*pack == nullptr) return LUMET_TEV_FALSE;
        TevStream* on = &edited;
        return deleteTEVDataFromStreambyName(on, *pack, name, name_len);
    });
    if (*pack != nullptr) (*pack)->info->Stream = stream;
    // With nothing left there is no pack to hold the file any more: close it
    // here (a delete nested in a guarded edit leaves that to the edit).
    if (*pack == nullptr && stream != nullptr && !tev::isActiveOverlay(stream)) {
        stream->destroyPointer();
        delete stream;
    }
    return result;
}

uint32_t deleteTEVDataAndDestroy(_TEV_info_pack* pack, const char* name, uint32_t name_len) {
    if (pack == nullptr) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteTEVDataAndDestroy", "TEVDATA is null");
        return LUMET_TEV_FALSE;
    }
    const uint32_t result = deleteTEVDataFromFilebyName(&pack, name, name_len);
    if (pack != nullptr) destroyTEVDATA(pack);
    return result;
}

uint32_t deleteTEVDataFromFile(const char* path, const char* name, uint32_t name_len) {
    _TEV_info_pack* pack = checkTEVInFile(path);
    if (pack == nullptr) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteTEVDataFromFile", "TEVDATA is null");
        return LUMET_TEV_FALSE;
    }
    return deleteTEVDataAndDestroy(pack, name, name_len);
}

// The names are deleted one after another through the by-name delete, so the
// container (and its MP4 box) is rebuilt and re-parsed after each one and the
// file ends with a valid directory at every step. Names that are absent are
// skipped; the result is 1 when at least one record went and no delete failed.
uint32_t deleteTEVMultiDataFromFilebyName(const char* path, const char** names,
                                          const uint32_t* name_lens, uint32_t count) {
    if (names == nullptr || name_lens == nullptr || count == 0) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteTEVMultiDataFromFilebyName",
                     "name list is null");
        return LUMET_TEV_FALSE;
    }
    _TEV_info_pack* pack = checkTEVInFile(path);
    if (pack == nullptr) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteTEVMultiDataFromFilebyName",
                     "TEVDATA is null");
        return LUMET_TEV_FALSE;
    }
    // All the deletes are one guarded edit: a kill leaves all or none done.
    TevStream* stream = pack->info->Stream;
    const uint32_t result = tev::guardedStreamEdit(stream, [&](TevStream& edited) {
        packOnStream(pack, edited);
        uint32_t deleted = 0;
        bool failed = false;
        for (uint32_t i = 0; i < count && pack != nullptr && !failed; ++i) {
            if (names[i] == nullptr || name_lens[i] == 0) continue;
            if (indexOfName(pack, names[i], name_lens[i]) >= pack->data_count) continue;
            if (deleteTEVDataFromFilebyName(&pack, names[i], name_lens[i]) == 1) {
                ++deleted;
            } else {
                failed = true;
            }
        }
        return deleted > 0 && !failed ? LUMET_TEV_TRUE : LUMET_TEV_FALSE;
    });
    if (pack != nullptr) {
        pack->info->Stream = stream;
        destroyTEVDATA(pack);
    } else {
        stream->destroyPointer();
        delete stream;
    }
    return result;
}

uint32_t deleteFastATEVDataStream(TevStream* stream, const char* name) {
    if (stream == nullptr) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteFastATEVDataStream", "Stream NULL !!");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteFastATEVDataStream",
                     "Stream CheckError is false");
        return LUMET_TEV_FALSE;
    }
    OwnedPackOnStream pack(checkTEVInStreamAndUpdate(stream));
    if (!pack) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteFastATEVDataStream", "TEVDATA is null");
        return LUMET_TEV_FALSE;
    }
    const bool boxed = checkSignatureMP4Tag(pack->info) == 1;
    const uint32_t index = _getIndexOfName(pack.get(), name);
    if (index >= pack->data_count) return LUMET_TEV_FALSE;
    if (FastDeleteATEVData(pack->info, index, 0) != 1) return LUMET_TEV_FALSE;
    pack.reset(checkTEVInStreamAndUpdate(stream));
    if (pack && boxed) return updateMP4Tag(pack->info);
    return LUMET_TEV_TRUE;
}

uint32_t deleteFastATEVData(const char* path, const char* name) {
    if (path == nullptr) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteFastATEVData", "filename is null");
        return LUMET_TEV_FALSE;
    }
    OwnedFile file(_kfopen(path, "r+b"));
    if (!file) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteFastATEVData", "File Open Error");
        return LUMET_TEV_FALSE;
    }
    TevStreamFile stream(file.get());
    return tev::guardedStreamEdit(&stream, [&](TevStream& edited) { return deleteFastATEVDataStream(&edited, name); });
}
