// Internals shared by the stream classes and the _k wrappers: fixed byte
// orders, whole-request descriptor I/O and the end-of-file probe.
#ifndef TEV_SRC_STREAM_IO_DETAIL_H
#define TEV_SRC_STREAM_IO_DETAIL_H

#include <cstdint>

#include "tev/stream.h"

namespace tev {

inline constexpr int64_t kInt16Size = 2;
inline constexpr int64_t kInt32Size = 4;

// Chunk sizes of the two copy loops: streams copy through the stack,
// file-to-file copies through one heap buffer.
inline constexpr int64_t kStreamCopyChunk = 4096;
inline constexpr int64_t kFileCopyChunk = 0x10000;

inline void storeLittleEndian16(uint16_t value, unsigned char out[kInt16Size]) {
    out[0] = static_cast<unsigned char>(value);
    out[1] = static_cast<unsigned char>(value >> 8);
}

inline void storeLittleEndian32(uint32_t value, unsigned char out[kInt32Size]) {
    out[0] = static_cast<unsigned char>(value);
    out[1] = static_cast<unsigned char>(value >> 8);
    out[2] = static_cast<unsigned char>(value >> 16);
    out[3] = static_cast<unsigned char>(value >> 24);
}

inline void storeBigEndian32(uint32_t value, unsigned char out[kInt32Size]) {
    out[0] = static_cast<unsigned char>(value >> 24);
    out[1] = static_cast<unsigned char>(value >> 16);
    out[2] = static_cast<unsigned char>(value >> 8);
    out[3] = static_cast<unsigned char>(value);
}

// read() until `size` bytes arrived, end of file or an error. Returns the
// bytes read, or -1 when an error came before any byte (or size < 0).
int64_t readFully(int fd, void* buffer, int64_t size);
// write() until `size` bytes went out or an error. Returns the bytes
// written, or -1 when an error came before any byte (or size < 0).
int64_t writeFully(int fd, const void* buffer, int64_t size);
// writeFully, then the short-write rule of _kfwrite/_kfdwrite: `size` when
// everything went out, otherwise a logged -1.
int64_t writeAllOrFail(int fd, const void* buffer, int64_t size);
// Copies `size` bytes between the current positions of two descriptors in
// kFileCopyChunk pieces through one heap buffer. 1 when the loop ran, 0 for
// size < 1 or a failed allocation.
int copyBetweenDescriptors(int dstFd, int srcFd, int64_t size);
// lseek64 with the "_klseek" log on failure.
int64_t seekLogged(int fd, int64_t offset, int whence);

// End-of-file probe of the file and descriptor streams: finds the size and
// restores the position. False when either seek gives 0 or less, which also
// happens for an empty stream or one standing at position 0.
bool probeEndOfFile(TevStream& stream, int64_t* size);

}  // namespace tev

#endif  // TEV_SRC_STREAM_IO_DETAIL_H
