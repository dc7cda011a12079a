// Images whose sounds are kept as container records: the sound records, the
// "EchoFrame_Meta_Info" list naming them, and the Voxa block behind the
// directory that points at one of the sound records' data.
#ifndef TEV_TESTS_SUPPORT_ECHO_FILES_H
#define TEV_TESTS_SUPPORT_ECHO_FILES_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/bytes.h"

namespace tevtest {

// A record of type 256 holding a sound.
RecordSpec soundRecord(const std::string& name, const Bytes& sound);
// A record of type 2048 listing `names`.
RecordSpec metaRecord(const std::vector<std::string>& names);

// Media, `records` back to back with their directory, then a one-sound block
// of `version` whose sound is the data of records[pointed].
Bytes imageWithRecordSound(const Bytes& media, const std::vector<RecordSpec>& records, size_t pointed,
                           uint32_t version = 107);

}  // namespace tevtest

#endif  // TEV_TESTS_SUPPORT_ECHO_FILES_H
