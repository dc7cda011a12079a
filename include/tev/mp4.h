// The "tevd" box that wraps the appended region of an MP4 file: an 8-byte
// header (32-bit big-endian size, "tevd") in front of the records.
// Guide: docs/api.md.
#ifndef TEV_MP4_H
#define TEV_MP4_H

#include <cstdint>
#include <cstdio>

#include "tev/export.h"
#include "tev/stream.h"
#include "tev/types.h"

// Each returns 1 / 0. The FP and Handle forms run the stream form over a
// stream of their own; the FILE* or handle stays the caller's.

// Writes a header with size 0 at the current position and stores that position.
TEV_API uint32_t writeMP4TagStream(TevStream* stream, int64_t* position);
TEV_API uint32_t writeMP4TagFp(FILE* fp, int64_t* position);                    // writeMP4TagStream
TEV_API uint32_t writeMP4TagHandle(TevBufferHandle* handle, int64_t* position);  // writeMP4TagStream
// Rewrites the size at `position` to reach the end of the stream.
TEV_API uint32_t updateMP4TagStream(TevStream* stream, int64_t position);
TEV_API uint32_t updateMP4TagFp(FILE* fp, int64_t position);                    // updateMP4TagStream
TEV_API uint32_t updateMP4TagHandle(TevBufferHandle* handle, int64_t position);  // updateMP4TagStream
// Seeks to the end and writes a header of the given size.
TEV_API uint32_t writeFirstMP4TagStream(TevStream* stream, uint32_t size);
TEV_API uint32_t writeFirstMP4Tag(FILE* fp, uint32_t size);  // writeFirstMP4TagStream
// writeFirstMP4TagStream; always 1.
TEV_API uint32_t writeFirstMP4TagBuffer(TevBufferHandle* handle, uint32_t size);
// Rewrites the size at the index's data start position.
TEV_API uint32_t updateMP4Tag(_TEV_info* info);
// Moves an unboxed container 8 bytes on and puts a header in front of it.
TEV_API uint32_t writeMP4Tag(_TEV_info* info);

#endif  // TEV_MP4_H
