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
// The low-level adds do not look at what the file ends with and do not keep
// the MP4 box or the sound list in step; the save family below does. Each
// returns 1 / 0 unless said otherwise. FP and Buffer forms run the stream
// form over a stream of their own and leave the FILE* or handle open.

// 1 when the container can take a record of these sizes without passing
// 32-bit offsets.
TEV_API uint32_t checkTEVInfoForSaving(_TEV_info* info, uint32_t data_len, uint32_t sub_len,
                                       uint32_t name_len);

// First record and a one-entry directory at the end of the stream.
TEV_API uint32_t AddTEVDataInFirstTimeStream(TevStream* stream, const char* name, uint32_t name_len,
                                             uint32_t type, const unsigned char* sub, uint32_t sub_len,
                                             const unsigned char* data, uint32_t data_len);
// AddTEVDataInFirstTimeStream on the file at `path`, opened "r+b" and closed.
TEV_API uint32_t AddTEVDataInFirstTime(const char* path, const char* name, uint32_t name_len,
                                       uint32_t type, const unsigned char* sub, uint32_t sub_len,
                                       const unsigned char* data, uint32_t data_len);
// Always 0 (the result of the stream form is logged as "error \n").
TEV_API uint32_t AddTEVDataInFirstTimeFP(FILE* fp, const char* name, uint32_t name_len, uint32_t type,
                                         const unsigned char* sub, uint32_t sub_len,
                                         const unsigned char* data, uint32_t data_len);
// AddTEVDataInFirstTimeStream on the handle; always 0, whatever was written.
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
// AddDirectTEVDataInFirstTimeStream over the FILE*.
TEV_API uint32_t AddDirectTEVDataInFirstTimeFP(FILE* fp, uint32_t type, uint32_t has_sub,
                                               const unsigned char* record, uint32_t length);
// AddTEVDataStream for a formatted record.
TEV_API uint32_t AddDirectTEVDataStream(TevStream* stream, _TEV_info* info, uint32_t type,
                                        uint32_t has_sub, const unsigned char* record, uint32_t length,
                                        _voxa_info_struct* voxa);
// AddDirectTEVDataStream over the FILE*.
TEV_API uint32_t AddDirectTEVDataFP(FILE* fp, _TEV_info* info, uint32_t type, uint32_t has_sub,
                                    const unsigned char* record, uint32_t length,
                                    _voxa_info_struct* voxa);
// One-entry directory for a record of `length` already written at the end;
// 1 unless the stream is refused or cannot seek (the writes are not checked).
TEV_API uint32_t saveFirstTEVTailToStream(TevStream* stream, uint32_t length, uint32_t type,
                                          uint32_t has_sub);
// saveFirstTEVTailToStream over the FILE*.
TEV_API uint32_t saveFirstTEVTailToFP(FILE* fp, uint32_t length, uint32_t type, uint32_t has_sub);
// Adds into the leading "Invalid_Data" filler record when `reuse` is set.
TEV_API uint32_t FastAddTEVData(_TEV_info* info, const char* name, uint32_t name_len, uint32_t type,
                                const unsigned char* sub, uint32_t sub_len, const unsigned char* data,
                                uint32_t data_len, uint32_t reuse);
// Rewrites the index's directory at the stream's position with entry 0
// taking this type; the last write's result, 0 when refused.
TEV_API int64_t writeDummyTEVHeader(_TEV_info* info, uint32_t type, uint32_t has_sub);
// Writes a directory of `count` at the stream's position: with `split`, a
// filler entry (filler_offset, filler_length) and the new record's entry
// replace entry 0; without, the new entry goes last. Offsets are distances
// to "TEVH". The last write's result, 0 when refused.
TEV_API int64_t writeTEVHeader(_TEV_info* info, uint32_t count, uint32_t split, uint32_t filler_offset,
                               uint32_t filler_length, uint32_t record_offset, uint32_t record_length,
                               uint32_t type, uint32_t has_sub);
// A new empty index over a new TevStreamFile on `fp` (at its end); null on
// failure. DestroyTEV leaves info->Stream, which the caller deletes.
TEV_API _TEV_info* _generateTEVHeader(FILE* fp);
// A new entry with its own copy of the name; free with _destroyTEVData. Null on failure.
TEV_API _TEV_data_info* _generateTEVData(const char* name, uint32_t name_len, uint32_t type,
                                         uint32_t has_sub);

// ---------------------------------------------------------------- saving
// The save family: each stores one named record in plain media, a container,
// a Voxa image or both, keeping the MP4 box and the sound list in step.
// `update` bit 0 replaces a record of the same name; without it an existing
// name is left alone and the result is 0 (1 on a memory buffer). 1 / 0.
// Path forms open "r+b" and close; the others leave their medium open.

// Stores one named record: the body of every save form except the Sync,
// Direct and two-step ones.
TEV_API uint32_t saveTEVDataToStream(TevStream* stream, const char* name, uint32_t name_len,
                                     const unsigned char* sub, uint32_t sub_len,
                                     const unsigned char* data, uint32_t data_len, uint32_t type,
                                     uint32_t update);
// The same as saveTEVDataToStream.
TEV_API uint32_t saveFastTEVDataToStream(TevStream* stream, const char* name, uint32_t name_len,
                                         const unsigned char* sub, uint32_t sub_len,
                                         const unsigned char* data, uint32_t data_len, uint32_t type,
                                         uint32_t update);
// saveTEVDataToStream on the file at `path`; 0 when it cannot be opened.
TEV_API uint32_t saveTEVDataToFile(const char* path, const char* name, uint32_t name_len,
                                   const unsigned char* sub, uint32_t sub_len,
                                   const unsigned char* data, uint32_t data_len, uint32_t type,
                                   uint32_t update);
// The same as saveTEVDataToFile.
TEV_API uint32_t saveTEVDataToFileAddTag(const char* path, const char* name, uint32_t name_len,
                                         const unsigned char* sub, uint32_t sub_len,
                                         const unsigned char* data, uint32_t data_len, uint32_t type,
                                         uint32_t update);
// saveTEVDataToFile; a size refusal is logged under another tag.
TEV_API uint32_t saveFastTEVDataToFile(const char* path, const char* name, uint32_t name_len,
                                       const unsigned char* sub, uint32_t sub_len,
                                       const unsigned char* data, uint32_t data_len, uint32_t type,
                                       uint32_t update);
// saveTEVDataToStream over the FILE*.
TEV_API uint32_t saveTEVDataToFP(FILE* fp, const char* name, uint32_t name_len,
                                 const unsigned char* sub, uint32_t sub_len, const unsigned char* data,
                                 uint32_t data_len, uint32_t type, uint32_t update);
// saveTEVDataToFP after checking its arguments itself (its own log texts).
TEV_API uint32_t saveFastTEVDataToFP(FILE* fp, const char* name, uint32_t name_len,
                                     const unsigned char* sub, uint32_t sub_len,
                                     const unsigned char* data, uint32_t data_len, uint32_t type,
                                     uint32_t update);
// The same as saveTEVDataToFP.
TEV_API uint32_t saveTEVDataToFPAddTag(FILE* fp, const char* name, uint32_t name_len,
                                       const unsigned char* sub, uint32_t sub_len,
                                       const unsigned char* data, uint32_t data_len, uint32_t type,
                                       uint32_t update);
// The same as saveTEVDataToFP.
TEV_API uint32_t saveTEVDataToFPToMP4(FILE* fp, const char* name, uint32_t name_len,
                                      const unsigned char* sub, uint32_t sub_len,
                                      const unsigned char* data, uint32_t data_len, uint32_t type,
                                      uint32_t update);
// saveTEVDataToStream over the descriptor; below 1 gives 0.
TEV_API uint32_t saveTEVDataToFd(int fd, const char* name, uint32_t name_len, const unsigned char* sub,
                                 uint32_t sub_len, const unsigned char* data, uint32_t data_len,
                                 uint32_t type, uint32_t update);
// saveTEVDataToStream into the handle, which never grows (size it with getTEVBufferAllocSize).
TEV_API uint32_t saveTEVDataToBuffer(TevBufferHandle* handle, const char* name, uint32_t name_len,
                                     const unsigned char* sub, uint32_t sub_len,
                                     const unsigned char* data, uint32_t data_len, uint32_t type,
                                     uint32_t update);
// The same as saveTEVDataToBuffer.
TEV_API uint32_t saveTEVDataToBufferAddTag(TevBufferHandle* handle, const char* name,
                                           uint32_t name_len, const unsigned char* sub,
                                           uint32_t sub_len, const unsigned char* data,
                                           uint32_t data_len, uint32_t type, uint32_t update);
// "FileData" forms: the data is the whole content of the file at data_path
// (opened "rb"); an empty or unreadable data file gives 0.
// saveTEVDataToFile with the data file's content.
TEV_API uint32_t saveTEVFileDataToFile(const char* path, const char* name, uint32_t name_len,
                                       const unsigned char* sub, uint32_t sub_len,
                                       const char* data_path, uint32_t type, uint32_t update);
// saveTEVDataToFP with the data file's content.
TEV_API uint32_t saveTEVFileDataToFP(FILE* fp, const char* name, uint32_t name_len,
                                     const unsigned char* sub, uint32_t sub_len,
                                     const char* data_path, uint32_t type, uint32_t update);
// The same as saveTEVFileDataToFile.
TEV_API uint32_t saveFastTEVDataFileToFile(const char* path, const char* name, uint32_t name_len,
                                           const unsigned char* sub, uint32_t sub_len,
                                           const char* data_path, uint32_t type, uint32_t update);
// The same as saveTEVFileDataToFP.
TEV_API uint32_t saveFastTEVNameToFP(FILE* fp, const char* name, uint32_t name_len,
                                     const unsigned char* sub, uint32_t sub_len,
                                     const char* data_path, uint32_t type, uint32_t update);
// saveTEVDataToFP with the data file's content.
TEV_API uint32_t saveTEVDataFileToFPAddTag(FILE* fp, const char* name, uint32_t name_len,
                                           const unsigned char* sub, uint32_t sub_len,
                                           const char* data_path, uint32_t type, uint32_t update);
// saveTEVDataToFP with the data file's content.
TEV_API uint32_t saveTEVDataFileToFPToMP4(FILE* fp, const char* name, uint32_t name_len,
                                          const unsigned char* sub, uint32_t sub_len,
                                          const char* data_path, uint32_t type, uint32_t update);
// saveTEVDataToFile with the data file's content.
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
// saveTEVDataHeaderToStream over the FILE*.
TEV_API uint32_t saveTEVDataHeaderToFP(FILE* fp, const char* name, uint32_t name_len,
                                       const unsigned char* sub, uint32_t sub_len, uint32_t type);
// The one-entry directory for the record of `length` just written; 1 without
// writing when the stream already held a container or Voxa data.
TEV_API uint32_t saveTEVTailToStream(TevStream* stream, uint32_t length, uint32_t type,
                                     uint32_t has_sub);
// saveTEVTailToStream over the FILE*.
TEV_API uint32_t saveTEVTailToFP(FILE* fp, uint32_t length, uint32_t type, uint32_t has_sub);

// Buffer helpers of the save API (the handle family itself is in tev/stream.h).
// Copies the whole file into the buffer; bytes written, 0 on failure.
TEV_API int64_t copyFpToBuffer(FILE* fp, TevBufferHandle* handle);
// Writes the handle's bytes to the file; count written, -1 short write, -2 nothing to write.
TEV_API int64_t WriteHandle_Fp(TevBufferHandle* handle, FILE* fp);
// WriteHandle_Fp into the file at `path`, created or emptied ("w+b"); -1 when it cannot be opened.
TEV_API int64_t WriteHandle_FilePath(const char* path, TevBufferHandle* handle);

// -------------------------------------------------------------- deleting
// 1 / 0 unless said otherwise. The index-level deletes change `info` in
// memory; destroy it and parse again afterwards.
TEV_API uint32_t DeleteAllTEVDataStream(_TEV_info* info);  // cut at the data start position
TEV_API uint32_t DeleteAllDataStream(_TEV_info* info);     // the same cut, without the size check
// DeleteAllTEVDataStream with the cut made in `handle`, at the index's positions.
TEV_API uint32_t DeleteAllTEVDataBuffer(TevBufferHandle* handle, _TEV_info* info);
TEV_API uint32_t FastDeleteAllData(_TEV_info* info);     // the same as DeleteAllTEVDataStream
TEV_API uint32_t FastDeleteAllTEVData(_TEV_info* info);  // the same as DeleteAllTEVDataStream
// Removes record `index`, moving the records behind it; with a Voxa
// descriptor a Voxa trailer follows the new directory (unless the sound's own
// record went) and the sound list is updated. The MP4 box is not touched.
TEV_API uint32_t DeleteATEVDataStream(_TEV_info* info, uint32_t index, _voxa_info_struct* voxa);
// DeleteATEVDataStream without a descriptor; `ignored` is not used.
TEV_API uint32_t FastDeleteATEVData(_TEV_info* info, uint32_t index, uint32_t ignored);
// Removes the records at `count` indices in one rebuild.
TEV_API uint32_t DeleteMultiTEVData(_TEV_info* info, const uint32_t* indices, uint32_t count);
// Every record (or a bare Voxa sound); the stream stays the caller's.
TEV_API uint32_t deleteAllDataFromStream(TevStream* stream);
TEV_API uint32_t deleteAllDataFromFile(const char* path);  // deleteAllDataFromStream; opens "r+b"
TEV_API uint32_t deleteAllDataFromFd(int fd);              // deleteAllDataFromStream; the fd stays open
// Deletes the named record; `pack` is replaced by a fresh parse (null when
// nothing is left) and the MP4 box is brought up to date.
TEV_API uint32_t deleteTEVDataFromStreambyName(TevStream*& stream, _TEV_info_pack*& pack,
                                               const char* name, uint32_t name_len);
// deleteTEVDataFromStreambyName on the pack's own stream; *pack is replaced.
TEV_API uint32_t deleteTEVDataFromFilebyName(_TEV_info_pack** pack, const char* name,
                                             uint32_t name_len);
// Deletes the named record from the file at `path` (opened "r+b", closed).
TEV_API uint32_t deleteTEVDataFromFile(const char* path, const char* name, uint32_t name_len);
// Deletes `count` named records, one by one, from the file at `path`; absent
// names are skipped. 1 when at least one went and none failed.
TEV_API uint32_t deleteTEVMultiDataFromFilebyName(const char* path, const char** names,
                                                  const uint32_t* name_lens, uint32_t count);
// Deletes the named record, then destroys the pack (destroyTEVDATA).
TEV_API uint32_t deleteTEVDataAndDestroy(_TEV_info_pack* pack, const char* name, uint32_t name_len);
TEV_API uint32_t deleteFastAllTEVData(const char* path);  // every record; opens "r+b", closes
TEV_API uint32_t deleteFastAllTEVDataFP(FILE* fp);        // every record; the FILE* stays open
// Every record. Deletes `stream` itself on every path after its null check.
TEV_API uint32_t deleteFastAllTEVDataStream(TevStream* stream);
// The named record of the file at `path` (opened "r+b", closed).
TEV_API uint32_t deleteFastATEVData(const char* path, const char* name);
// The named record; the MP4 box is brought up to date. The stream stays the caller's.
TEV_API uint32_t deleteFastATEVDataStream(TevStream* stream, const char* name);

// ------------------------------------------------ replacing the media in place
// Replaces the media in front of the records in place; records, sound and box stay. 1 / 0.
TEV_API uint32_t FastChangeCoverData(const char* path, const unsigned char* media, uint32_t length);
TEV_API uint32_t FastChangeCoverDataFd(int fd, const unsigned char* media, uint32_t length);
TEV_API uint32_t FastChangeCoverDataStream(TevStream* stream, const unsigned char* media, uint32_t length);
// The same with the media part of orgPath (the bytes in front of its records or sound). 1 / 0.
TEV_API uint32_t FastChangeOrgData(const char* path, const char* orgPath);
TEV_API uint32_t FastChangeOrgDataFd(int fd, int orgFd);
TEV_API uint32_t FastChangeOrgDataStream(TevStream* stream, TevStream* org);

// ------------------------------------------------------------- recovery
// Every editing entry point over a path or descriptor is all or nothing: a
// process killed part-way leaves a journal that the next call on the file
// completes or undoes. These run that step on request: 1 when the file is
// consistent afterwards (also when nothing was pending), 0 when it could not
// be made so (it does not open for writing, a write failed).
TEV_API uint32_t recoverTEVFile(const char* path);
TEV_API uint32_t recoverTEVFd(int fd);  // the descriptor's position is kept

#endif  // TEV_EDITOR_H
