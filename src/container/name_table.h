// Name → index tables for the packs the checks hand out, kept beside the
// pack rather than in it, so that a look-up leaves every field of the pack
// as it was.
#ifndef TEV_SRC_CONTAINER_NAME_TABLE_H
#define TEV_SRC_CONTAINER_NAME_TABLE_H

#include <cstdint>

#include "tev/types.h"

namespace tev {

// Marks a pack the library made as one whose look-ups may use a table. The
// table itself is made on the first look-up. Packs built by anyone else are
// never registered and are scanned.
void registerPackNames(const _TEV_info_pack* pack);

// Frees the pack's table, if any; called by the pack's destroyer before the
// pack's memory goes, so a later pack at the same address starts afresh.
void forgetPackNames(const _TEV_info_pack* pack);

// The index of the first entry named `name` through the pack's table, or
// 0xFFFFFFFF when no entry has that name. False when the pack has no table
// and cannot get one (not registered, small, a null name in its list, out
// of memory): the caller then scans the list in directory order, which
// gives the same answer.
bool lookUpPackName(const _TEV_info_pack& pack, const char* name, uint32_t* index);

}  // namespace tev

#endif  // TEV_SRC_CONTAINER_NAME_TABLE_H
