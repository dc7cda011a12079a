// Moving whole files in and out of memory buffer handles: filling a buffer
// with the media before a save into memory, and writing the saved buffer
// out. The writers report on standard output, not in the log.
#include <algorithm>
#include <cstdio>

#include "editor/save_internal.h"
#include "tev/editor.h"
#include "util/log.h"

namespace {

// copyFpToBuffer moves the file through one heap block of this size.
constexpr int64_t kCopyChunkSize = 65536;
// WriteHandle_Fp hands the buffer to fwrite in pieces of at most this size.
constexpr int64_t kWriteChunkSize = 4096;

constexpr int64_t kWriteFailed = -1;
constexpr int64_t kNothingToWrite = -2;

// 0 when the handle has bytes to write, else kNothingToWrite after printing why.
int64_t checkHandleToWrite(TevBufferHandle* handle) {
    if (handle == nullptr || kbgetBuffer(handle) == nullptr) {
        puts("WriteHandle : buffer error ");
        return kNothingToWrite;
    }
    if (kbgetWriteSize(handle) <= 0) {
        puts("WriteHandle : write size error ");
        return kNothingToWrite;
    }
    return 0;
}

// Copies `size` bytes from the file stream's position to the buffer stream's.
bool copyFileToBuffer(TevStream& file, TevStream& buffer, int64_t size) {
    tev::KUnique<unsigned char[]> chunk(static_cast<unsigned char*>(_kmalloc(kCopyChunkSize)));
    if (!chunk) return false;
    for (int64_t done = 0; done < size;) {
        const int64_t piece = std::min(kCopyChunkSize, size - done);
        if (file.read(chunk.get(), piece) != piece) {
            tev::logLine(tev::kLogError, "TEVEncoderAPIsBuffer::copyFpToBuffer", "ReadSize != fSize !!");
            return false;
        }
        if (buffer.write(chunk.get(), piece) != piece) {
            tev::logLine(tev::kLogError, "TEVEncoderAPIsBuffer::copyFpToBuffer", "ret != ReadSize !!");
            return false;
        }
        done += piece;
    }
    return true;
}

}  // namespace

int64_t copyFpToBuffer(FILE* fp, TevBufferHandle* handle) {
    using namespace tev;
    if (handle == nullptr || kbgetBuffer(handle) == nullptr) {
        logLine(kLogError, "TEVEncoderAPIsBuffer::copyFpToBuffer", "Buffer NULL !!");
        return 0;
    }
    if (fp == nullptr) return 0;
    TevStreamFile file(fp);
    TevStreamBuffer buffer(handle);
    const int64_t fileSize = file.seek(0, SEEK_END);
    if (fileSize < 0 || file.seek(0, SEEK_SET) < 0) {
        logLine(kLogError, "TEVEncoderAPIsBuffer::copyFpToBuffer", "ReadSize != fSize !!");
        return 0;
    }
    // The buffer never grows: a file larger than its capacity is refused
    // before anything is written.
    if (fileSize > buffer.getAllocSize() || buffer.seek(0, SEEK_SET) < 0) {
        logLine(kLogError, "TEVEncoderAPIsBuffer::copyFpToBuffer", "ret != ReadSize !!");
        return 0;
    }
    if (!copyFileToBuffer(file, buffer, fileSize)) return 0;
    // The buffer now holds exactly the file, whatever it held before.
    buffer.truncate(fileSize);
    return fileSize;
}

int64_t WriteHandle_Fp(TevBufferHandle* handle, FILE* fp) {
    const int64_t refused = checkHandleToWrite(handle);
    if (refused != 0) return refused;
    if (fp == nullptr) {
        puts("fp null!!");
        return kWriteFailed;
    }
    const auto* data = static_cast<const unsigned char*>(kbgetBuffer(handle));
    const int64_t size = kbgetWriteSize(handle);
    for (int64_t done = 0; done < size;) {
        const size_t piece = static_cast<size_t>(std::min(kWriteChunkSize, size - done));
        if (fwrite(data + done, 1, piece, fp) != piece) {
            puts("WriteHandle : write error ");
            return kWriteFailed;
        }
        done += static_cast<int64_t>(piece);
    }
    // The library reads files through their descriptors; flush so that the
    // bytes are there for it.
    if (fflush(fp) != 0) {
        puts("WriteHandle : write error ");
        return kWriteFailed;
    }
    return size;
}

int64_t WriteHandle_FilePath(const char* path, TevBufferHandle* handle) {
    // The file is opened (and so emptied) first; a bad handle is then
    // refused by the write.
    FILE* fp = path != nullptr ? _kfopen(path, "w+b") : nullptr;
    if (fp == nullptr) {
        puts("fp null!!");
        return kWriteFailed;
    }
    const int64_t written = WriteHandle_Fp(handle, fp);
    if (_kfclose(fp) != 0 && written >= 0) {
        puts("WriteHandle : write error ");
        return kWriteFailed;
    }
    return written;
}
