// The one loop that copies bytes within a stream or between two: deletes
// close the gap a removed record leaves, sound edits pull records over an
// old sound, the media replacement moves the records either way and copies
// media from another file.
#ifndef TEV_SRC_STREAM_BYTE_MOVE_H
#define TEV_SRC_STREAM_BYTE_MOVE_H

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "tev/stream.h"

namespace tev {

enum class MoveResult { kDone, kNoMemory, kReadFailed, kWriteFailed };

// Copies runs of bytes through one buffer of at most kChunk bytes, made at
// the first copy and kept for the next ones.
class ByteMover {
public:
    static constexpr int64_t kChunk = int64_t{1} << 20;

    // Copies `length` bytes from `from` to `to` (to <= from) front to back:
    // each piece is read before anything at or behind it is written, so a
    // source overlapping its destination is read whole.
    MoveResult forward(TevStream& stream, int64_t from, int64_t to, int64_t length);

    // Copies `length` bytes from `from` in `src` to `to` in `dst`. Within one
    // stream the pieces go in the order that reads every byte before it is
    // written over: front to back towards the start, back to front towards
    // the end.
    MoveResult copy(TevStream& src, int64_t from, TevStream& dst, int64_t to, int64_t length);

    // Makes the buffer for moves of `total` bytes in all (at most kChunk)
    // before the first one; false when it cannot be had.
    bool reserve(int64_t total);

private:
    struct Free {
        void operator()(unsigned char* bytes) const { _kfree(bytes); }
    };
    std::unique_ptr<unsigned char, Free> chunk_;
    int64_t chunkSize_ = 0;
};

}  // namespace tev

#endif  // TEV_SRC_STREAM_BYTE_MOVE_H
