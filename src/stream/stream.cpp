// The stream base: the end-of-file probe shared by file and descriptor
// streams, and the stream-to-stream copy.
#include <algorithm>
#include <cstdio>

#include "stream/io_detail.h"
#include "tev/stream.h"
#include "util/log.h"

TevStream::~TevStream() = default;

namespace tev {

bool probeEndOfFile(TevStream& stream, int64_t* size) {
    const int64_t remembered = stream.tell();
    const bool reachedEnd = stream.seek(0, SEEK_END) > 0;
    const int64_t end = stream.tell();
    const bool restored = stream.seek(remembered, SEEK_SET) > 0;
    if (!reachedEnd || !restored) return false;
    *size = end;
    return true;
}

}  // namespace tev

namespace {

// The refusals of Copy, in the order they are checked.
bool copyArgumentsUsable(TevStream* dst, TevStream* src, int64_t size) {
    if (size < 1) {
        tev::logLine(tev::kLogError, "TevStream::Copy", "size_of_byte <= 0 !!");
        return false;
    }
    if (dst == nullptr) {
        tev::logLine(tev::kLogError, "TevStream::Copy", "dst stream NULL !!");
        return false;
    }
    if (!dst->CheckError()) {
        tev::logLine(tev::kLogError, "TevStream::Copy", "dst stream CheckError false");
        return false;
    }
    if (src == nullptr) {
        tev::logLine(tev::kLogError, "TevStream::Copy", "src stream NULL !!");
        return false;
    }
    if (!src->CheckError()) {
        tev::logLine(tev::kLogError, "TevStream::Copy", "src stream CheckError false");
        return false;
    }
    return true;
}

// Copies `size` bytes from src's current position in stack-sized chunks.
int copyChunks(TevStream& dst, TevStream& src, int64_t size) {
    unsigned char chunk[tev::kStreamCopyChunk] = {};
    for (int64_t remaining = size; remaining > 0;) {
        const int64_t step = std::min(remaining, tev::kStreamCopyChunk);
        if (src.read(chunk, step) != step) {
            std::puts("TevStream::Copy : read error ");
            return -1;
        }
        if (dst.write(chunk, step) != step) {
            std::puts("TevStream::Copy : write error ");
            return -1;
        }
        remaining -= step;
    }
    return 1;
}

}  // namespace

int TevStream::Copy(TevStream* dst, TevStream* src, int64_t size) {
    int result = 0;
    if (copyArgumentsUsable(dst, src, size)) {
        src->seek(0, SEEK_SET);
        result = copyChunks(*dst, *src, size);
    }
    if (src != nullptr) src->seek(0, SEEK_SET);
    return result;
}
