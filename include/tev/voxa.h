// The Voxa block: one or more sounds appended to an image and described by a
// block at the very end of the file, "VOXA", version, count, a table of
// absolute start/end positions, the header length and "VOXABS".
// Guide: docs/api.md.
#ifndef TEV_VOXA_H
#define TEV_VOXA_H

#include <cstdint>
#include <cstdio>

#include "tev/export.h"
#include "tev/stream.h"
#include "tev/types.h"

// Parse the block (not its table). Null when there is none. Release each
// with the DestroyVoxa... form named beside it.
TEV_API _voxa_info_struct* ParseVoxaStream(TevStream* stream);  // DestroyVoxaStream
TEV_API _voxa_info_struct* ParseVoxa(const char* path);         // opens "rb"; DestroyVoxa closes it
TEV_API _voxa_info_struct* ParseVoxaFP(FILE* fp);               // DestroyVoxaFP; the FILE* stays open
TEV_API _voxa_info_struct* ParseVoxaFd(int fd);                 // DestroyVoxaFP; below 1 gives null
TEV_API _voxa_info_struct* ParseVoxaBuffer(TevBufferHandle* handle);  // DestroyVoxaBuffer
// Reads the sound table right after a Parse function. 1 / 0.
TEV_API uint32_t ParseVoxaSound(_voxa_info_struct* info);

// Parse the block and its table; null unless both succeed. Released as the
// matching ParseVoxa... form.
TEV_API _voxa_info_struct* _checkAudioInImageFile(const char* path);          // DestroyVoxa
TEV_API _voxa_info_struct* _checkAudioInImageFP(FILE* fp);                    // DestroyVoxaFP
TEV_API _voxa_info_struct* _checkAudioInImageFd(int fd);                      // DestroyVoxaFP
TEV_API _voxa_info_struct* _checkAudioInImageBuffer(TevBufferHandle* handle);  // DestroyVoxaBuffer
TEV_API _voxa_info_struct* _checkAudioInImageStream(TevStream* stream);        // DestroyVoxaStream

// Reads `size` bytes at `offset` from the start into `buffer`; 1 once the
// seek succeeds (the count read is not checked), 0 otherwise.
TEV_API uint32_t ReadSoundData(TevStream* stream, uint32_t offset, uint32_t size, void* buffer);
// ReadSoundData on the record's stream.
TEV_API uint32_t ReadDataVoxa(_voxa_info_struct* info, uint32_t offset, uint32_t size, void* buffer);
// The first sound of the file at `path` in a new buffer (free with free());
// null, with *size_out 0, when there is none.
TEV_API unsigned char* GetAudioInVoxa(const char* path, uint32_t* size_out);
// The first sound in a new buffer (free with _kfree).
TEV_API unsigned char* _getAudioStreamBuffer(_voxa_info_struct* info);
// Creates (empties) the file at `path` and leaves it empty: the first sound is
// written back through the record's own stream. The bytes that write reported, or 0.
TEV_API uint32_t _getSoundFileCreate(_voxa_info_struct* info, const char* path);

// The sound count of a _voxa_info_struct; 0 for null.
TEV_API uint32_t _getAudioCountInImageFile(void* info);
// The name count (third LE u32) of an "EchoFrame_Meta_Info" payload.
TEV_API uint32_t getVoxaHeaderCount(char* payload);
// The first sound's position and length; release with _destroyVOXAOFFSET.
// Null when the table is missing or the sound is empty or past the end.
TEV_API VoxaSoundOffset* _getAudioInImageFile(_voxa_info_struct* info);

// Each returns 1, or 0 for null.
TEV_API uint32_t DestroyVoxa(_voxa_info_struct* info);        // closes and deletes the stream
TEV_API uint32_t _destroyVOXADATA(_voxa_info_struct* info);   // same as DestroyVoxa
TEV_API uint32_t DestroyVoxaFP(_voxa_info_struct* info);      // deletes the stream, FILE* or fd stays open
TEV_API uint32_t DestroyVoxaBuffer(_voxa_info_struct* info);  // deletes the stream, buffer stays
TEV_API uint32_t DestroyVoxaStream(_voxa_info_struct* info);  // the stream is the caller's
TEV_API void _destroyVOXAOFFSET(VoxaSoundOffset* offset);     // frees the pair; null is ignored

// Index of the container record whose data begins at the first sound's
// start, or 0xFFFFFFFF.
TEV_API uint32_t FindOldVoxaIndex(_TEV_info* info, _voxa_info_struct* voxa);

#endif  // TEV_VOXA_H
