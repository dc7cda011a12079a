// Deleting a whole container: the stream is cut where the appended region
// begins, so the records, the directory, a Voxa block behind it and an MP4
// "tevd" box header go, and the media in front stays as it was.
#include <cstdio>
#include <new>

#include "container/format.h"
#include "editor/delete_rebuild.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "tev/sound.h"
#include "stream/safe_edit.h"
#include "util/log.h"

using tev::OwnedFile;
using tev::OwnedPackOnStream;
using tev::OwnedStream;

uint32_t DeleteAllTEVDataStream(_TEV_info* info) {
    if (info == nullptr) return LUMET_TEV_FALSE;
    TevStream* stream = info->Stream;
    if (stream == nullptr) {
        tev::logLine(tev::kLogError, "TEV::DeleteAllTEVDataBuffer", "Stream is null");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEV::DeleteAllTEVDataBuffer", "Pointer is null");
        return LUMET_TEV_FALSE;
    }
    if (info->stream_size < 1) {
        tev::logLine(tev::kLogError, "TEV::DeleteAllTEVDataBuffer", "file size is <= 0");
        return LUMET_TEV_FALSE;
    }
    // The cut's own result is not part of this function's answer.
    stream->seek(0, SEEK_SET);
    stream->truncate(info->data_start_position);
    return LUMET_TEV_TRUE;
}

uint32_t DeleteAllDataStream(_TEV_info* info) {
    if (info == nullptr) return LUMET_TEV_FALSE;
    TevStream* stream = info->Stream;
    if (stream == nullptr) {
        tev::logLine(tev::kLogError, "TEV::DeleteAllData", "Stream is null");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEV::DeleteAllData", "Pointer is null");
        return LUMET_TEV_FALSE;
    }
    stream->truncate(info->data_start_position);
    return LUMET_TEV_TRUE;
}

uint32_t DeleteAllTEVDataBuffer(TevBufferHandle* handle, _TEV_info* info) {
    if (handle == nullptr) {
        tev::logLine(tev::kLogError, "TEV::DeleteAllTEVDataBuffer", "Buffer is null");
        return LUMET_TEV_FALSE;
    }
    if (info == nullptr) return LUMET_TEV_FALSE;
    // The index gives the positions; the cut is made in the caller's buffer.
    TevStreamBuffer stream(handle);
    _TEV_info onBuffer = *info;
    onBuffer.Stream = &stream;
    return DeleteAllTEVDataStream(&onBuffer);
}

uint32_t FastDeleteAllData(_TEV_info* info) { return DeleteAllTEVDataStream(info); }

uint32_t FastDeleteAllTEVData(_TEV_info* info) { return DeleteAllTEVDataStream(info); }

uint32_t deleteAllDataFromStream(TevStream* stream) {
    if (stream == nullptr) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteAllDataFromStream", "Stream NULL !!");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteAllDataFromStream",
                     "Stream CheckError is false");
        return LUMET_TEV_FALSE;
    }
    const uint32_t signature = getSignatureStream(stream);
    if (signature == SIGNATURE_VOXA) return deleteAVoxaStream(stream);
    if (signature != SIGNATURE_TEV && signature != SIGNATURE_VOXA_TEV) return LUMET_TEV_FALSE;
    // A container that does not parse leaves nothing to cut: 0, with the
    // parse's own log lines.
    OwnedPackOnStream pack(checkTEVInStreamAndUpdate(stream));
    return pack ? DeleteAllDataStream(pack->info) : LUMET_TEV_FALSE;
}

uint32_t deleteAllDataFromFile(const char* path) {
    if (path == nullptr) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteAllDataFromFile", "filename is null");
        return LUMET_TEV_FALSE;
    }
    OwnedFile file(_kfopen(path, "r+b"));
    if (!file) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteAllDataFromFile", "File Open Error");
        return LUMET_TEV_FALSE;
    }
    TevStreamFile stream(file.get());
    return tev::guardedStreamEdit(&stream, [](TevStream& edited) { return deleteAllDataFromStream(&edited); });
}

uint32_t deleteAllDataFromFd(int fd) {
    if (fd < 1) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteAllDataFromFd", "fd error!!");
        return LUMET_TEV_FALSE;
    }
    TevStreamFD stream(fd);
    return tev::guardedStreamEdit(&stream, [](TevStream& edited) { return deleteAllDataFromStream(&edited); });
}

uint32_t deleteFastAllTEVDataStream(TevStream* stream) {
    if (stream == nullptr) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteFastAllTEVDataStream", "Stream is null");
        return LUMET_TEV_FALSE;
    }
    // The stream is this function's from here on and is deleted on every path.
    OwnedStream owned(stream);
    if (!stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteFastAllTEVDataStream", "Pointer is null");
        return LUMET_TEV_FALSE;
    }
    OwnedPackOnStream pack(checkTEVInStreamAndUpdate(stream));
    if (!pack) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteFastAllTEVDataStream", "TEVDATA is null");
        return LUMET_TEV_FALSE;
    }
    return FastDeleteAllData(pack->info);
}

uint32_t deleteFastAllTEVData(const char* path) {
    if (path == nullptr) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteFastAllTEVData", "filename is null");
        return LUMET_TEV_FALSE;
    }
    OwnedFile file(_kfopen(path, "r+b"));
    if (!file) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteFastAllTEVData", "File Open Error");
        return LUMET_TEV_FALSE;
    }
    // One cut: it happens or not, so only the lock and the recovery of an
    // interrupted edit come first.
    const tev::FileLock lock(tev::descriptorOf(file.get()), true);
    tev::recoverJournal(tev::descriptorOf(file.get()));
    return deleteFastAllTEVDataStream(new (std::nothrow) TevStreamFile(file.get()));
}

uint32_t deleteFastAllTEVDataFP(FILE* fp) {
    if (fp == nullptr) {
        tev::logLine(tev::kLogError, "TEVEncoderAPIs::deleteFastAllTEVDataFP", "fp is null");
        return LUMET_TEV_FALSE;
    }
    return deleteFastAllTEVDataStream(new (std::nothrow) TevStreamFile(fp));
}
