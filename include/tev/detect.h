// Telling plain media, containers and Voxa blocks apart, and the checks that
// parse a whole container into a _TEV_info_pack.
// Guide: docs/api.md.
#ifndef TEV_DETECT_H
#define TEV_DETECT_H

#include <cstdint>
#include <cstdio>

#include "tev/export.h"
#include "tev/stream.h"
#include "tev/types.h"

// Signature values: see SIGNATURE_* in tev/types.h.
TEV_API uint32_t getSignatureStream(TevStream* stream);
TEV_API uint32_t getSignature(const char* path);
TEV_API uint32_t getSignatureFP(FILE* fp);
TEV_API uint32_t getSignatureFd(int fd);
TEV_API uint32_t getSignatureBuffer(TevBufferHandle* handle);
// 1 when the file ends with a container (signature 2 or 4).
TEV_API uint32_t isTEVFile(const char* path);

// 1 when bytes 4-7 are "ftyp"; the stream position is kept.
TEV_API uint32_t checkMP4Stream(TevStream* stream);
TEV_API uint32_t checkMP4Fp(FILE* fp);
TEV_API uint32_t checkMP4Buffer(TevBufferHandle* handle);
// 1 when the 4 bytes before the first record are "tevd".
TEV_API uint32_t checkSignatureMP4Tag(_TEV_info* info);

// Packs. Release: checkTEVInFile, checkTEVWithReadPM, checkTEVInBuffer with
// destroyTEVDATA; checkTEVInFP with destroyTEVDATA_FP; checkTEVInHandle with
// destroyTEVDATA_Buffer; checkTEVInFd and the stream forms with
// destroyTEVDATA_FP (or delete the stream and destroyTEVDATA_Stream).
TEV_API _TEV_info_pack* checkTEVInStreamVersionNotchecked(TevStream* stream, bool flag);
TEV_API _TEV_info_pack* checkTEVInStream(TevStream* stream);
TEV_API _TEV_info_pack* checkTEVInStreamAndUpdate(TevStream* stream);
TEV_API _TEV_info_pack* checkTEVInFile(const char* path);      // opens "r+b"
TEV_API _TEV_info_pack* checkTEVWithReadPM(const char* path);  // opens "rb"
TEV_API _TEV_info_pack* checkTEVInFP(FILE* fp);
TEV_API _TEV_info_pack* checkTEVInFd(int fd);
TEV_API _TEV_info_pack* checkTEVWithReadPM_Fd(int fd);
TEV_API _TEV_info_pack* checkTEVInBuffer(unsigned char* data, int64_t size);
TEV_API _TEV_info_pack* checkTEVInHandle(TevBufferHandle* handle);

// 1 when the container's tail parses.
TEV_API uint32_t errorCheckTEVInStream(TevStream* stream);
TEV_API uint32_t errorCheckTEVInFp(FILE* fp);
TEV_API uint32_t errorCheckTEVInBuffer(TevBufferHandle* handle);

#endif  // TEV_DETECT_H
