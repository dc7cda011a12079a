// Sound editing: writing the Voxa block, adding and removing the sound of an
// image, and keeping sounds as container records ("EchoFrame_000", …) with
// the "EchoFrame_Meta_Info" record that lists their names.
//
// Meta list payload (little-endian u32, no padding, names unterminated):
// word 0 (1 when made), word 1 (0 when made), name count K, K name lengths,
// then the K names back to back in the order the sounds were added.
// Guide: docs/api.md.
#ifndef TEV_SOUND_H
#define TEV_SOUND_H

#include <cstdint>
#include <cstdio>

#include "tev/export.h"
#include "tev/stream.h"
#include "tev/types.h"

// --------------------------------------------------- sound behind an image
// Appends the sound and a 30-byte block (version 106). New stream length, or -1.
TEV_API int64_t AddVoxaSoundInFirstTime(TevStream* stream, const void* data, uint32_t size);
// Stores the sound in a file that may hold a Voxa block, a container or both;
// an earlier sound is replaced. The second argument is not used.
TEV_API int64_t addVoxaSoundStream(TevStream* stream, void* ignored, const void* data, uint32_t size);
// addVoxaSoundStream on the file at `path` (opened "r+b", closed); 0 when a
// block parses without its table.
TEV_API uint32_t AddSoundInVoxaFile(const char* path, const void* data, uint32_t size);
// Copies the first sound of `src` into `dst`. 0 only when a file cannot be opened.
TEV_API uint32_t _copyAudioData(const char* src, const char* dst);

// Removes the sound and its block. 1 / 0.
TEV_API uint32_t deleteAVoxaStream(TevStream* stream);
TEV_API uint32_t deleteAVoxa(const char* path);  // opens "r+b", closes
TEV_API uint32_t deleteAVoxaFd(int fd);  // the descriptor stays open
// 2: a container ends in front of the Voxa block (or, without a record, at
// the end of the file); 1: a Voxa block without one; 0: neither, or error.
TEV_API uint32_t hasTEVDataStream(TevStream* stream, _voxa_info_struct* voxa);
// Cuts the file at the first sound's start. 1, or 0 when the seek fails.
TEV_API uint32_t deleteVoxa_NotExistTEV_Stream(TevStream* stream, _voxa_info_struct* voxa);
// Removes the sound and the block of a file whose container lies between
// them, moving the container forward to where the sound began.
TEV_API uint32_t deleteVoxa_ExistTEV_Stream(TevStream* stream, _voxa_info_struct* voxa);
// 1 when the sizes plus the last sound's end stay below 0xFFEFFFEB, so that
// every position behind the sounds still fits 32 bits.
TEV_API uint32_t checkVoxaInfoForSaving(_voxa_info_struct* voxa, uint32_t data_len, uint32_t sub_len,
                                        uint32_t name_len);

// --------------------------------------------- "EchoFrame_Meta_Info" payloads
// Each writes into `out` (large enough) and returns the bytes written.
// A list of one name: 16 + len.
TEV_API uint32_t makeFirstVoxaHeader(void* out, const void* name, uint32_t len);
// A list of two names: 20 + len1 + len2.
TEV_API uint32_t makeSecondVoxaHeader(char* out, const char* name1, uint32_t len1, const char* name2,
                                      uint32_t len2);
// The payload of record `index` with `name` appended; 0 when it cannot be read.
TEV_API uint32_t makeAddVoxaHeader(char* out, _TEV_info* info, int64_t index, const char* name,
                                   uint32_t len);
// The payload of record `index` without `name`; 0 when it cannot be read.
TEV_API uint32_t makeMinusVoxaHeader(char* out, _TEV_info* info, int64_t index, const char* name,
                                     uint32_t len);

// ------------------------------------------------ sounds as container records
// Sound record, meta record, two-entry directory and a version 107 Voxa block
// at the end of a stream without container. 1 / 0.
TEV_API uint32_t NewAddVoxaDataInFirstTimeStream(TevStream* stream, uint32_t meta_type,
                                                 uint32_t sound_type, const char* name,
                                                 uint32_t name_len, const unsigned char* data,
                                                 uint32_t data_size, const unsigned char* meta,
                                                 uint32_t meta_size);
// The same two records appended to an existing container. 1 / 0.
TEV_API uint32_t NewAddVoxaData(_TEV_info* info, uint32_t meta_type, uint32_t sound_type,
                                const char* name, uint32_t name_len, const unsigned char* data,
                                uint32_t data_size, const unsigned char* meta, uint32_t meta_size);
// Turns a bare Voxa file into records: "EchoFrame_000" and its meta list.
TEV_API uint32_t convertVoxaToEchoFrame(_voxa_info_struct** voxa);
// Stores a named sound in an image of any signature (opened "r+b", closed). 1 / 0.
TEV_API uint32_t saveVoxaToImageFile(const char* path, unsigned char* data, uint32_t size,
                                     const char* name, uint32_t name_len);
// saveVoxaToImageFile on a stream that stays the caller's.
TEV_API uint32_t saveVoxaToImageStream(TevStream* stream, unsigned char* data, uint32_t size,
                                       const char* name, uint32_t name_len);
// The parsed Voxa block of a file of signature 3 or 4, or null. Released
// with DestroyVoxaStream.
TEV_API _voxa_info_struct* checkVoxaInStream(TevStream* stream);
// The meta list's names as new NUL-terminated strings (each and the array
// freed with _kfree); *count is 0 when there is no meta record.
TEV_API uint32_t getEchoFrameNameList(_TEV_info_pack* pack, char*** names, uint32_t* count);
// The meta list's name count, or 0xFFFFFFFF without a meta record.
TEV_API uint32_t getVoxaCntInFile(_TEV_info_pack* pack);
// Looks the name up and discards the answer.
TEV_API void getVoxaInFile(_TEV_info_pack* pack, char* name, uint32_t len);
// A named record's length and its extracted data. Released with
// destroyAudioStreamBuffer.
struct _voxa_audio_buffer {
    uint32_t length;             // the record's data length
    _TEV_data_unit* data_unit;   // owned
};
// A new buffer for the named record, which must exist; null for a null pack.
TEV_API _voxa_audio_buffer* getAudioStreamBuffer(_TEV_info_pack* pack, char* name, uint32_t len);
// Frees the buffer and its data unit; null is ignored.
TEV_API void destroyAudioStreamBuffer(_voxa_audio_buffer* buffer);
// Deletes the named record while the file ends with a Voxa block. 1 / 0.
TEV_API uint32_t deleteEchoFrameDataFromFilebyName(_TEV_info_pack** pack, const char* name,
                                                   uint32_t len, uint32_t unused);
// Always 0; deletes nothing.
TEV_API uint32_t deleteEchoFrameDataFromFilebyIndex(_TEV_info* info, int64_t index, uint32_t unused);
// Nonzero when `name` is listed in the meta payload held by `unit`.
TEV_API uint32_t isIdenticalNameInMetaInfo(_TEV_data_unit* unit, const char* name);
// Removes one named sound from the image at `path` (opened "r+b", closed);
// 0 when there is nothing to delete or it cannot be opened.
TEV_API uint32_t deleteVoxaFromImageFile(const char* path, const char* name);
// Removes every sound of a file of signature 4: 1; other files are left, 0.
TEV_API uint32_t deleteAllVoxaFromImageFile(const char* path);
// Copy the sounds of one image into another.
TEV_API uint32_t copyVoxaData(const char* src, const char* dst);  // both opened "r+b"; always 1
// The sounds of `src` into `dst` (a bare Voxa source or destination is
// converted into records first). 1 / 0; both streams stay the caller's.
TEV_API uint32_t copyVoxaDataStream(TevStream* src, TevStream* dst);
// The sound records, meta record, directory and Voxa block of a signature-4
// source written behind a plain destination. 1 / 0.
TEV_API uint32_t copyEchoFrameData(TevStream* src, TevStream* dst);

#endif  // TEV_SOUND_H
