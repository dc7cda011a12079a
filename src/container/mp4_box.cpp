// The "tevd" box around the appended region of an MP4 file: opening it with
// a placeholder or known size, fixing its size after an edit, and wrapping a
// container that was written without one.
//
// The argument checks of the box writers log under the tags of their update
// siblings; those tags are what log readers know them by.
#include <cstdio>
#include <limits>

#include "container/format.h"
#include "container/index.h"
#include "container/mp4_box.h"
#include "container/owned.h"
#include "tev/mp4.h"
#include "util/checked.h"
#include "util/log.h"

namespace {

using tev::kLogError;
using tev::logLine;

constexpr int64_t kBoxSizeFieldSize = tev::kFieldSize;
constexpr int64_t kBoxTypeSize = tev::kTagSize;
constexpr int64_t kMaxBoxContentSize = std::numeric_limits<uint32_t>::max();

// The stream of a parsed index, or null after logging why it cannot be used.
TevStream* usableStream(const _TEV_info* info, const char* tag) {
    if (info == nullptr || info->Stream == nullptr) {
        logLine(kLogError, tag, "src_tev_info->Stream is null");
        return nullptr;
    }
    if (!info->Stream->CheckError()) {
        logLine(kLogError, tag, "src_tev_info->Stream CheckError is false");
        return nullptr;
    }
    if (info->valid != LUMET_TEV_TRUE) {
        logLine(kLogError, tag, "TEV validation failed");
        return nullptr;
    }
    return info->Stream;
}

// Length of the appended region of a parsed index (for a boxed container the
// whole box), from its data start position to the end of the stream as
// parsed; 0 when that region is empty,
// does not lie inside the stream as it is now, or is too big for a box.
int64_t appendedRegionLength(const _TEV_info& info, TevStream& stream) {
    const int64_t start = info.data_start_position;
    if (start < 0 || start >= info.stream_size) return 0;
    const int64_t length = info.stream_size - start;
    const int64_t end = stream.seek(0, SEEK_END);
    if (length > kMaxBoxContentSize || !tev::rangeFits(start, length, end)) return 0;
    return length;
}

// Copies `length` bytes from `start` into a new buffer; null when the bytes
// cannot all be read.
unsigned char* copyRegion(TevStream& stream, int64_t start, int64_t length) {
    tev::KUnique<unsigned char> copy(static_cast<unsigned char*>(_kmalloc(static_cast<size_t>(length))));
    if (!copy) {
        logLine(kLogError, "TEV::writeMP4Tag", "tev_data_buf alloc fail");
        return nullptr;
    }
    if (stream.seek(start, SEEK_SET) != start) {
        logLine(kLogError, "TEV::writeMP4Tag", "File Search Error");
        return nullptr;
    }
    if (stream.read(copy.get(), length) != length) {
        logLine(kLogError, "TEV::writeMP4Tag", "File Read Error");
        return nullptr;
    }
    return copy.release();
}

// Writes the region 8 bytes further on and the header in front of it. The
// moved copy goes first: a stream that cannot take 8 more bytes (a full
// memory buffer) then refuses before anything of the container is touched.
uint32_t moveBehindHeader(TevStream& stream, int64_t start, const unsigned char* region, int64_t length) {
    const int64_t moved = start + tev::kBoxHeaderSize;
    if (stream.seek(moved, SEEK_SET) != moved) {
        logLine(kLogError, "TEV::writeMP4Tag", "File Search Error");
        return LUMET_TEV_FALSE;
    }
    if (stream.write(region, length) != length) {
        logLine(kLogError, "TEV::writeMP4Tag", "File Write Error");
        return LUMET_TEV_FALSE;
    }
    if (stream.seek(start, SEEK_SET) != start) {
        logLine(kLogError, "TEV::writeMP4Tag", "File Search Error");
        return LUMET_TEV_FALSE;
    }
    if (!tev::writeBoxHeader(stream, static_cast<uint32_t>(length))) {
        logLine(kLogError, "TEV::writeMP4Tag", "File Write Error");
        return LUMET_TEV_FALSE;
    }
    return LUMET_TEV_TRUE;
}

}  // namespace

bool tev::readBoxSize(TevStream& stream, int64_t position, uint32_t* size) {
    unsigned char field[kBoxSizeFieldSize] = {};
    if (position < 0 || stream.seek(position, SEEK_SET) != position || !readFully(stream, field, sizeof field)) {
        return false;
    }
    *size = uint32_t{field[0]} << 24 | uint32_t{field[1]} << 16 | uint32_t{field[2]} << 8 | field[3];
    return true;
}

uint32_t writeMP4TagStream(TevStream* stream, int64_t* position) {
    if (stream == nullptr) {
        logLine(kLogError, "TEVAPIs::updateMP4TagStream", "Stream null\n");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) {
        logLine(kLogError, "TEVAPIs::updateMP4TagStream", "CheckError is false\n");
        return LUMET_TEV_FALSE;
    }
    const int64_t boxPosition = stream->tell();
    if (position != nullptr) *position = boxPosition;
    const bool written = boxPosition >= 0 && stream->seek(boxPosition, SEEK_SET) == boxPosition &&
                         tev::writeBoxHeader(*stream, 0);
    if (!written) {
        logLine(kLogError, "TEVAPIs::writeMP4TagStream", "file write error\n");
        // Leave no half-written header behind.
        if (boxPosition >= 0 && stream->seek(boxPosition, SEEK_SET) == boxPosition) {
            stream->truncate(boxPosition);
        }
        return LUMET_TEV_FALSE;
    }
    return LUMET_TEV_TRUE;
}

uint32_t writeMP4TagFp(FILE* fp, int64_t* position) {
    TevStreamFile stream(fp);
    const uint32_t result = writeMP4TagStream(&stream, position);
    if (result == LUMET_TEV_FALSE) logLine(kLogError, "TEVAPIs::writeMP4TagFp", "writeMP4TagStream error\n");
    return result;
}

uint32_t writeMP4TagHandle(TevBufferHandle* handle, int64_t* position) {
    TevStreamBuffer stream(handle);
    const uint32_t result = writeMP4TagStream(&stream, position);
    if (result == LUMET_TEV_FALSE) logLine(kLogError, "TEVAPIs::writeMP4TagFp", "writeMP4TagStream error\n");
    return result;
}

uint32_t updateMP4TagStream(TevStream* stream, int64_t position) {
    if (stream == nullptr) {
        logLine(kLogError, "TEVAPIs::updateMP4TagStream", "Stream null\n");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) {
        logLine(kLogError, "TEVAPIs::updateMP4TagStream", "CheckError is false\n");
        return LUMET_TEV_FALSE;
    }
    const int64_t current = stream->tell();
    stream->seek(0, SEEK_END);
    const int64_t end = stream->tell();
    stream->seek(0, SEEK_SET);
    // The size field must lie wholly inside the stream; the box reaches its end.
    const bool placed =
        tev::rangeFits(position, kBoxSizeFieldSize, end) && stream->seek(position, SEEK_SET) == position;
    const bool written =
        placed && stream->writeInt32_endian(static_cast<uint32_t>(end - position)) == kBoxSizeFieldSize;
    stream->seek(current, SEEK_SET);
    if (!written) {
        logLine(kLogError, "TEVAPIs::updateMP4TagStream", "file write error\n");
        return LUMET_TEV_FALSE;
    }
    return LUMET_TEV_TRUE;
}

uint32_t updateMP4TagFp(FILE* fp, int64_t position) {
    TevStreamFile stream(fp);
    const uint32_t result = updateMP4TagStream(&stream, position);
    if (result == LUMET_TEV_FALSE) logLine(kLogError, "TEVAPIs::updateMP4TagFp", "updateMP4TagStream error\n");
    return result;
}

uint32_t updateMP4TagHandle(TevBufferHandle* handle, int64_t position) {
    TevStreamBuffer stream(handle);
    const uint32_t result = updateMP4TagStream(&stream, position);
    if (result == LUMET_TEV_FALSE) logLine(kLogError, "TEVAPIs::updateMP4TagFp", "updateMP4TagStream error\n");
    return result;
}

uint32_t writeFirstMP4TagStream(TevStream* stream, uint32_t size) {
    if (stream == nullptr) {
        logLine(kLogError, "TEV::writeMP4Tag", "src_tev_info->Stream is null");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) {
        logLine(kLogError, "TEV::writeMP4Tag", "src_tev_info->Stream CheckError is false");
        return LUMET_TEV_FALSE;
    }
    stream->seek(0, SEEK_END);
    if (!tev::writeBoxHeader(*stream, size)) {
        logLine(kLogError, "TEV::writeFirstMP4Tag", "File Write Error");
        return LUMET_TEV_FALSE;
    }
    return LUMET_TEV_TRUE;
}

uint32_t writeFirstMP4Tag(FILE* fp, uint32_t size) {
    TevStreamFile stream(fp);
    if (!stream.CheckError()) {
        logLine(kLogError, "TEV::writeMP4Tag", "src_tev_info->Stream CheckError is false");
        return LUMET_TEV_FALSE;
    }
    return writeFirstMP4TagStream(&stream, size);
}

// Buffer callers size their buffer beforehand and never test this result.
uint32_t writeFirstMP4TagBuffer(TevBufferHandle* handle, uint32_t size) {
    TevStreamBuffer stream(handle);
    writeFirstMP4TagStream(&stream, size);
    return LUMET_TEV_TRUE;
}

uint32_t updateMP4Tag(_TEV_info* info) {
    TevStream* stream = usableStream(info, "TEV::updateMP4Tag");
    if (stream == nullptr) return LUMET_TEV_FALSE;
    const int64_t start = info->data_start_position;
    const int64_t boxLength = appendedRegionLength(*info, *stream);
    if (boxLength < kBoxSizeFieldSize || stream->seek(start, SEEK_SET) != start) {
        logLine(kLogError, "TEV::updateMP4Tag", "File Search Error");
        return LUMET_TEV_FALSE;
    }
    if (stream->writeTEV_TOTALSIZE(static_cast<uint32_t>(boxLength)) != kBoxSizeFieldSize) {
        logLine(kLogError, "TEV::updateMP4Tag", "File Write Error");
        return LUMET_TEV_FALSE;
    }
    return LUMET_TEV_TRUE;
}

// The size written is the container's own length, not the box length; the
// callers run an update afterwards when they need the box size right.
uint32_t writeMP4Tag(_TEV_info* info) {
    TevStream* stream = usableStream(info, "TEV::writeMP4Tag");
    if (stream == nullptr) return LUMET_TEV_FALSE;
    const int64_t start = info->data_start_position;
    const int64_t length = appendedRegionLength(*info, *stream);
    if (length == 0) {
        logLine(kLogError, "TEV::writeMP4Tag", "File Search Error");
        return LUMET_TEV_FALSE;
    }
    tev::KUnique<unsigned char> region(copyRegion(*stream, start, length));
    if (!region) return LUMET_TEV_FALSE;
    return moveBehindHeader(*stream, start, region.get(), length);
}

bool tev::writeBoxHeader(TevStream& stream, uint32_t size) {
    return stream.writeTEV_TOTALSIZE(size) == kBoxSizeFieldSize && stream.writeTEV_MP4S() == kBoxTypeSize;
}
