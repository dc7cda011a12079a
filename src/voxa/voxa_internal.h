// Shared pieces of the Voxa readers: the block's size rules, the sanity test
// for the first sound and the ways a parsed record lets go of its stream.
#ifndef TEV_SRC_VOXA_VOXA_INTERNAL_H
#define TEV_SRC_VOXA_VOXA_INTERNAL_H

#include <cstdint>

#include "tev/types.h"

namespace tev::voxa {

// The header length field covers "VOXA", version, count and the table, so a
// block with at least one sound has a length of 12 + 8 = 20; anything below 13
// cannot hold a sound.
inline constexpr uint32_t kMinHeaderLength = 13;
// Counts from here on would overflow 8 * count in 32 bits.
inline constexpr uint32_t kMaxSoundCount = 0x8000000;
// "VOXA", version, count, header length and "VOXABS" around the table.
inline constexpr uint32_t kBlockFixedSize = 22;
inline constexpr uint32_t kValuesPerSound = 2;  // start, end (exclusive)
inline constexpr uint32_t kTableEntrySize = kValuesPerSound * sizeof(uint32_t);
inline constexpr uint32_t kMagicSize = 4;

// The first sound of a parsed table.
struct SoundSpan {
    uint32_t start;
    uint32_t length;
};

// True, with the span, when the record has a table whose first sound is not
// empty and lies inside the file as it was parsed.
bool firstSound(const _voxa_info_struct* info, SoundSpan* span);

// What releasing a record does with its stream.
enum class StreamRelease {
    Keep,    // the caller's stream: leave it
    Delete,  // delete the wrapper, leave what it stands on
    Close,   // destroyPointer (close the FILE, free the buffer), then delete
};

// Frees the table and the record after treating the stream as asked.
// 1, or 0 for a null record.
uint32_t releaseRecord(_voxa_info_struct* info, StreamRelease stream);

}  // namespace tev::voxa

#endif  // TEV_SRC_VOXA_VOXA_INTERNAL_H
