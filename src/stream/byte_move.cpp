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
    if (!reserve(length)) return MoveResult::kNoMemory;
    for (int64_t done = 0; done < length;) {
        const int64_t step = std::min(length - done, chunkSize_);
        if (stream.seek(from + done, SEEK_SET) != from + done || stream.read(chunk_.get(), step) != step) {
            return MoveResult::kReadFailed;
        }
        if (stream.seek(to + done, SEEK_SET) != to + done || stream.write(chunk_.get(), step) != step) {
            return MoveResult::kWriteFailed;
        }
        done += step;
    }
    return MoveResult::kDone;
}

}  // namespace tev
