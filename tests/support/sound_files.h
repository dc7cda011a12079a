// Files that carry sound, laid out byte by byte: the "EchoFrame_Meta_Info"
// payload, an image with a bare sound, and a parsed Voxa descriptor over a
// test's stream.
#ifndef TEV_TESTS_SUPPORT_SOUND_FILES_H
#define TEV_TESTS_SUPPORT_SOUND_FILES_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "tev/voxa.h"

namespace tevtest {

// 1, 0, the count, the lengths, then the names back to back.
Bytes metaPayload(const std::vector<std::string>& names);

// Media, then the sound, then a one-sound block (version 106) pointing at it.
Bytes imageWithBareSound(const Bytes& media, const Bytes& sound);

// Media, the sound, the records with their directory, then a one-sound
// block (version 106) pointing at the sound in front of the container.
Bytes imageWithSoundBeforeContainer(const Bytes& media, const Bytes& sound,
                                    const std::vector<RecordSpec>& records);

struct VoxaStreamDestroyer {
    void operator()(_voxa_info_struct* voxa) const { DestroyVoxaStream(voxa); }
};
// A descriptor with its table, over a stream the test keeps.
using VoxaPtr = std::unique_ptr<_voxa_info_struct, VoxaStreamDestroyer>;

}  // namespace tevtest

#endif  // TEV_TESTS_SUPPORT_SOUND_FILES_H
