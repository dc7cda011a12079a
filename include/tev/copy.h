// Copying records from one file's container into another. Records go
// through the ordinary save path one by one, without their sub-information;
// copyMergeTEVData appends the source's container bytes unchanged. Path
// forms open both files "r+b": the source must be writable too.
// Guide: docs/api.md.
#ifndef TEV_COPY_H
#define TEV_COPY_H

#include <cstdint>
#include <cstdio>

#include "tev/export.h"
#include "tev/stream.h"
#include "tev/types.h"

// Every record (and the sounds, as EchoFrame records). The last save's result, or 0.
TEV_API uint32_t copyTEVData(const char* src, const char* dst);
// The same as copyTEVData.
TEV_API uint32_t mergeTEVData(const char* src, const char* dst);
// copyTEVData over two descriptors, both left open; one below 1 gives 0.
TEV_API uint32_t copyTEVDataFd(int src, int dst);
// copyTEVData over two streams, both left open.
TEV_API uint32_t copyTEVDataStream(TevStream* src, TevStream* dst);
// Records of one data type into a destination without container; 1, or 0 on refusal.
TEV_API uint32_t copyTEVDataType(const char* src, const char* dst, unsigned int type);
// copyTEVDataType over two streams, both left open.
TEV_API uint32_t copyTEVDataTypeStream(TevStream* src, TevStream* dst, unsigned int type);
// The first record named `key` into a destination without container; 1, or 0 on refusal.
TEV_API uint32_t copyTEVDataKeyName(const char* src, const char* dst, const char* key);
// copyTEVDataKeyName over two streams, both left open.
TEV_API uint32_t copyTEVDataKeyNameStream(TevStream* src, TevStream* dst, const char* key);
// Appends the parsed source container's bytes to the end of `dst` (left open). 1 / 0.
TEV_API uint32_t copyMergeTEVData(_TEV_info* info, FILE* dst);

#endif  // TEV_COPY_H
