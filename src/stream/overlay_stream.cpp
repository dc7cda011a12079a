// The copy-on-write stream an edit runs on: reads fall through to the file
// in front of the lowest written position, everything from there on lives in
// one memory tail until the commit. Results and log lines follow the file and
// descriptor streams (and the _k wrappers beneath them) call for call.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "stream/io_detail.h"
#include "stream/safe_edit.h"
#include "util/checked.h"
#include "util/log.h"

namespace tev {

namespace {

// Reads [at, at + size) of the file with pread; bytes read, -1 when an error
// came before any byte.
int64_t preadFully(int fd, unsigned char* out, int64_t size, int64_t at) {
    int64_t done = 0;
    while (done < size) {
        const ssize_t got = ::pread64(fd, out + done, static_cast<size_t>(size - done), at + done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return done > 0 ? done : -1;
        if (got == 0) break;
        done += got;
    }
    return done;
}

int64_t fileSizeOf(int fd) {
    struct stat st {};
    if (fd < 0 || ::fstat(fd, &st) != 0) return -1;
    return static_cast<int64_t>(st.st_size);
}

}  // namespace

OverlayStream::OverlayStream(int fd, uint32_t streamType)
    : TevStream(streamType), mFd(fd), mFileSize(fileSizeOf(fd)), mBase(0), mUsable(mFileSize >= 0) {
    if (!mUsable) mFileSize = 0;
    mBase = mFileSize;
    const off64_t at = mUsable ? ::lseek64(fd, 0, SEEK_CUR) : -1;
    mPosition = at > 0 ? at : 0;
}

OverlayStream::~OverlayStream() { std::free(mTail); }

int64_t OverlayStream::readAt(int64_t at, unsigned char* out, int64_t size) {
    const int64_t end = logicalSize();
    if (size < 0) return -1;
    if (at >= end) return 0;
    const int64_t want = std::min(size, end - at);
    int64_t done = 0;
    if (at < mBase) {
        const int64_t fromFile = std::min(want, mBase - at);
        const int64_t got = preadFully(mFd, out, fromFile, at);
        if (got < 0) return -1;
        done = got;
        if (got < fromFile) return done;
    }
    if (done < want) {
        std::memcpy(out + done, mTail + (at + done - mBase), static_cast<size_t>(want - done));
        done = want;
    }
    return done;
}

bool OverlayStream::resizeTail(int64_t size, bool zeroFill) {
    if (size > mTailCapacity) {
        int64_t capacity = std::max<int64_t>(mTailCapacity * 2, 4096);
        capacity = std::max(capacity, size);
        auto* grown = static_cast<unsigned char*>(std::realloc(mTail, static_cast<size_t>(capacity)));
        if (grown == nullptr) return false;
        mTail = grown;
        mTailCapacity = capacity;
    }
    if (zeroFill && size > mTailSize) std::memset(mTail + mTailSize, 0, static_cast<size_t>(size - mTailSize));
    mTailSize = size;
    return true;
}

// Moves the tail's start down to `at` (at < mBase <= file size), taking the
// file's bytes in between into it.
bool OverlayStream::lowerBase(int64_t at) {
    const int64_t extra = mBase - at;
    const int64_t oldSize = mTailSize;
    if (!resizeTail(oldSize + extra, false)) {  // filled from the file below
        mTailSize = oldSize;
        return false;
    }
    std::memmove(mTail + extra, mTail, static_cast<size_t>(oldSize));
    if (preadFully(mFd, mTail, extra, at) != extra) {
        std::memmove(mTail, mTail + extra, static_cast<size_t>(oldSize));
        mTailSize = oldSize;
        return false;
    }
    mBase = at;
    return true;
}

bool OverlayStream::writeAt(int64_t at, const unsigned char* bytes, int64_t size) {
    int64_t end = 0;
    if (at < 0 || size < 0 || !checkedAdd(at, size, &end)) return false;
    if (size == 0) return true;
    if (at < mBase && !lowerBase(at)) return false;
    if (end - mBase > mTailSize && !resizeTail(end - mBase)) return false;
    std::memcpy(mTail + (at - mBase), bytes, static_cast<size_t>(size));
    mChanged = true;
    return true;
}

// The write of _kfdwrite: everything or a logged -1.
int64_t OverlayStream::write(const void* buffer, int64_t size) {
    if (buffer == nullptr) return 0;
    if (size < 0) return -1;  // what the descriptor write gives, without a line
    if (writeAt(mPosition, static_cast<const unsigned char*>(buffer), size)) {
        mPosition += size;
        return size;
    }
    logLine(kLogError, "TEVSystemFile::_kfwrite", "write ret != write size_of_byte  ==> fail(%lld != %lld)",
            -1LL, static_cast<long long>(size));
    return -1;
}

// The integer writes report the bytes that went out, without a log line.
int64_t OverlayStream::writeCounted(const void* buffer, int64_t size) {
    if (!writeAt(mPosition, static_cast<const unsigned char*>(buffer), size)) return -1;
    mPosition += size;
    return size;
}

int64_t OverlayStream::writeInt16(int16_t value) {
    unsigned char bytes[kInt16Size];
    storeLittleEndian16(static_cast<uint16_t>(value), bytes);
    return writeCounted(bytes, sizeof bytes);
}

int64_t OverlayStream::writeInt32_endian(uint32_t value) {
    unsigned char bytes[kInt32Size];
    storeBigEndian32(value, bytes);
    return writeCounted(bytes, sizeof bytes);
}

int64_t OverlayStream::writeInt32(uint32_t value) {
    unsigned char bytes[kInt32Size];
    storeLittleEndian32(value, bytes);
    return writeCounted(bytes, sizeof bytes);
}

int64_t OverlayStream::read(void* buffer, int64_t size) {
    if (buffer == nullptr) return 0;
    const int64_t got = readAt(mPosition, static_cast<unsigned char*>(buffer), size);
    if (got > 0) mPosition += got;
    return got;
}

int64_t OverlayStream::readInt16(int16_t* out) {
    if (out == nullptr) return 0;
    unsigned char bytes[kInt16Size] = {};
    const int64_t got = read(bytes, kInt16Size);
    std::memcpy(out, bytes, sizeof bytes);
    return got;
}

int64_t OverlayStream::readInt32(uint32_t* out) {
    if (out == nullptr) return 0;
    unsigned char bytes[kInt32Size] = {};
    const int64_t got = read(bytes, kInt32Size);
    std::memcpy(out, bytes, sizeof bytes);
    return got;
}

int64_t OverlayStream::tell() { return mPosition; }

// lseek64's rules: a position below 0 or an unknown whence is EINVAL, logged
// as the descriptor wrappers log it.
int64_t OverlayStream::seek(int64_t offset, uint32_t whence) {
    int64_t from = 0;
    if (whence == SEEK_CUR) {
        from = mPosition;
    } else if (whence == SEEK_END) {
        from = logicalSize();
    } else if (whence != SEEK_SET) {
        from = -1;
    }
    int64_t target = -1;
    if (from < 0 || !checkedAdd(from, offset, &target) || target < 0) {
        logLine(kLogError, "_klseek", "errno : %d", EINVAL);
        return -1;
    }
    mPosition = target;
    return target;
}

int64_t OverlayStream::truncate(int64_t length) {
    if (length < 0) return -1;
    if (length < mBase) {
        mBase = length;
        mTailSize = 0;
    } else if (!resizeTail(length - mBase)) {
        return -1;
    }
    mChanged = true;
    return 0;
}

int64_t OverlayStream::getWriteSize() {
    int64_t size = 0;
    if (probeEndOfFile(*this, &size)) return size;
    if (GetStreamType() == TEV_STREAM_FD) {
        logLine(kLogError, "TEVStreamFile::TevStreamFile", "getWriteSize Error");
    } else {
        logLine(kLogError, "TEVStream::TevStreamFile", "getWriteSize Error");
    }
    return 0;
}

int64_t OverlayStream::getAllocSize() { return getWriteSize(); }

int OverlayStream::destroyPointer() { return 0; }

bool OverlayStream::CheckError() { return mUsable; }

}  // namespace tev
