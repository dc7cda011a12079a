// The checks that parse a whole container into a _TEV_info_pack, and the
// yes/no validators. The work is done once over a TevStream; the path,
// FILE*, descriptor and buffer forms build a stream, run it, and release what
// they made when the check fails (on success the pack keeps the stream).
#include <new>

#include "container/check_internal.h"
#include "container/format.h"
#include "container/index.h"
#include "container/name_table.h"
#include "container/owned.h"
#include "tev/container.h"
#include "tev/detect.h"
#include "tev/voxa.h"
#include "stream/safe_edit.h"
#include "util/log.h"

namespace {

using tev::kLogError;
using tev::logLine;

constexpr uint32_t kNoVoxaRecord = 0xFFFFFFFFu;
constexpr uint32_t kContainerSignatureCount = SIGNATURE_VOXA_TEV - SIGNATURE_TEV + 1;

// Signatures for which a container directory is parsed: 2, 3 and 4. Error
// and plain-media values wrap around to large numbers.
bool hasContainerSignature(uint32_t signature) {
    return signature - SIGNATURE_TEV < kContainerSignatureCount;
}

// A Voxa sound that no record refers to belongs to the appended region as
// well: the region then starts where the block's first sound starts. A
// block that lists no sound has no first sound and changes nothing.
void coverUnreferencedVoxaSound(TevStream* stream, _TEV_info* info) {
    tev::OwnedVoxaOnStream voxa(_checkAudioInImageStream(stream));
    if (!voxa || voxa->sound_count == 0 || voxa->sound_table == nullptr) return;
    if (FindOldVoxaIndex(info, voxa.get()) != kNoVoxaRecord) return;
    info->data_start_position = voxa->sound_table[0];
}

}  // namespace

// Signature, directory, entries, names, and the start of the appended
// region. Without `withNames`, a stream that ends with its directory gets no
// names: past the entries only a name can fail the check there, and with no
// Voxa block at the end nothing else changes the index.
tev::OwnedTevInfo tev::parseStreamIndex(TevStream* stream, bool withNames) {
    if (stream == nullptr) {
        logLine(kLogError, "TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "Stream is null.");
        return nullptr;
    }
    if (!stream->CheckError()) {
        logLine(kLogError, "TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "Stream open error.");
        return nullptr;
    }
    const uint32_t signature = getSignatureStream(stream);
    if (!hasContainerSignature(signature)) return nullptr;
    tev::OwnedTevInfo info(ParseTEV(stream, signature));
    if (!info) return nullptr;
    if (getTEVList(info.get()) == LUMET_TEV_FALSE) {
        logLine(kLogError, "TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "getTEVList err.");
        return nullptr;
    }
    if (!withNames && signature == SIGNATURE_TEV) return info;
    if (getAllNameOfDataList(info.get()) == LUMET_TEV_FALSE) {
        logLine(kLogError, "TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "getAllNameOfDataList err.");
        return nullptr;
    }
    coverUnreferencedVoxaSound(stream, info.get());
    return info;
}

namespace {

_TEV_info_pack* packContainer(tev::OwnedTevInfo info) {
    const uint32_t count = info->meta_count;
    if (count == 0) {
        logLine(kLogError, "TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "TEV_data_count is <0.");
        return nullptr;
    }
    tev::KUnique<_TEV_info_pack> pack(static_cast<_TEV_info_pack*>(_kmalloc(sizeof(_TEV_info_pack))));
    if (!pack) return nullptr;
    auto* names = static_cast<char**>(_kcalloc(count, sizeof(char*)));
    if (names == nullptr) {
        logLine(kLogError, "TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "TEV_name_list is null.");
        return nullptr;
    }
    for (uint32_t i = 0; i < count; ++i) names[i] = info->meta_data[i]->name;
    pack->valid = LUMET_TEV_TRUE;
    pack->data_count = count;
    pack->name_list = names;
    pack->info = info.release();
    tev::registerPackNames(pack.get());
    return pack.release();
}

// Builds the pack over a stream made for this call. On failure the stream
// object is deleted; on success the pack's index refers to it.
_TEV_info_pack* checkOwnedStream(TevStream* made) {
    tev::OwnedStream stream(made);
    if (!stream || !stream->CheckError()) {
        logLine(kLogError, "TEVCommonAPIs::checkTEVInFd", "Stream->CheckError false!!");
        return nullptr;
    }
    _TEV_info_pack* pack = checkTEVInStreamVersionNotchecked(stream.get(), false);
    if (pack != nullptr) stream.release();
    return pack;
}

// The same over a file the check opens itself; it stays open with the pack.
_TEV_info_pack* checkOpenedFile(tev::OwnedFile fp) {
    _TEV_info_pack* pack = checkOwnedStream(new (std::nothrow) TevStreamFile(fp.get()));
    if (pack != nullptr) fp.release();
    return pack;
}

}  // namespace

_TEV_info_pack* checkTEVInStreamVersionNotchecked(TevStream* stream, bool /*ignored*/) {
    tev::OwnedTevInfo info = tev::parseStreamIndex(stream, true);
    if (!info) return nullptr;
    return packContainer(std::move(info));
}

_TEV_info_pack* checkTEVInStream(TevStream* stream) {
    return checkTEVInStreamVersionNotchecked(stream, false);
}

_TEV_info_pack* checkTEVInStreamAndUpdate(TevStream* stream) {
    return checkTEVInStreamVersionNotchecked(stream, false);
}

_TEV_info_pack* checkTEVInFile(const char* path) {
    if (path == nullptr) {
        logLine(kLogError, "TEV::checkTEVInFile", "filename null");
        return nullptr;
    }
    tev::OwnedFile fp(_kfopen(path, "r+b"));
    if (!fp) {
        logLine(kLogError, "TEVCommonAPIs", "File Open Error");
        return nullptr;
    }
    const tev::ReadGuard guard(tev::descriptorOf(fp.get()), true);
    return checkOpenedFile(std::move(fp));
}

_TEV_info_pack* checkTEVWithReadPM(const char* path) {
    if (path == nullptr) {
        logLine(kLogError, "TEVCommonAPIs::checkTEVWithReadPM", "filename null");
        return nullptr;
    }
    tev::OwnedFile fp(_kfopen(path, "rb"));
    if (!fp) {
        logLine(kLogError, "TEVCommonAPIs::checkTEVWithReadPM", "File Open Error");
        return nullptr;
    }
    const tev::ReadGuard guard(tev::descriptorOf(fp.get()), false);
    return checkOpenedFile(std::move(fp));
}

_TEV_info_pack* checkTEVInFP(FILE* fp) {
    if (fp == nullptr) {
        logLine(kLogError, "TEVCommonAPIs::checkTEVInFP", "fp is null!!");
        return nullptr;
    }
    return checkOwnedStream(new (std::nothrow) TevStreamFile(fp));
}

_TEV_info_pack* checkTEVInFd(int fd) {
    if (fd < 1) {
        logLine(kLogError, "TEVCommonAPIs::checkTEVInFd", "fd error!!");
        return nullptr;
    }
    const tev::ReadGuard guard(fd, tev::descriptorWritable(fd));
    return checkOwnedStream(new (std::nothrow) TevStreamFD(fd));
}

_TEV_info_pack* checkTEVWithReadPM_Fd(int fd) {
    if (fd == 0) {
        logLine(kLogError, "TEVCommonAPIs::checkTEVWithReadPM", "filename null");
        return nullptr;
    }
    return checkTEVInFd(fd);
}

// The caller's bytes get a handle of their own, readable up to `size`; the
// pack frees that handle (never the bytes) when it is destroyed.
_TEV_info_pack* checkTEVInBuffer(unsigned char* data, int64_t size) {
    TevBufferHandle* handle = size >= 0 ? _kbsetbuffer(data, size) : nullptr;
    if (handle != nullptr) btruncate(handle, size);
    _TEV_info_pack* pack = checkOwnedStream(new (std::nothrow) TevStreamBuffer(handle));
    if (pack == nullptr) _kbclose(handle);
    return pack;
}

_TEV_info_pack* checkTEVInHandle(TevBufferHandle* handle) {
    return checkOwnedStream(new (std::nothrow) TevStreamBuffer(handle));
}

uint32_t errorCheckTEVInStream(TevStream* stream) {
    if (stream == nullptr || !stream->CheckError()) return LUMET_TEV_FALSE;
    const uint32_t signature = getSignatureStream(stream);
    if (!hasContainerSignature(signature)) return LUMET_TEV_FALSE;
    tev::OwnedTevInfo info(ParseTEV(stream, signature));
    if (!info) return LUMET_TEV_FALSE;
    // Older directories are trusted once their tail parses; the wide-entry
    // versions must also yield their entries.
    if (info->version >= tev::kFirstWideEntryVersion && getTEVList(info.get()) == LUMET_TEV_FALSE) {
        return LUMET_TEV_FALSE;
    }
    return LUMET_TEV_TRUE;
}

uint32_t errorCheckTEVInFp(FILE* fp) {
    TevStreamFile stream(fp);
    if (!stream.CheckError()) return LUMET_TEV_FALSE;
    return errorCheckTEVInStream(&stream);
}

uint32_t errorCheckTEVInBuffer(TevBufferHandle* handle) {
    TevStreamBuffer stream(handle);
    if (!stream.CheckError()) return LUMET_TEV_FALSE;
    return errorCheckTEVInStream(&stream);
}
