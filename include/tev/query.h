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
TEV_API TevOffsetInfo* getTEVInStreamByName(_TEV_info_pack* pack, const char* name);
TEV_API TevOffsetInfo* getTEVInFileByName(_TEV_info_pack* pack, const char* name);
TEV_API TevOffsetInfo* getTEVInStreamByIndex(_TEV_info_pack* pack, unsigned int index);
TEV_API TevOffsetInfo* getTEVInFileByIndex(_TEV_info_pack* pack, unsigned int index);
TEV_API TevOffsetInfo* getTEVSubInfoInStreamByName(_TEV_info_pack* pack, const char* name);
TEV_API TevOffsetInfo* getTEVSubInfoInFileByName(_TEV_info_pack* pack, const char* name);
TEV_API TevOffsetInfo* getTEVSubInfoInStreamByIndex(_TEV_info_pack* pack, unsigned int index);
TEV_API TevOffsetInfo* getTEVSubInfoInFileByIndex(_TEV_info_pack* pack, unsigned int index);
TEV_API void DestroyOffsetInfo(TevOffsetInfo* offset);

// The record's data type, or 0xFFFFFFFF when the name is absent.
TEV_API unsigned int getTEVDataType(_TEV_info_pack* pack, const char* name);
// Names of the records of `type` in directory order; the caller frees each
// string and the array. Null (count untouched) when none match.
TEV_API char** getNameListByDataType(_TEV_info_pack* pack, int type, unsigned int* count);
// A copy of a whole record; release with destroyTEVDATA_UNIT.
TEV_API _TEV_data_unit* extractTEVDataFromFilebyName(_TEV_info_pack* pack, const char* name,
                                                     unsigned int name_len);
TEV_API _TEV_data_unit* extractTEVDataFromFilebyIndex(_TEV_info_pack* pack, unsigned int index);
// Borrowed from the pack's name list.
TEV_API char* GetNameInList(_TEV_info_pack* pack, int count, int index);
TEV_API unsigned int GetNameType(_TEV_info_pack* pack);
TEV_API unsigned int GetTevCount(_TEV_info_pack* pack);

#endif  // TEV_QUERY_H
