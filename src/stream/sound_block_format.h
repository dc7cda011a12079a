// The Voxa block at the end of an image, as the stream's writers put it out
// and every reader expects it: "VOXA", version, count, the start/end table,
// the header length and "VOXABS", integers little-endian.
#ifndef TEV_SRC_STREAM_SOUND_BLOCK_FORMAT_H
#define TEV_SRC_STREAM_SOUND_BLOCK_FORMAT_H

#include <cstdint>

#include "tev/stream.h"

namespace tev {

// Voxa block: "VOXA", version, count, table, header length, "VOXABS".
inline constexpr char kVoxaMarks[] = "VOXAVOXABS";  // magic = first 4, tail mark = last 6
inline constexpr char kVoxaMagic[4] = {'V', 'O', 'X', 'A'};
inline constexpr char kVoxaTailMark[6] = {'V', 'O', 'X', 'A', 'B', 'S'};
inline constexpr uint32_t kVoxaTailMarkSize = 6;
inline constexpr uint32_t kVoxaLengthFieldDistance = 10;  // header length field + "VOXABS"
inline constexpr uint32_t kVoxaOneSoundBlockSize = 30;    // 22 + 8 for one sound
inline constexpr uint32_t kVoxaFirstUnreadableVersion = 207;
// Version of the Voxa block that an append behind a container writes; the
// block writer of the Voxa code (and the direct append) writes 107.
inline constexpr uint32_t kVoxaAppendVersion = 106;
inline constexpr uint32_t kVoxaWriterVersion = 107;
inline constexpr uint32_t kVoxaOneSoundHeaderLength = 20;  // header length field for one sound
// Sound positions are 32-bit: whatever is added behind the last sound must
// end below this.
inline constexpr uint64_t kVoxaSaveBound = 0xFFEFFFEBu;

// The one writer of a block behind a container: "VOXA", `version`,
// `count`, one table entry (`start`, `end`), header length 20 and "VOXABS",
// at the stream's position, whatever `count` says. True when every field
// went out whole.
bool writeSoundTrailer(TevStream& stream, uint32_t version, uint32_t count, uint32_t start, uint32_t end);

}  // namespace tev

#endif  // TEV_SRC_STREAM_SOUND_BLOCK_FORMAT_H
