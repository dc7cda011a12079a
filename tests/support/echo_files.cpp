#include "support/echo_files.h"

#include "support/records.h"
#include "support/sound_files.h"

namespace tevtest {

RecordSpec soundRecord(const std::string& name, const Bytes& sound) {
    return {256, name, std::nullopt, sound};
}

RecordSpec metaRecord(const std::vector<std::string>& names) {
    return {2048, "EchoFrame_Meta_Info", std::nullopt, metaPayload(names)};
}

Bytes imageWithRecordSound(const Bytes& media, const std::vector<RecordSpec>& records, size_t pointed,
                           uint32_t version) {
    uint32_t start = uint32_t(media.size());
    for (size_t i = 0; i < pointed; ++i) start += recordLength(records[i]);
    start += 8 + uint32_t(records[pointed].name.size());
    const uint32_t end = start + uint32_t(records[pointed].data.size());
    return concat(buildContainer(media, records), voxaBlock(version, start, end));
}

}  // namespace tevtest
