// The "tevd" box header: a big-endian size field that counts the whole box,
// then "tevd". Its one reader and one writer, for code outside mp4_box.cpp.
#ifndef TEV_SRC_CONTAINER_MP4_BOX_H
#define TEV_SRC_CONTAINER_MP4_BOX_H

#include <cstdint>

#include "tev/stream.h"

namespace tev {

// The size field of the box whose header starts at `position`; false when
// its four bytes cannot all be read there. The stream is left behind them.
bool readBoxSize(TevStream& stream, int64_t position, uint32_t* size);
// Writes the size field and "tevd" at the stream's position; true when both
// went out whole.
bool writeBoxHeader(TevStream& stream, uint32_t size);

}  // namespace tev

#endif  // TEV_SRC_CONTAINER_MP4_BOX_H
