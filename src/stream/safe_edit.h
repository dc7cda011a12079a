// Crash-safe edits of files and descriptors.
//
// An edit's body runs unchanged on an OverlayStream that stands over the
// file: it reads through to the file where it has not written and keeps its
// writes and the file's new logical size in memory, so its bytes, results and
// log lines are those of a direct run. Then commitOverlay() puts the change
// into the file through a journal behind the file's end (a footer written
// first, the bytes of the journal, the change in place, one cut that removes
// the journal), and the next call that finds a journal finishes or undoes the
// edit (recoverJournal). Every call holds an advisory flock on the file for
// its duration: exclusive for edits and recovery, shared for reads.
// docs/reliability.md explains the journal and its costs.
#ifndef TEV_SRC_STREAM_SAFE_EDIT_H
#define TEV_SRC_STREAM_SAFE_EDIT_H

#include <cstdint>
#include <cstdio>

#include "tev/stream.h"

namespace tev {

// A TevStream over a file descriptor that never writes it: writes and
// truncations go to one memory tail holding the logical bytes [base, end)
// from the lowest position written on; everything in front of it is read
// from the file. Reports the stream type and the log lines of the file or
// descriptor stream it stands in for.
class OverlayStream final : public TevStream {
public:
    OverlayStream(int fd, uint32_t streamType);
    ~OverlayStream() override;
    OverlayStream(const OverlayStream&) = delete;
    OverlayStream& operator=(const OverlayStream&) = delete;

    int64_t read(void* buffer, int64_t size) override;
    int64_t readInt16(int16_t* out) override;
    int64_t readInt32(uint32_t* out) override;
    int64_t write(const void* buffer, int64_t size) override;
    int64_t writeInt16(int16_t value) override;
    int64_t writeInt32_endian(uint32_t value) override;
    int64_t writeInt32(uint32_t value) override;
    int64_t tell() override;
    int64_t seek(int64_t offset, uint32_t whence) override;
    int64_t truncate(int64_t length) override;
    int64_t getWriteSize() override;
    int64_t getAllocSize() override;
    int destroyPointer() override;  // 0; the file stays with its owner
    bool CheckError() override;     // false when the file's size could not be had

    bool changed() const { return mChanged; }
    int fd() const { return mFd; }
    int64_t fileSize() const { return mFileSize; }   // size of the file underneath
    int64_t tailStart() const { return mBase; }      // lowest position written (or cut to)
    int64_t logicalSize() const { return mBase + mTailSize; }
    const unsigned char* tail() const { return mTail; }
    int64_t position() const { return mPosition; }

private:
    int64_t readAt(int64_t at, unsigned char* out, int64_t size);
    bool writeAt(int64_t at, const unsigned char* bytes, int64_t size);
    bool lowerBase(int64_t at);
    bool resizeTail(int64_t size, bool zeroFill = true);
    int64_t writeCounted(const void* buffer, int64_t size);

    int mFd;
    int64_t mFileSize;
    int64_t mBase;
    unsigned char* mTail = nullptr;
    int64_t mTailSize = 0;
    int64_t mTailCapacity = 0;
    int64_t mPosition = 0;
    bool mChanged = false;
    bool mUsable;
};

// How a commit ended.
enum class CommitResult {
    kDone,        // the file holds the overlay's bytes
    kRolledBack,  // a write failed; the file is as before the edit
    kPending,     // a write failed; a journal remains for the next call
};

// Puts the overlay's change into the file under the journal. Nothing is
// written when the body wrote nothing.
CommitResult commitOverlay(OverlayStream& overlay);

// Finishes or undoes an edit whose journal ends the file. True when the file
// is consistent afterwards (also when nothing was pending).
bool recoverJournal(int fd);

// An advisory flock held for the lifetime of the object, exclusive or
// shared. A thread that already holds one (an entry point calling another)
// takes no second lock, so nested calls cannot wait on themselves.
class FileLock {
public:
    FileLock(int fd, bool exclusive);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    int mFd;
    bool mTaken;
};

// Descriptor of a FILE*, -1 for null.
int descriptorOf(FILE* fp);
// True when the descriptor was opened for writing.
bool descriptorWritable(int fd);

// The commit half of guardedEdit, shared by every instantiation.
uint32_t finishGuardedEdit(OverlayStream& overlay, uint32_t result);

// The descriptor under a file or descriptor stream that no guarded edit of
// this thread is running on; -1 for memory buffers and for an overlay (the
// edit is already guarded).
int guardableDescriptor(TevStream* stream);
// True for the overlay this thread's guarded edit runs on.
bool isActiveOverlay(const TevStream* stream);

// Marks the overlay a guarded edit runs on for the thread's lifetime of it.
class ActiveOverlay {
public:
    explicit ActiveOverlay(const TevStream* overlay);
    ~ActiveOverlay();
    ActiveOverlay(const ActiveOverlay&) = delete;
    ActiveOverlay& operator=(const ActiveOverlay&) = delete;

private:
    const TevStream* mPrevious;
};

// Runs `body(TevStream&)` as a crash-safe edit of the file under fd: takes
// the exclusive lock, finishes an interrupted edit, runs the body on an
// overlay and commits it. The body's result stands when the commit went
// through; a failed commit gives 0 after one log line. The descriptor is
// left at the position the body left its stream at.
template <typename Body>
uint32_t guardedEdit(int fd, uint32_t streamType, Body body) {
    const FileLock lock(fd, true);
    recoverJournal(fd);
    OverlayStream overlay(fd, streamType);
    uint32_t result = 0;
    {
        const ActiveOverlay active(&overlay);
        result = body(static_cast<TevStream&>(overlay));
    }
    return finishGuardedEdit(overlay, result);
}

// guardedEdit over the file or descriptor under `stream`; other streams (and
// an edit nested in a guarded one) run the body on the stream itself.
template <typename Body>
uint32_t guardedStreamEdit(TevStream* stream, Body body) {
    const int fd = guardableDescriptor(stream);
    if (fd < 0) return body(*stream);
    return guardedEdit(fd, stream->GetStreamType(), body);
}

// Reading calls: the shared lock, and (`canWrite`) recovery first under the
// exclusive one.
class ReadGuard {
public:
    ReadGuard(int fd, bool canWrite);
    ReadGuard(const ReadGuard&) = delete;
    ReadGuard& operator=(const ReadGuard&) = delete;

private:
    FileLock mLock;
};

}  // namespace tev

#endif  // TEV_SRC_STREAM_SAFE_EDIT_H
