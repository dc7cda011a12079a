// Helpers shared by the parser, the name reader and the position routines
// of the in-memory index.
#ifndef TEV_SRC_CONTAINER_INDEX_H
#define TEV_SRC_CONTAINER_INDEX_H

#include <cstdint>
#include <cstring>
#include <memory>

#include "container/format.h"
#include "container/owned.h"
#include "tev/stream.h"
#include "tev/types.h"

namespace tev {

// True when all `size` bytes were read.
inline bool readFully(TevStream& stream, void* buffer, int64_t size) {
    return stream.read(buffer, size) == size;
}

// One little-endian 32-bit field; `value` is untouched on a short read.
inline bool readWord(TevStream& stream, uint32_t* value) {
    uint32_t word = 0;
    if (stream.readInt32(&word) != kFieldSize) return false;
    *value = word;
    return true;
}

// The little-endian 32-bit field at `bytes`: readers that fetch several
// fields of the trailer or of a tag header in one read decode them with this.
inline uint32_t loadLittleEndian32(const unsigned char* bytes) {
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
           uint32_t{bytes[3]} << 24;
}

inline bool tagEquals(const char* bytes, const char (&tag)[kTagSize]) {
    return std::memcmp(bytes, tag, kTagSize) == 0;
}

// Reads a 4-byte tag and tells whether it is `tag`.
inline bool readTag(TevStream& stream, const char (&tag)[kTagSize]) {
    char bytes[kTagSize] = {};
    return readFully(stream, bytes, kTagSize) && tagEquals(bytes, tag);
}

// Versions from 110 on keep wider directory entries and a field in front of
// the first record.
inline bool isWideVersion(uint32_t version) { return version >= kFirstWideEntryVersion; }

// Absolute position of the entry's first byte, computed from the size the
// stream had when it was parsed; -1 when the entry's distance from "TEVH"
// would put it before the start of the stream.
inline int64_t recordStart(const _TEV_info& info, const _TEV_data_info& entry) {
    const int64_t distance = int64_t{info.header_offset} + int64_t{entry.start_offset};
    if (info.stream_size < distance) return -1;
    return info.stream_size - distance;
}

}  // namespace tev

#endif  // TEV_SRC_CONTAINER_INDEX_H
