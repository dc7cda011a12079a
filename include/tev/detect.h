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

// Signature values: see SIGNATURE_* in tev/types.h. The stream form does the
// work; the others build a stream around their argument, call it and delete
// the stream, leaving the argument open.
TEV_API uint32_t getSignatureStream(TevStream* stream);
// Opens the file "rb" and closes it; 0 when it cannot be opened.
TEV_API uint32_t getSignature(const char* path);
TEV_API uint32_t getSignatureFP(FILE* fp);  // the FILE* stays open
// The descriptor stays open; below 1 it returns a value above 4 (test for 1..4).
TEV_API uint32_t getSignatureFd(int fd);
TEV_API uint32_t getSignatureBuffer(TevBufferHandle* handle);  // the handle stays the caller's
// 1 when the file ends with a container (signature 2 or 4).
TEV_API uint32_t isTEVFile(const char* path);

// 1 when bytes 4-7 are "ftyp"; the stream position is kept.
TEV_API uint32_t checkMP4Stream(TevStream* stream);
TEV_API uint32_t checkMP4Fp(FILE* fp);                    // checkMP4Stream; the FILE* stays open
TEV_API uint32_t checkMP4Buffer(TevBufferHandle* handle);  // checkMP4Stream; the handle stays
// 1 when the 4 bytes before the first record are "tevd".
TEV_API uint32_t checkSignatureMP4Tag(_TEV_info* info);

// Packs: the whole container parsed with every name, or null. Release:
// checkTEVInFile, checkTEVWithReadPM, checkTEVInBuffer with destroyTEVDATA;
// checkTEVInFP with destroyTEVDATA_FP; checkTEVInHandle with
// destroyTEVDATA_Buffer; checkTEVInFd and the stream forms with
// destroyTEVDATA_FP (or delete the stream and destroyTEVDATA_Stream).
// `ignored` is not used.
TEV_API _TEV_info_pack* checkTEVInStreamVersionNotchecked(TevStream* stream, bool ignored);
// The same as checkTEVInStreamVersionNotchecked; the pack borrows the stream.
TEV_API _TEV_info_pack* checkTEVInStream(TevStream* stream);
// The same as checkTEVInStream.
TEV_API _TEV_info_pack* checkTEVInStreamAndUpdate(TevStream* stream);
TEV_API _TEV_info_pack* checkTEVInFile(const char* path);      // opens "r+b"; the pack keeps it open
TEV_API _TEV_info_pack* checkTEVWithReadPM(const char* path);  // opens "rb"; the pack keeps it open
TEV_API _TEV_info_pack* checkTEVInFP(FILE* fp);                // the FILE* stays the caller's
TEV_API _TEV_info_pack* checkTEVInFd(int fd);                  // the descriptor stays; below 1 gives null
TEV_API _TEV_info_pack* checkTEVWithReadPM_Fd(int fd);         // checkTEVInFd; 0 gives null
// Wraps the caller's `size` bytes, which must outlive the pack; the pack owns the wrapper.
TEV_API _TEV_info_pack* checkTEVInBuffer(unsigned char* data, int64_t size);
TEV_API _TEV_info_pack* checkTEVInHandle(TevBufferHandle* handle);  // the handle stays the caller's

// 1 when the container's tail parses (entries are not checked).
TEV_API uint32_t errorCheckTEVInStream(TevStream* stream);
TEV_API uint32_t errorCheckTEVInFp(FILE* fp);                    // the FILE* stays open
TEV_API uint32_t errorCheckTEVInBuffer(TevBufferHandle* handle);  // the handle stays the caller's

#endif  // TEV_DETECT_H
