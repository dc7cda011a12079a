// The container trailer and its in-memory index.
//
// A container is a list of records appended behind media bytes and closed by
// a directory: "TEVH", version 107, count, one 12-byte entry per record
// (meta type, distance from the record to "TEVH", record length), KTHO
// (12 + 12 * count) and "TEVT". All integers little-endian.
//
// Calling order for readers: ParseTEV, getTEVList, getAllNameOfDataList, then
// the position and read functions by index, then DestroyTEV. An index is
// valid only while its stream is open and the file unchanged.
// Guide: docs/api.md.
#ifndef TEV_CONTAINER_H
#define TEV_CONTAINER_H

#include <cstdint>

#include "tev/export.h"
#include "tev/types.h"

class TevStream;

// --- pure layout functions ---
TEV_API uint32_t _setMetaType(uint16_t type, uint32_t has_sub);  // type << 16 | 0x8000 if has_sub
TEV_API uint32_t _getDataType(uint32_t meta_type);               // meta_type >> 16: the data type
// 8 + name_len + data_len, plus 4 + sub_len with sub-information; 0 when
// the sum does not fit 32 bits.
TEV_API uint32_t _getDataLength(uint32_t has_sub, uint32_t name_len, uint32_t sub_len,
                                uint32_t data_len);
TEV_API uint32_t _calculateTEV_KTHO(uint32_t count);  // 12 + 12 * count; 0 on overflow

// Writes a record (tag header, then data) at the stream's position; returns
// the data write's result.
TEV_API int64_t writeTEVData(TevStream* stream, uint32_t type, uint32_t has_sub, const void* name,
                             uint32_t name_len, const void* sub, uint32_t sub_len, const void* data,
                             uint32_t data_len);

// --- parsing ---
// Locates and checks the directory; entries are not read yet. Null on failure.
// The returned index borrows `stream`; release it with DestroyTEV.
TEV_API _TEV_info* ParseTEV(TevStream* stream, uint32_t signature);
// Reads the entries right after ParseTEV. 1 / 0.
TEV_API uint32_t getTEVList(_TEV_info* info);
// The directory's version; 1 when there is no trailer, 0 on stream errors.
TEV_API uint32_t GetTEVVersion(TevStream* stream);
// Frees the entries, their names and the index; the stream stays open. 1, or 0 for null.
TEV_API uint32_t DestroyTEV(_TEV_info* info);
// A new entry at the index's fill cursor (the cursor is not advanced). 1 / 0.
TEV_API uint32_t _addData(_TEV_info* info, uint32_t start_offset, uint32_t length, uint32_t meta_type);
// The same as _addData.
TEV_API uint32_t _addDataBuffer(_TEV_info* info, uint32_t start_offset, uint32_t length,
                                uint32_t meta_type);
// Reads entry `index`'s name (owned by the entry) and sub-information length. 1 / 0.
TEV_API uint32_t _getNameOfData(_TEV_info* info, uint32_t index);
// The same as _getNameOfData.
TEV_API uint32_t _getNameOfDataBuffer(_TEV_info* info, uint32_t index);
// Reads every entry's name; 1 when all were read, 0 at the first that fails.
TEV_API uint32_t getAllNameOfDataList(_TEV_info* info);
// The same as getAllNameOfDataList.
TEV_API uint32_t getAllNameOfDataListBuffer(_TEV_info* info);
// Absolute position and length of a record's sub-information. 1 / 0.
TEV_API uint32_t readSubDataInfoOfDataOffset(_TEV_info* info, uint32_t index, int64_t* position,
                                             int64_t* length);
// Absolute position and length of a record's payload. 1 / 0.
TEV_API uint32_t readDataOfIndexOffset(_TEV_info* info, uint32_t index, int64_t* position,
                                       int64_t* length);
// New copies (free with _kfree) of the payload and/or sub-information;
// either pointer may be null to skip it.
TEV_API uint32_t readDataOfIndex(_TEV_info* info, uint32_t index, unsigned char** data,
                                 unsigned char** sub);
// Index of the first entry named `name`, or 0xFFFFFFFF. Leaves the pack unchanged.
TEV_API uint32_t _getIndexOfName(_TEV_info_pack* pack, const char* name);
// Frees the index's entries and their array, not the index. 1, or 0 for null.
TEV_API uint32_t _destroyTEVDataList(_TEV_info* info);
// Frees one entry and its name. 1, or 0 for null.
TEV_API uint32_t _destroyTEVData(_TEV_data_info* entry);
// New string "107"; the caller frees it with _kfree.
TEV_API char* getTEVVersion();
// Logs the library's version and build date (three debug lines).
TEV_API void printTEVVersion();

// --- releasing packs and records ---
// Closes the pack's stream (destroyPointer), deletes it, then frees the pack.
// Each destroyer returns 1, or 0 for null.
TEV_API uint32_t destroyTEVDATA(_TEV_info_pack* pack);
// Frees the pack only; the stream is the caller's.
TEV_API uint32_t destroyTEVDATA_Stream(_TEV_info_pack* pack);
// Deletes the stream object (leaving the FILE* or descriptor open), then frees the pack.
TEV_API uint32_t destroyTEVDATA_FP(_TEV_info_pack* pack);
// Deletes the stream object (leaving the caller's buffer), then frees the pack.
TEV_API uint32_t destroyTEVDATA_Buffer(_TEV_info_pack* pack);
// Frees an extracted record with its data and sub-information; null is ignored.
TEV_API void destroyTEVDATA_UNIT(_TEV_data_unit* unit);
// Frees a position pair (the same as DestroyOffsetInfo); null is ignored.
TEV_API void destroyTEVOFFSET(TevOffsetInfo* offset);

#endif  // TEV_CONTAINER_H
