// The checks' parse, for callers inside the library that need a fresh index
// of a stream without the pack around it, and sometimes without the names.
#ifndef TEV_SRC_CONTAINER_CHECK_INTERNAL_H
#define TEV_SRC_CONTAINER_CHECK_INTERNAL_H

#include "container/owned.h"
#include "tev/stream.h"

namespace tev {

// The index that checkTEVInStream packs, with the same result and the same
// log lines; null when the check fails. With `withNames` false, the names of
// a stream that ends with its directory (signature 2) are not read. Ask for
// that only where every name is known to be readable: records an earlier
// parse read and no write has touched since, or that a write has just put
// there whole.
OwnedTevInfo parseStreamIndex(TevStream* stream, bool withNames);

}  // namespace tev

#endif  // TEV_SRC_CONTAINER_CHECK_INTERNAL_H
