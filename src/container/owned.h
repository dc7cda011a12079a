// Scoped owners for what the library makes for the length of one call:
// memory from _kmalloc, files it opened, stream objects built around a
// caller's medium, parsed indexes and packs, and Voxa descriptors.
#ifndef TEV_SRC_CONTAINER_OWNED_H
#define TEV_SRC_CONTAINER_OWNED_H

#include <cstdio>
#include <memory>

#include "tev/container.h"
#include "tev/stream.h"
#include "tev/types.h"
#include "tev/voxa.h"

namespace tev {

// Releases memory that came from _kmalloc / _kcalloc.
struct KFree {
    void operator()(void* memory) const { _kfree(memory); }
};
template <typename T>
using KUnique = std::unique_ptr<T, KFree>;

struct FileCloser {
    void operator()(FILE* fp) const { _kfclose(fp); }
};
// A FILE* the library opened itself; closed when the owner goes away.
using OwnedFile = std::unique_ptr<FILE, FileCloser>;

// A stream object built around a medium; deleting it never closes the medium.
using OwnedStream = std::unique_ptr<TevStream>;

struct TevInfoDestroyer {
    void operator()(_TEV_info* info) const { DestroyTEV(info); }
};
using OwnedTevInfo = std::unique_ptr<_TEV_info, TevInfoDestroyer>;

// A pack parsed over a stream that someone else releases.
struct PackOnStreamDestroyer {
    void operator()(_TEV_info_pack* pack) const { destroyTEVDATA_Stream(pack); }
};
using OwnedPackOnStream = std::unique_ptr<_TEV_info_pack, PackOnStreamDestroyer>;

// A pack that owns its stream and the file under it (checkTEVInFile).
struct PackWithFileDestroyer {
    void operator()(_TEV_info_pack* pack) const { destroyTEVDATA(pack); }
};
using OwnedFilePack = std::unique_ptr<_TEV_info_pack, PackWithFileDestroyer>;

// A Voxa descriptor parsed over a stream that belongs to someone else.
struct VoxaOnStreamDestroyer {
    void operator()(_voxa_info_struct* voxa) const { DestroyVoxaStream(voxa); }
};
using OwnedVoxaOnStream = std::unique_ptr<_voxa_info_struct, VoxaOnStreamDestroyer>;

}  // namespace tev

#endif  // TEV_SRC_CONTAINER_OWNED_H
