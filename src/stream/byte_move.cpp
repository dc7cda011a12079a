#include "stream/byte_move.h"

#include <algorithm>
#include <cstdio>

namespace tev {

bool ByteMover::reserve(int64_t total) {
    if (chunkSize_ > 0 || total <= 0) return true;
    const int64_t size = std::min(total, kChunk);
    chunk_.reset(static_cast<unsigned char*>(_kmalloc(static_cast<size_t>(size))));
    if (!chunk_) return false;
    chunkSize_ = size;
    return true;
}

MoveResult ByteMover::forward(TevStream& stream, int64_t from, int64_t to, int64_t length) {
    return copy(stream, from, stream, to, length);
}

MoveResult ByteMover::copy(TevStream& src, int64_t from, TevStream& dst, int64_t to, int64_t length) {
    if (!reserve(length)) return MoveResult::kNoMemory;
    const bool backwards = &src == &dst && to > from;
    for (int64_t done = 0; done < length;) {
        const int64_t step = std::min(length - done, chunkSize_);
        const int64_t offset = backwards ? length - done - step : done;
        if (src.seek(from + offset, SEEK_SET) != from + offset || src.read(chunk_.get(), step) != step) {
            return MoveResult::kReadFailed;
        }
        if (dst.seek(to + offset, SEEK_SET) != to + offset || dst.write(chunk_.get(), step) != step) {
            return MoveResult::kWriteFailed;
        }
        done += step;
    }
    return MoveResult::kDone;
}

}  // namespace tev
