// Questions about a parsed container (_TEV_info_pack). Nothing here changes
// the file. Returned records belong to the caller.
// Guide: docs/api.md.
#ifndef TEV_QUERY_H
#define TEV_QUERY_H

#include <cstdint>

#include "tev/export.h"
#include "tev/types.h"

// Position and length of a record's data or sub-information; null when the
// record is absent or the part is empty. Release with DestroyOffsetInfo.
// Each InStream/InFile pair is one function under two names.
TEV_API TevOffsetInfo* getTEVInStreamByName(_TEV_info_pack* pack, const char* name);     // data, by name
TEV_API TevOffsetInfo* getTEVInFileByName(_TEV_info_pack* pack, const char* name);       // data, by name
TEV_API TevOffsetInfo* getTEVInStreamByIndex(_TEV_info_pack* pack, unsigned int index);  // data, by index
TEV_API TevOffsetInfo* getTEVInFileByIndex(_TEV_info_pack* pack, unsigned int index);    // data, by index
// The sub-information of the record named `name`.
TEV_API TevOffsetInfo* getTEVSubInfoInStreamByName(_TEV_info_pack* pack, const char* name);
// The same as getTEVSubInfoInStreamByName.
TEV_API TevOffsetInfo* getTEVSubInfoInFileByName(_TEV_info_pack* pack, const char* name);
// The sub-information of record `index`.
TEV_API TevOffsetInfo* getTEVSubInfoInStreamByIndex(_TEV_info_pack* pack, unsigned int index);
// The same as getTEVSubInfoInStreamByIndex.
TEV_API TevOffsetInfo* getTEVSubInfoInFileByIndex(_TEV_info_pack* pack, unsigned int index);
// Frees a position pair (the same as destroyTEVOFFSET); null is ignored.
TEV_API void DestroyOffsetInfo(TevOffsetInfo* offset);

// The record's data type, or 0xFFFFFFFF when the name is absent.
TEV_API unsigned int getTEVDataType(_TEV_info_pack* pack, const char* name);
// Names of the records of `type` in directory order; the caller frees each
// string and the array. Null (count untouched) when none match.
TEV_API char** getNameListByDataType(_TEV_info_pack* pack, int type, unsigned int* count);
// A copy of a whole record (the first of that name; `name_len` is only
// tested for 0); release with destroyTEVDATA_UNIT. Null when absent.
TEV_API _TEV_data_unit* extractTEVDataFromFilebyName(_TEV_info_pack* pack, const char* name,
                                                     unsigned int name_len);
// A copy of record `index`; release with destroyTEVDATA_UNIT. Null when out of range.
TEV_API _TEV_data_unit* extractTEVDataFromFilebyIndex(_TEV_info_pack* pack, unsigned int index);
// Name `index` (below `count`), borrowed from the pack's name list; null when refused.
TEV_API char* GetNameInList(_TEV_info_pack* pack, int count, int index);
TEV_API unsigned int GetNameType(_TEV_info_pack* pack);  // the pack's kind marker (1), or 0
TEV_API unsigned int GetTevCount(_TEV_info_pack* pack);  // the pack's record count, or 0

#endif  // TEV_QUERY_H
