// Building blocks shared by the ways of adding a record: the record's
// arguments, its length, the directory writer and the checks that keep an
// append from writing anywhere but over the old directory.
#ifndef TEV_SRC_EDITOR_ADD_INTERNAL_H
#define TEV_SRC_EDITOR_ADD_INTERNAL_H

#include <cstdint>
#include <vector>

#include "container/directory_image.h"
#include "tev/stream.h"
#include "tev/types.h"

namespace tev {

// One record as a caller hands it over: name, type, optional
// sub-information and the payload.
struct RecordArgs {
    const char* name;
    uint32_t nameLength;
    uint32_t type;
    const unsigned char* sub;
    uint32_t subLength;
    const unsigned char* data;
    uint32_t dataLength;

    // Sub-information counts only when there are bytes to store.
    bool hasSub() const { return sub != nullptr && subLength != 0; }
    uint32_t hasSubFlag() const { return hasSub() ? 1u : 0u; }
    uint32_t storedSubLength() const { return hasSub() ? subLength : 0u; }
    uint32_t metaType() const;
};

// A user-defined record (type 0) must carry sub-information.
bool lacksUserDataSubInfo(uint32_t type, bool hasSub);
// Names are 1 to 1024 bytes.
bool isValidName(const char* name, uint32_t length);
// Tag header, name, sub-information and data; false when the sum does not
// fit the 32-bit length field of a directory entry.
bool computeRecordLength(const RecordArgs& record, uint32_t* length);

// An entry that lives on the stack while a directory is written.
_TEV_data_info makeEntry(uint32_t metaType, uint32_t startOffset, uint32_t length);

// The directory of an append: the index's entries, then `added`.
DirectoryWrite writeAppendedDirectory(TevStream& stream, const _TEV_info& info,
                                      _TEV_data_info added);

// The work of AddTEVDataStream. When `complete` is given it tells whether
// the record and the new directory went out whole (no Voxa block was asked
// for), so that the stream ends with a directory whose every record can be
// read as written.
uint32_t appendRecord(TevStream* stream, _TEV_info* info, const RecordArgs& record,
                      _voxa_info_struct* voxa, bool* complete);

// Seeks to minus header_offset from the end, where "TEVH" of the parsed
// container begins. -1 when the seek fails or the stream no longer has the
// size it was parsed with (the index is stale and every position taken from
// it would be wrong).
int64_t seekToDirectory(TevStream& stream, const _TEV_info& info);
// Adds `by` to every entry's offset. Refuses, leaving the index unchanged,
// when an entry is missing or an offset would pass 32 bits.
bool shiftOffsets(_TEV_info& info, uint32_t by);
// After an append has rewritten the tail: cuts what is left of a longer old
// tail (a Voxa block that was not rewritten) behind the current position.
void dropStaleTail(TevStream& stream, int64_t oldEnd);

// Before an append writes over the old directory (the stream's last bytes,
// no Voxa block behind it), a copy of it goes to `newEnd`, where the
// appended record and its new directory will end, every distance grown by a
// `further` bytes (the new directory's size; `info` holds the offsets already
// shifted by the record's length). Until the append cuts the file back to
// `newEnd`, the file ends with a directory of the old records, which the
// append does not touch: a process killed while the record and the new
// directory are being written leaves the old container readable. Files and
// descriptors only; true when the copy was written.
bool placeOldDirectoryBehind(TevStream& stream, const _TEV_info& info, int64_t newEnd, uint32_t further);

// The first sound's start and end from a parsed descriptor; 0 and 0 when it
// lists no sound (its table may then be empty).
void firstSoundOf(const _voxa_info_struct& voxa, uint32_t* start, uint32_t* end);

}  // namespace tev

#endif  // TEV_SRC_EDITOR_ADD_INTERNAL_H
