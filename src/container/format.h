// Layout constants of the container trailer, the "tevd" box and the Voxa
// block, shared by the readers and writers of the library.
#ifndef TEV_SRC_CONTAINER_FORMAT_H
#define TEV_SRC_CONTAINER_FORMAT_H

#include <cstdint>

#include "stream/sound_block_format.h"

namespace tev {

// Directory: "TEVH", version, count, entries, KTHO, "TEVT".
inline constexpr char kTagHead[4] = {'T', 'E', 'V', 'H'};
inline constexpr char kTagTail[4] = {'T', 'E', 'V', 'T'};
inline constexpr char kTagBox[4] = {'t', 'e', 'v', 'd'};
inline constexpr char kTagFtyp[4] = {'f', 't', 'y', 'p'};
inline constexpr uint32_t kVersion = 107;
inline constexpr uint32_t kFirstWideEntryVersion = 110;  // 110..207: 24-byte entries assumed
inline constexpr uint32_t kFirstUnreadableVersion = 208;
inline constexpr uint32_t kDirectoryEntrySize = 12;
inline constexpr uint32_t kWideDirectoryEntrySize = 24;
inline constexpr uint32_t kDirectoryFixedSize = 20;  // tags, version, count, KTHO
inline constexpr uint32_t kKthoBase = 12;            // KTHO = 12 + 12 * count
inline constexpr uint32_t kMinKtho = 13;             // a directory with at least one entry
inline constexpr uint32_t kTailFieldsSize = 8;       // KTHO + "TEVT"
inline constexpr uint32_t kBoxHeaderSize = 8;        // size + "tevd"
// Record tag header: meta type, name length, [sub-info length].
inline constexpr uint32_t kTagHeaderSize = 8;
inline constexpr uint32_t kSubInfoLengthSize = 4;
inline constexpr uint32_t kSubInfoFlag = 0x8000;
inline constexpr uint32_t kMinNameLength = 1;
inline constexpr uint32_t kMaxNameLength = 1024;

// Filler record "Invalid_Data".
inline constexpr char kFillerName[] = "Invalid_Data";
inline constexpr uint32_t kFillerNameLength = 12;
inline constexpr uint32_t kFillerHeaderSize = kTagHeaderSize + kFillerNameLength;  // 20

// Field sizes and offsets used by the directory reader and writers.
inline constexpr uint32_t kTagSize = 4;
inline constexpr uint32_t kFieldSize = 4;  // every integer of the trailer
// Directory writes of TevStream::writeTEVHeader store count + 2.
inline constexpr uint32_t kHeaderCountSurplus = 2;
// A directory with one entry: tags, version, count, entry, KTHO.
inline constexpr uint32_t kOneEntryDirectorySize = kDirectoryFixedSize + kDirectoryEntrySize;
// The 4-byte field that newer versions keep in front of the first record.
inline constexpr uint32_t kWideDataStartShift = 4;
// With a Voxa block behind the directory, the distance from the end back to
// KTHO is the block's length word plus this.
inline constexpr uint32_t kVoxaTailDistanceBias = 18;
// A container followed by a one-sound Voxa block: "TEVT" and KTHO lie this
// far before the end.
inline constexpr uint32_t kVoxaTevTagDistance = 34;
inline constexpr uint32_t kVoxaTevKthoDistance = 38;

// Save limits: a data length from kTooBigDataLength on is refused; a grown
// container must stay below kContainerSizeBound.
inline constexpr uint32_t kTooBigDataLength = 0xFFF00001u;
inline constexpr uint64_t kContainerSizeBound = 0xFFEFFFF1u;

// Voxa position marks: where an edited record lies relative to the record
// holding the Voxa sound.
inline constexpr uint32_t kVoxaMarkAfter = 0;   // after it, or no such record
inline constexpr uint32_t kVoxaMarkBefore = 1;  // before it: the sound moves forward
inline constexpr uint32_t kVoxaMarkItself = 2;  // the sound record itself

// The shortest record: a tag header and a one-byte name.
inline constexpr uint32_t kMinRecordLength = kTagHeaderSize + kMinNameLength;

}  // namespace tev

#endif  // TEV_SRC_CONTAINER_FORMAT_H
