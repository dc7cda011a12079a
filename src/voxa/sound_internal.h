// Steps shared by the sound editors.
#ifndef TEV_SRC_VOXA_SOUND_INTERNAL_H
#define TEV_SRC_VOXA_SOUND_INTERNAL_H

#include <cstdint>

#include "tev/stream.h"
#include "tev/types.h"
#include "voxa/voxa_internal.h"

namespace tev::voxa {

// Cuts the stream where the first sound starts, dropping the sound and
// everything behind it; the sound's end is not looked at. A record without
// a sound or a failed seek is logged under `tag` and changes nothing.
bool cutAtFirstSound(TevStream& stream, const _voxa_info_struct& voxa, const char* tag);

// First byte of the Voxa block: file size - header length - 10.
bool blockStart(const _voxa_info_struct& voxa, int64_t* start);

}  // namespace tev::voxa

#endif  // TEV_SRC_VOXA_SOUND_INTERNAL_H
