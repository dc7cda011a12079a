// Adding, saving and deleting records. The media bytes in front of a
// container are never written. Nothing is rolled back: an edit that fails
// half-way leaves what it wrote. Indexes passed in are changed in memory and
// must be destroyed and re-parsed after an edit.
// Guide: docs/api.md.
#ifndef TEV_EDITOR_H
#define TEV_EDITOR_H

#include <cstdint>
#include <cstdio>

#include "tev/export.h"
#include "tev/stream.h"
#include "tev/types.h"

// ---------------------------------------------------------------- adding
// 1 when the container can take a record of these sizes (data, sub, name).
TEV_API uint32_t checkTEVInfoForSaving(_TEV_info* info, uint32_t a, uint32_t b, uint32_t c);

// First record and a one-entry directory at the end of the stream.
TEV_API uint32_t AddTEVDataInFirstTimeStream(TevStream* stream, const char* name, uint32_t name_len,
                                             uint32_t type, const unsigned char* sub, uint32_t sub_len,
                                             const unsigned char* data, uint32_t data_len);
TEV_API uint32_t AddTEVDataInFirstTime(const char* path, const char* name, uint32_t name_len,
                                       uint32_t type, const unsigned char* sub, uint32_t sub_len,
                                       const unsigned char* data, uint32_t data_len);
// Always 0 (the result of the stream form is logged as "error \n").
TEV_API uint32_t AddTEVDataInFirstTimeFP(FILE* fp, const char* name, uint32_t name_len, uint32_t type,
                                         const unsigned char* sub, uint32_t sub_len,
                                         const unsigned char* data, uint32_t data_len);
TEV_API uint32_t AddTEVDataInFirstTimeBuffer(TevBufferHandle* handle, const char* name,
                                             uint32_t name_len, uint32_t type, const unsigned char* sub,
                                             uint32_t sub_len, const unsigned char* data,
                                             uint32_t data_len);
// Appends a record over the old directory and writes a new one; with a Voxa
// descriptor a Voxa trailer follows.
TEV_API uint32_t AddTEVDataStream(TevStream* stream, _TEV_info* info, const char* name,
                                  uint32_t name_len, uint32_t type, const unsigned char* sub,
                                  uint32_t sub_len, const unsigned char* data, uint32_t data_len,
                                  _voxa_info_struct* voxa);
// Direct forms: `record` is a complete, already formatted record.
TEV_API uint32_t AddDirectTEVDataInFirstTimeStream(TevStream* stream, uint32_t type, uint32_t has_sub,
                                                   const unsigned char* record, uint32_t length);
TEV_API uint32_t AddDirectTEVDataInFirstTimeFP(FILE* fp, uint32_t type, uint32_t has_sub,
                                               const unsigned char* record, uint32_t length);
TEV_API uint32_t AddDirectTEVDataStream(TevStream* stream, _TEV_info* info, uint32_t type,
                                        uint32_t has_sub, const unsigned char* record, uint32_t length,
                                        _voxa_info_struct* voxa);
TEV_API uint32_t AddDirectTEVDataFP(FILE* fp, _TEV_info* info, uint32_t type, uint32_t has_sub,
                                    const unsigned char* record, uint32_t length,
                                    _voxa_info_struct* voxa);
// One-entry directory for a record of `length` already written at the end.
TEV_API uint32_t saveFirstTEVTailToStream(TevStream* stream, uint32_t length, uint32_t type,
                                          uint32_t has_sub);
TEV_API uint32_t saveFirstTEVTailToFP(FILE* fp, uint32_t length, uint32_t type, uint32_t has_sub);
// Adds into the leading "Invalid_Data" filler record when `reuse` is set.
TEV_API uint32_t FastAddTEVData(_TEV_info* info, const char* name, uint32_t name_len, uint32_t type,
                                const unsigned char* sub, uint32_t sub_len, const unsigned char* data,
                                uint32_t data_len, uint32_t reuse);
TEV_API int64_t writeDummyTEVHeader(_TEV_info* info, uint32_t type, uint32_t has_sub);
TEV_API int64_t writeTEVHeader(_TEV_info* info, uint32_t count, uint32_t split, uint32_t p, uint32_t q,
                               uint32_t r, uint32_t s, uint32_t type, uint32_t has_sub);
TEV_API _TEV_info* _generateTEVHeader(FILE* fp);
TEV_API _TEV_data_info* _generateTEVData(const char* name, uint32_t name_len, uint32_t type,
                                         uint32_t has_sub);

// ---------------------------------------------------------------- saving
// Stores one named record; `update` bit 0 replaces a record of the same name.
TEV_API uint32_t saveTEVDataToStream(TevStream* stream, const char* name, uint32_t name_len,
                                     const unsigned char* sub, uint32_t sub_len,
                                     const unsigned char* data, uint32_t data_len, uint32_t type,
                                     uint32_t update);
TEV_API uint32_t saveFastTEVDataToStream(TevStream* stream, const char* name, uint32_t name_len,
                                         const unsigned char* sub, uint32_t sub_len,
                                         const unsigned char* data, uint32_t data_len, uint32_t type,
                                         uint32_t update);
TEV_API uint32_t saveTEVDataToFile(const char* path, const char* name, uint32_t name_len,
                                   const unsigned char* sub, uint32_t sub_len,
                                   const unsigned char* data, uint32_t data_len, uint32_t type,
                                   uint32_t update);
TEV_API uint32_t saveTEVDataToFileAddTag(const char* path, const char* name, uint32_t name_len,
                                         const unsigned char* sub, uint32_t sub_len,
                                         const unsigned char* data, uint32_t data_len, uint32_t type,
                                         uint32_t update);
TEV_API uint32_t saveFastTEVDataToFile(const char* path, const char* name, uint32_t name_len,
                                       const unsigned char* sub, uint32_t sub_len,
                                       const unsigned char* data, uint32_t data_len, uint32_t type,
                                       uint32_t update);
TEV_API uint32_t saveTEVDataToFP(FILE* fp, const char* name, uint32_t name_len,
                                 const unsigned char* sub, uint32_t sub_len, const unsigned char* data,
                                 uint32_t data_len, uint32_t type, uint32_t update);
TEV_API uint32_t saveFastTEVDataToFP(FILE* fp, const char* name, uint32_t name_len,
                                     const unsigned char* sub, uint32_t sub_len,
                                     const unsigned char* data, uint32_t data_len, uint32_t type,
                                     uint32_t update);
TEV_API uint32_t saveTEVDataToFPAddTag(FILE* fp, const char* name, uint32_t name_len,
                                       const unsigned char* sub, uint32_t sub_len,
                                       const unsigned char* data, uint32_t data_len, uint32_t type,
                                       uint32_t update);
TEV_API uint32_t saveTEVDataToFPToMP4(FILE* fp, const char* name, uint32_t name_len,
                                      const unsigned char* sub, uint32_t sub_len,
                                      const unsigned char* data, uint32_t data_len, uint32_t type,
                                      uint32_t update);
TEV_API uint32_t saveTEVDataToFd(int fd, const char* name, uint32_t name_len, const unsigned char* sub,
                                 uint32_t sub_len, const unsigned char* data, uint32_t data_len,
                                 uint32_t type, uint32_t update);
TEV_API uint32_t saveTEVDataToBuffer(TevBufferHandle* handle, const char* name, uint32_t name_len,
                                     const unsigned char* sub, uint32_t sub_len,
                                     const unsigned char* data, uint32_t data_len, uint32_t type,
                                     uint32_t update);
TEV_API uint32_t saveTEVDataToBufferAddTag(TevBufferHandle* handle, const char* name,
                                           uint32_t name_len, const unsigned char* sub,
                                           uint32_t sub_len, const unsigned char* data,
                                           uint32_t data_len, uint32_t type, uint32_t update);
// "FileData" forms: the data is the whole content of the file at data_path.
TEV_API uint32_t saveTEVFileDataToFile(const char* path, const char* name, uint32_t name_len,
                                       const unsigned char* sub, uint32_t sub_len,
                                       const char* data_path, uint32_t type, uint32_t update);
TEV_API uint32_t saveTEVFileDataToFP(FILE* fp, const char* name, uint32_t name_len,
                                     const unsigned char* sub, uint32_t sub_len,
                                     const char* data_path, uint32_t type, uint32_t update);
TEV_API uint32_t saveFastTEVDataFileToFile(const char* path, const char* name, uint32_t name_len,
                                           const unsigned char* sub, uint32_t sub_len,
                                           const char* data_path, uint32_t type, uint32_t update);
TEV_API uint32_t saveFastTEVNameToFP(FILE* fp, const char* name, uint32_t name_len,
                                     const unsigned char* sub, uint32_t sub_len,
                                     const char* data_path, uint32_t type, uint32_t update);
TEV_API uint32_t saveTEVDataFileToFPAddTag(FILE* fp, const char* name, uint32_t name_len,
                                           const unsigned char* sub, uint32_t sub_len,
                                           const char* data_path, uint32_t type, uint32_t update);
TEV_API uint32_t saveTEVDataFileToFPToMP4(FILE* fp, const char* name, uint32_t name_len,
                                          const unsigned char* sub, uint32_t sub_len,
                                          const char* data_path, uint32_t type, uint32_t update);
TEV_API uint32_t saveTEVDataFileToFileAddTag(const char* path, const char* name, uint32_t name_len,
                                             const unsigned char* sub, uint32_t sub_len,
                                             const char* data_path, uint32_t type, uint32_t update);
// Plain media and containers only, no MP4 box work; `ignored` is not used.
TEV_API uint32_t saveTEVDataToFileSync(const char* path, const char* name, uint32_t name_len,
                                       const unsigned char* sub, uint32_t sub_len,
                                       const unsigned char* data, uint32_t data_len, uint32_t type,
                                       uint32_t update, unsigned char ignored);
// `record` is a complete record; `name` is used for the look-up only.
TEV_API uint32_t saveDirectTEVData(FILE* fp, const unsigned char* record, uint32_t length,
                                   const char* name, uint32_t has_sub, uint32_t type, uint32_t update);
// Two-step save: the tag header now (returns its length; 1 when the stream
// already holds a container or Voxa data), the data by the caller, then the tail.
TEV_API uint32_t saveTEVDataHeaderToStream(TevStream* stream, const char* name, uint32_t name_len,
                                           const unsigned char* sub, uint32_t sub_len, uint32_t type);
TEV_API uint32_t saveTEVDataHeaderToFP(FILE* fp, const char* name, uint32_t name_len,
                                       const unsigned char* sub, uint32_t sub_len, uint32_t type);
TEV_API uint32_t saveTEVTailToStream(TevStream* stream, uint32_t length, uint32_t type,
                                     uint32_t has_sub);
TEV_API uint32_t saveTEVTailToFP(FILE* fp, uint32_t length, uint32_t type, uint32_t has_sub);

// Buffer helpers of the save API (the handle family itself is in tev/stream.h).
// Copies the whole file into the buffer; bytes written, 0 on failure.
TEV_API int64_t copyFpToBuffer(FILE* fp, TevBufferHandle* handle);
// Writes the handle's bytes to the file; count written, -1 short write, -2 nothing to write.
TEV_API int64_t WriteHandle_Fp(TevBufferHandle* handle, FILE* fp);
TEV_API int64_t WriteHandle_FilePath(const char* path, TevBufferHandle* handle);

// -------------------------------------------------------------- deleting
TEV_API uint32_t DeleteAllTEVDataStream(_TEV_info* info);  // cut at the data start position
TEV_API uint32_t DeleteAllDataStream(_TEV_info* info);
TEV_API uint32_t DeleteAllTEVDataBuffer(TevBufferHandle* handle, _TEV_info* info);
TEV_API uint32_t FastDeleteAllData(_TEV_info* info);
TEV_API uint32_t FastDeleteAllTEVData(_TEV_info* info);
TEV_API uint32_t DeleteATEVDataStream(_TEV_info* info, uint32_t index, _voxa_info_struct* voxa);
TEV_API uint32_t FastDeleteATEVData(_TEV_info* info, uint32_t index, uint32_t ignored);
TEV_API uint32_t DeleteMultiTEVData(_TEV_info* info, const uint32_t* indices, uint32_t count);
TEV_API uint32_t deleteAllDataFromStream(TevStream* stream);
TEV_API uint32_t deleteAllDataFromFile(const char* path);
TEV_API uint32_t deleteAllDataFromFd(int fd);
// Deletes the named record; `pack` is replaced by a fresh parse (null when
// nothing is left) and the MP4 box is brought up to date.
TEV_API uint32_t deleteTEVDataFromStreambyName(TevStream*& stream, _TEV_info_pack*& pack,
                                               const char* name, uint32_t name_len);
TEV_API uint32_t deleteTEVDataFromFilebyName(_TEV_info_pack** pack, const char* name,
                                             uint32_t name_len);
TEV_API uint32_t deleteTEVDataFromFile(const char* path, const char* name, uint32_t name_len);
TEV_API uint32_t deleteTEVMultiDataFromFilebyName(const char* path, const char** names,
                                                  const uint32_t* name_lens, uint32_t count);
// Deletes the named record, then destroys the pack (destroyTEVDATA).
TEV_API uint32_t deleteTEVDataAndDestroy(_TEV_info_pack* pack, const char* name, uint32_t name_len);
TEV_API uint32_t deleteFastAllTEVData(const char* path);
TEV_API uint32_t deleteFastAllTEVDataFP(FILE* fp);
// Deletes `stream` itself on every path after its null check.
TEV_API uint32_t deleteFastAllTEVDataStream(TevStream* stream);
TEV_API uint32_t deleteFastATEVData(const char* path, const char* name);
TEV_API uint32_t deleteFastATEVDataStream(TevStream* stream, const char* name);

// ------------------------------------------------------------- recovery
// Every editing entry point over a path or descriptor is all or nothing: a
// process killed part-way leaves a journal that the next call on the file
// completes or undoes. These run that step on request: 1 when the file is
// consistent afterwards (also when nothing was pending), 0 when it could not
// be made so (it does not open for writing, a write failed).
TEV_API uint32_t recoverTEVFile(const char* path);
TEV_API uint32_t recoverTEVFd(int fd);  // the descriptor's position is kept

#endif  // TEV_EDITOR_H
