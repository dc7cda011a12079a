// The step the container's save paths take on an image whose sound is a
// bare Voxa block: the sound becomes the record "EchoFrame_000" with its list.
#ifndef TEV_SRC_ECHO_ECHOFRAME_INTERNAL_H
#define TEV_SRC_ECHO_ECHOFRAME_INTERNAL_H

#include <cstdint>

#include "tev/stream.h"
#include "tev/types.h"

namespace tev::voxa {

// Checks the block and the room for `adding` more bytes behind its sound,
// then converts. False (after logging failures of the conversion under
// `tag`) when the block does not parse, there is no room or a step fails;
// nothing is written before the checks pass.
bool convertBareSoundForSave(TevStream& stream, uint32_t dataLength, uint32_t subLength,
                             uint32_t nameLength, const char* tag);

}  // namespace tev::voxa

#endif  // TEV_SRC_ECHO_ECHOFRAME_INTERNAL_H
