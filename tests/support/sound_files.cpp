#include "support/sound_files.h"

#include "support/records.h"

namespace tevtest {

Bytes metaPayload(const std::vector<std::string>& names) {
    ByteBuilder b;
    b.u32le(1).u32le(0).u32le(uint32_t(names.size()));
    for (const std::string& name : names) b.u32le(uint32_t(name.size()));
    for (const std::string& name : names) b.text(name);
    return b.take();
}

Bytes imageWithBareSound(const Bytes& media, const Bytes& sound) {
    const uint32_t start = uint32_t(media.size());
    return concat(concat(media, sound), voxaBlock(106, start, start + uint32_t(sound.size())));
}

Bytes imageWithSoundBeforeContainer(const Bytes& media, const Bytes& sound, const std::vector<RecordSpec>& records) {
    const uint32_t start = uint32_t(media.size());
    return buildContainer(concat(media, sound), records, {107, false, true, start, start + uint32_t(sound.size())});
}

RecordSpec soundRecord(const std::string& name, const Bytes& sound) { return {256, name, std::nullopt, sound}; }

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
