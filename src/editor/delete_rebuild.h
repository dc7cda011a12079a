// Steps shared by the delete operations: checking where a parsed container's
// records lie, and rebuilding the container without some of them in place.
//
// Everything taken from an index is untrusted: the records must lie back to
// back from the first record to "TEVH", inside [data start, "TEVH"), before a
// byte is copied. Bytes in front of the first record are never written.
#ifndef TEV_SRC_EDITOR_DELETE_REBUILD_H
#define TEV_SRC_EDITOR_DELETE_REBUILD_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>

#include "container/owned.h"
#include "tev/container.h"
#include "tev/stream.h"
#include "tev/types.h"
#include "tev/voxa.h"

namespace tev::deleting {

// Where a container's records lie, as checked by locateRecords.
struct RecordSpan {
    int64_t first;      // first byte of the first record
    int64_t directory;  // first byte of "TEVH"
};

// True (and `span` filled) when every entry's record lies inside
// [data start, "TEVH") and the records follow each other without gap or
// overlap in directory order, the last one ending where "TEVH" begins.
bool locateRecords(const _TEV_info& info, RecordSpan* span);

// The records to remove: one flag per directory entry, their number and
// their total length. An index named twice is removed once.
class Removal {
public:
    bool init(uint32_t entryCount);  // false when the flags cannot be allocated
    // Out-of-range indices are ignored. `info` must have passed locateRecords,
    // which bounds the sum of all record lengths by the stream size.
    void remove(const _TEV_info& info, uint32_t index);
    bool removed(uint32_t index) const { return flags_.get()[index] != 0; }
    uint32_t count() const { return count_; }
    int64_t length() const { return length_; }

private:
    KUnique<uint8_t> flags_;
    uint32_t entryCount_ = 0;
    uint32_t count_ = 0;
    int64_t length_ = 0;
};

// Length of the rebuilt container: the kept records and their directory.
// `info` must have passed locateRecords.
int64_t rebuiltLength(const _TEV_info& info, const RecordSpan& span, const Removal& removal);

enum class RebuildStatus { kOk, kNoMemory, kReadFailed, kWriteFailed };

// Rebuilds the container in place: the kept records that lie behind the
// first removed one move forward over the removed ones, front to back
// through one buffer of at most 1 MiB, and the new directory follows them;
// records in front of the first removed one are neither read nor written.
// Each kept entry's offset shrinks by the removed length lying between its
// record and "TEVH". The stream is left right behind the directory. The
// bytes from the first record on are those the container rebuilt whole would
// have, so a failure part-way leaves moved records but never a torn one
// overwritten before it was read: every read lies ahead of every write.
// In a file, the old directory is made unreadable first, so that a rebuild
// cut short leaves a damaged container rather than a directory naming moved
// bytes. `cutBehind`: the caller cuts the stream right behind what it writes
// after the new directory (not so the multi-record delete, whose cut can
// keep old bytes); the old directory is then always gone at the end.
RebuildStatus rebuildInPlace(TevStream& stream, const _TEV_info& info, const RecordSpan& span,
                             const Removal& removal, bool cutBehind);

// A memory stream of fixed capacity, for edits that assemble a tail of the
// file in memory before writing it over the old one.
class TempStream {
public:
    bool open(int64_t capacity);  // false when the buffer cannot be made
    TevStream& stream() { return *stream_; }
    int64_t written() const { return kbgetWriteSize(handle_.get()); }

private:
    tev::Buffer handle_;
    std::optional<TevStreamBuffer> stream_;
};

// Copies the first `length` bytes of `temp` into `stream` from `at` on.
bool copyBack(TevStream& stream, int64_t at, TevStream& temp, int64_t length);

}  // namespace tev::deleting

#endif  // TEV_SRC_EDITOR_DELETE_REBUILD_H
