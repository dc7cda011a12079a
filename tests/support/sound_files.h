// Files that carry sound, laid out byte by byte: a bare sound, or sounds kept
// as records named by the "EchoFrame_Meta_Info" list, and the Voxa block.
#ifndef TEV_TESTS_SUPPORT_SOUND_FILES_H
#define TEV_TESTS_SUPPORT_SOUND_FILES_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/bytes.h"

namespace tevtest {

// 1, 0, the count, the lengths, then the names back to back.
Bytes metaPayload(const std::vector<std::string>& names);

// Media, the sound, then a one-sound block (version 106) pointing at it; with
// `records`, their container between the sound and the block (version 107).
Bytes imageWithBareSound(const Bytes& media, const Bytes& sound);
Bytes imageWithSoundBeforeContainer(const Bytes& media, const Bytes& sound, const std::vector<RecordSpec>& records);

// A record of type 256 holding a sound; one of type 2048 listing `names`.
RecordSpec soundRecord(const std::string& name, const Bytes& sound);
RecordSpec metaRecord(const std::vector<std::string>& names);

// Media, `records` back to back with their directory, then a one-sound block
// of `version` whose sound is the data of records[pointed].
Bytes imageWithRecordSound(const Bytes& media, const std::vector<RecordSpec>& records, size_t pointed,
                           uint32_t version = 107);

}  // namespace tevtest

#endif  // TEV_TESTS_SUPPORT_SOUND_FILES_H
