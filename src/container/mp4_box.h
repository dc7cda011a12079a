// The "tevd" box header as the readers outside the writers of mp4_box.cpp
// see it: a big-endian size field that counts the whole box, then "tevd".
#ifndef TEV_SRC_CONTAINER_MP4_BOX_H
#define TEV_SRC_CONTAINER_MP4_BOX_H

#include <cstdint>

#include "tev/stream.h"

namespace tev {

// The size field of the box whose header starts at `position`; false when
// its four bytes cannot all be read there. The stream is left behind them.
bool readBoxSize(TevStream& stream, int64_t position, uint32_t* size);

}  // namespace tev

#endif  // TEV_SRC_CONTAINER_MP4_BOX_H
