// Descriptor wrappers. Descriptor 0 counts as invalid throughout (fd < 1).
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>

#include "stream/io_detail.h"
#include "tev/stream.h"
#include "util/log.h"

namespace tev {

namespace {

// One system call moves at most this much; larger requests loop.
constexpr int64_t kMaxSystemTransfer = SSIZE_MAX;

}  // namespace

int64_t readFully(int fd, void* buffer, int64_t size) {
    if (size < 0) return -1;
    auto* cursor = static_cast<unsigned char*>(buffer);
    int64_t done = 0;
    while (done < size) {
        const auto step = static_cast<size_t>(std::min(size - done, kMaxSystemTransfer));
        const ssize_t got = ::read(fd, cursor + done, step);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return done > 0 ? done : -1;
        if (got == 0) break;
        done += got;
    }
    return done;
}

int64_t writeFully(int fd, const void* buffer, int64_t size) {
    if (size < 0) return -1;
    const auto* cursor = static_cast<const unsigned char*>(buffer);
    int64_t done = 0;
    while (done < size) {
        const auto step = static_cast<size_t>(std::min(size - done, kMaxSystemTransfer));
        const ssize_t put = ::write(fd, cursor + done, step);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) return done > 0 ? done : -1;
        if (put == 0) break;
        done += put;
    }
    return done;
}

int64_t writeAllOrFail(int fd, const void* buffer, int64_t size) {
    const int64_t written = writeFully(fd, buffer, size);
    if (written == size) return size;
    logLine(kLogError, "TEVSystemFile::_kfwrite",
            "write ret != write size_of_byte  ==> fail(%lld != %lld)",
            static_cast<long long>(written), static_cast<long long>(size));
    return -1;
}

int64_t seekLogged(int fd, int64_t offset, int whence) {
    const off64_t position = ::lseek64(fd, offset, whence);
    if (position == -1) {
        logLine(kLogError, "_klseek", "errno : %d", errno);
        return -1;
    }
    return position;
}

int copyBetweenDescriptors(int dstFd, int srcFd, int64_t size) {
    if (size < 1) return 0;
    std::unique_ptr<unsigned char, decltype(&_kfree)> chunk(
        static_cast<unsigned char*>(_kmalloc(kFileCopyChunk)), &_kfree);
    if (!chunk) return 0;
    for (int64_t remaining = size; remaining > 0;) {
        const int64_t step = std::min(remaining, kFileCopyChunk);
        // The read count is not checked: the chunk goes out whole, and a
        // short write is logged without stopping the copy.
        readFully(srcFd, chunk.get(), step);
        writeAllOrFail(dstFd, chunk.get(), step);
        remaining -= step;
    }
    return 1;
}

}  // namespace tev

namespace {

bool badDescriptor(int fd) { return fd < 1; }

}  // namespace

int64_t _kfdread(int fd, void* buffer, int64_t size) {
    if (badDescriptor(fd) || buffer == nullptr) return 0;
    return tev::readFully(fd, buffer, size);
}

int64_t _kfdreadInt16(int fd, int16_t* out) {
    if (badDescriptor(fd) || out == nullptr) return 0;
    int16_t value = 0;
    const int64_t got = tev::readFully(fd, &value, tev::kInt16Size);
    *out = value;
    return got;
}

int64_t _kfdreadInt32(int fd, uint32_t* out) {
    if (badDescriptor(fd) || out == nullptr) return 0;
    uint32_t value = 0;
    const int64_t got = tev::readFully(fd, &value, tev::kInt32Size);
    *out = value;
    return got;
}

int64_t _kfdwrite(int fd, const void* buffer, int64_t size) {
    if (badDescriptor(fd) || buffer == nullptr) return 0;
    return tev::writeAllOrFail(fd, buffer, size);
}

int64_t _kfdwriteInt16(int fd, int16_t value) {
    if (badDescriptor(fd)) return 0;
    unsigned char bytes[tev::kInt16Size];
    tev::storeLittleEndian16(static_cast<uint16_t>(value), bytes);
    return tev::writeFully(fd, bytes, sizeof bytes);
}

int64_t _kfdwriteInt32(int fd, uint32_t value) {
    if (badDescriptor(fd)) return 0;
    unsigned char bytes[tev::kInt32Size];
    tev::storeLittleEndian32(value, bytes);
    return tev::writeFully(fd, bytes, sizeof bytes);
}

int64_t _kfdwriteInt32_endian(int fd, uint32_t value) {
    if (badDescriptor(fd)) return 0;
    unsigned char bytes[tev::kInt32Size];
    tev::storeBigEndian32(value, bytes);
    return tev::writeFully(fd, bytes, sizeof bytes);
}

int64_t _kfdtell(int fd) {
    if (badDescriptor(fd)) return -1;
    return tev::seekLogged(fd, 0, SEEK_CUR);
}

int64_t _kfdseek(int fd, int64_t offset, int whence) {
    if (badDescriptor(fd)) return -1;
    return tev::seekLogged(fd, offset, whence);
}

int _kfdcopy(int dst, int src, int64_t size) {
    if (badDescriptor(dst) || badDescriptor(src)) return 0;
    return tev::copyBetweenDescriptors(dst, src, size);
}
