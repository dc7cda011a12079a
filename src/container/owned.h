// Scoped owners for what the readers make for the length of one call: files
// they opened, stream objects they built around a caller's medium, parsed
// indexes and Voxa descriptors. Memory from _kmalloc is held in KUnique
// (container/index.h).
#ifndef TEV_SRC_CONTAINER_OWNED_H
#define TEV_SRC_CONTAINER_OWNED_H

#include <cstdio>
#include <memory>

#include "tev/container.h"
#include "tev/stream.h"
#include "tev/types.h"
#include "tev/voxa.h"

namespace tev {

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

// A Voxa descriptor parsed over a stream that belongs to someone else.
struct VoxaOnStreamDestroyer {
    void operator()(_voxa_info_struct* voxa) const { DestroyVoxaStream(voxa); }
};
using OwnedVoxaOnStream = std::unique_ptr<_voxa_info_struct, VoxaOnStreamDestroyer>;

}  // namespace tev

#endif  // TEV_SRC_CONTAINER_OWNED_H
