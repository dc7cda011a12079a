// Scoped owners for what the library makes for the length of one call:
// memory from _kmalloc, files it opened, stream objects built around a
// caller's medium, parsed indexes and packs, and Voxa descriptors.
#ifndef TEV_SRC_CONTAINER_OWNED_H
#define TEV_SRC_CONTAINER_OWNED_H

#include <cstdio>
#include <memory>

#include "tev/tev.hpp"

namespace tev {

// The public owners of tev/tev.hpp, under the names the library's code
// uses; each resource has one owner type.
template <typename T>
using KUnique = std::unique_ptr<T, KFreeDeleter>;  // memory from _kmalloc / _kcalloc
using OwnedTevInfo = Index;                         // DestroyTEV
using OwnedPackOnStream = PackStream;               // a pack over a stream someone else releases
using OwnedFilePack = Pack;                         // a pack that owns its stream and file
using OwnedVoxaOnStream = VoxaStream;               // a Voxa descriptor over someone else's stream
using OwnedUnit = Record;                           // an extracted record

struct FileCloser {
    void operator()(FILE* fp) const { _kfclose(fp); }
};
// A FILE* the library opened itself; closed when the owner goes away.
using OwnedFile = std::unique_ptr<FILE, FileCloser>;

// A stream object built around a medium; deleting it never closes the medium.
using OwnedStream = std::unique_ptr<TevStream>;

}  // namespace tev

#endif  // TEV_SRC_CONTAINER_OWNED_H
