// Stream over a POSIX descriptor. It never closes the descriptor; its
// destruction rewinds it to the start for the caller that lent it.
#include <unistd.h>

#include <cstdio>

#include "stream/io_detail.h"
#include "tev/stream.h"
#include "util/log.h"

TevStreamFD::TevStreamFD(int fd) : TevStream(TEV_STREAM_FD), mFd(fd) {}

TevStreamFD::~TevStreamFD() {
    _kfdseek(mFd, 0, SEEK_SET);
    mFd = -1;
}

int64_t TevStreamFD::read(void* buffer, int64_t size) { return _kfdread(mFd, buffer, size); }

int64_t TevStreamFD::readInt16(int16_t* out) { return _kfdreadInt16(mFd, out); }

int64_t TevStreamFD::readInt32(uint32_t* out) { return _kfdreadInt32(mFd, out); }

int64_t TevStreamFD::write(const void* buffer, int64_t size) {
    return _kfdwrite(mFd, buffer, size);
}

int64_t TevStreamFD::writeInt16(int16_t value) { return _kfdwriteInt16(mFd, value); }

int64_t TevStreamFD::writeInt32_endian(uint32_t value) {
    return _kfdwriteInt32_endian(mFd, value);
}

int64_t TevStreamFD::writeInt32(uint32_t value) { return _kfdwriteInt32(mFd, value); }

int64_t TevStreamFD::tell() { return _kfdtell(mFd); }

int64_t TevStreamFD::seek(int64_t offset, uint32_t whence) {
    return _kfdseek(mFd, offset, static_cast<int>(whence));
}

int64_t TevStreamFD::truncate(int64_t length) {
    return ::ftruncate(mFd, static_cast<off_t>(length));
}

int64_t TevStreamFD::getWriteSize() {
    int64_t size = 0;
    if (tev::probeEndOfFile(*this, &size)) return size;
    tev::logLine(tev::kLogError, "TEVStreamFile::TevStreamFile", "getWriteSize Error");
    return 0;
}

int64_t TevStreamFD::getAllocSize() { return getWriteSize(); }

int TevStreamFD::destroyPointer() { return 0; }

bool TevStreamFD::CheckError() { return mFd != -1; }
