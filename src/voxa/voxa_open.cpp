// The path, FILE*, descriptor and buffer forms of the Voxa parser: each
// builds a stream, parses through it and keeps the stream in the record on
// success. The record then owns the wrapper until the DestroyVoxa function
// that matches the medium releases it.
#include <cstdio>
#include <memory>
#include <new>

#include "container/owned.h"
#include "tev/stream.h"
#include "tev/voxa.h"
#include "util/log.h"
#include "voxa/voxa_internal.h"

namespace {

using tev::voxa::StreamRelease;

using FilePtr = tev::OwnedFile;

// Parses over a new stream built from `source`; the stream goes into the
// record, or is deleted when there is no block.
template <typename Stream, typename Source>
_voxa_info_struct* parseOver(Source source) {
    std::unique_ptr<TevStream> stream(new (std::nothrow) Stream(source));
    if (!stream) return nullptr;
    _voxa_info_struct* info = ParseVoxaStream(stream.get());
    if (info != nullptr) stream.release();
    return info;
}

// Reads the table of a freshly parsed record; on failure the record and its
// stream are released as `onFailure` says.
_voxa_info_struct* withTable(_voxa_info_struct* info, StreamRelease onFailure) {
    if (info == nullptr) return nullptr;
    if (ParseVoxaSound(info) == LUMET_TEV_TRUE) return info;
    tev::voxa::releaseRecord(info, onFailure);
    return nullptr;
}

}  // namespace

_voxa_info_struct* ParseVoxa(const char* path) {
    FilePtr file(path != nullptr ? _kfopen(path, "rb") : nullptr);
    if (!file) {
        tev::logLine(tev::kLogError, "Voxa::ParseVoxa", "File Open Error");
        return nullptr;
    }
    _voxa_info_struct* info = parseOver<TevStreamFile>(file.get());
    // The record's stream now stands on the file; DestroyVoxa closes it.
    if (info != nullptr) file.release();
    return info;
}

_voxa_info_struct* ParseVoxaFP(FILE* fp) {
    if (fp == nullptr) return nullptr;
    return parseOver<TevStreamFile>(fp);
}

_voxa_info_struct* ParseVoxaFd(int fd) {
    if (fd < 1) return nullptr;
    return parseOver<TevStreamFD>(fd);
}

_voxa_info_struct* ParseVoxaBuffer(TevBufferHandle* handle) {
    if (handle == nullptr) return nullptr;
    return parseOver<TevStreamBuffer>(handle);
}

// When the table cannot be read, the medium forms release the stream with
// destroyPointer: a FILE* handed in is closed and a buffer handle destroyed,
// as callers of these checks have always seen.
_voxa_info_struct* _checkAudioInImageFile(const char* path) {
    if (path == nullptr) return nullptr;
    return withTable(ParseVoxa(path), StreamRelease::Close);
}

_voxa_info_struct* _checkAudioInImageFP(FILE* fp) {
    return withTable(ParseVoxaFP(fp), StreamRelease::Close);
}

_voxa_info_struct* _checkAudioInImageFd(int fd) {
    return withTable(ParseVoxaFd(fd), StreamRelease::Close);
}

_voxa_info_struct* _checkAudioInImageBuffer(TevBufferHandle* handle) {
    return withTable(ParseVoxaBuffer(handle), StreamRelease::Close);
}

_voxa_info_struct* _checkAudioInImageStream(TevStream* stream) {
    return withTable(ParseVoxaStream(stream), StreamRelease::Keep);
}
