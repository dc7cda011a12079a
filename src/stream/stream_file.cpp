// Stream over a stdio FILE*. All I/O goes through an inner descriptor stream
// over fileno(FILE*); the FILE* itself is only closed by destroyPointer.
#include <cstdio>
#include <new>

#include "stream/io_detail.h"
#include "tev/stream.h"
#include "util/log.h"

namespace {

// Type of a stream made over a null FILE*: none of the three media.
constexpr uint32_t kNoStreamType = 0;

// True (after logging) when the stream has no descriptor stream to forward to.
bool missingInner(const TevStreamFD* inner) {
    if (inner != nullptr) return false;
    tev::logLine(tev::kLogError, "TEVStream::TevStreamFile", "mStreamFd  is NULL");
    return true;
}

}  // namespace

// A null FILE* leaves the type at 0 and the stream unusable.
TevStreamFile::TevStreamFile(FILE* fp)
    : TevStream(fp != nullptr ? uint32_t{TEV_STREAM_FILE} : kNoStreamType),
      mStreamFd(fp != nullptr ? new (std::nothrow) TevStreamFD(fileno(fp)) : nullptr),
      mFp(fp) {}

TevStreamFile::~TevStreamFile() { delete mStreamFd; }

int64_t TevStreamFile::read(void* buffer, int64_t size) {
    if (missingInner(mStreamFd)) return 0;
    return mStreamFd->read(buffer, size);
}

int64_t TevStreamFile::readInt16(int16_t* out) {
    if (missingInner(mStreamFd)) return 0;
    return mStreamFd->readInt16(out);
}

int64_t TevStreamFile::readInt32(uint32_t* out) {
    if (missingInner(mStreamFd)) return 0;
    return mStreamFd->readInt32(out);
}

int64_t TevStreamFile::write(const void* buffer, int64_t size) {
    if (missingInner(mStreamFd)) return 0;
    return mStreamFd->write(buffer, size);
}

int64_t TevStreamFile::writeInt16(int16_t value) {
    if (missingInner(mStreamFd)) return 0;
    return mStreamFd->writeInt16(value);
}

int64_t TevStreamFile::writeInt32_endian(uint32_t value) {
    if (missingInner(mStreamFd)) return 0;
    return mStreamFd->writeInt32_endian(value);
}

int64_t TevStreamFile::writeInt32(uint32_t value) {
    if (missingInner(mStreamFd)) return 0;
    return mStreamFd->writeInt32(value);
}

int64_t TevStreamFile::tell() {
    if (missingInner(mStreamFd)) return 0;
    return mStreamFd->tell();
}

int64_t TevStreamFile::seek(int64_t offset, uint32_t whence) {
    if (missingInner(mStreamFd)) return 0;
    return mStreamFd->seek(offset, whence);
}

int64_t TevStreamFile::truncate(int64_t length) {
    if (missingInner(mStreamFd)) return 0;
    return mStreamFd->truncate(length);
}

int64_t TevStreamFile::getWriteSize() {
    int64_t size = 0;
    if (tev::probeEndOfFile(*this, &size)) return size;
    tev::logLine(tev::kLogError, "TEVStream::TevStreamFile", "getWriteSize Error");
    return 0;
}

int64_t TevStreamFile::getAllocSize() { return getWriteSize(); }

int TevStreamFile::destroyPointer() {
    delete mStreamFd;
    mStreamFd = nullptr;
    const int result = _kfclose(mFp);
    mFp = nullptr;
    return result;
}

bool TevStreamFile::CheckError() { return mFp != nullptr; }
