// The "EchoFrame_Meta_Info" payload: two leading words (1 and 0 when first
// made, copied unchanged afterwards), the name count K, K name lengths and
// the K names back to back, all integers little-endian u32.
#ifndef TEV_SRC_ECHO_META_LIST_H
#define TEV_SRC_ECHO_META_LIST_H

#include <cstdint>
#include <string>
#include <vector>

#include "tev/types.h"

namespace tev::voxa {

inline constexpr char kMetaRecordName[] = "EchoFrame_Meta_Info";
inline constexpr uint32_t kMetaRecordNameLength = sizeof kMetaRecordName - 1;
inline constexpr char kFirstSoundName[] = "EchoFrame_000";
inline constexpr uint32_t kFirstSoundNameLength = sizeof kFirstSoundName - 1;
inline constexpr uint32_t kSoundType = TEV_ECHOFRAME_SOUND_DATA;  // 256
inline constexpr uint32_t kMetaType = TEV_ECHOFRAME_META_DATA;    // 2048
// Callers of the one- and two-name builders hand over this much room.
inline constexpr uint32_t kMetaBufferSize = 1000;

struct MetaList {
    uint32_t lead0 = 1;
    uint32_t lead1 = 0;
    std::vector<std::string> names;

    bool contains(const std::string& name) const;
    size_t byteSize() const;
    // The payload bytes; `out` must hold byteSize() bytes. Returns their number.
    uint32_t writeTo(unsigned char* out) const;
    std::vector<unsigned char> bytes() const;
};

// Reads a payload. False when it is shorter than its count says or its
// lengths run past its end: such a list is refused, not read past.
bool parseMetaList(const unsigned char* payload, uint64_t size, MetaList* list);

// The payload of record `index` of `info`, parsed. False when the record
// cannot be read or does not parse.
bool readMetaListAt(_TEV_info* info, uint32_t index, MetaList* list);

// The list held by the first record named "EchoFrame_Meta_Info" of an index
// whose names were read. False when there is none or it does not parse.
bool readMetaList(_TEV_info* info, MetaList* list);

// After a record of a container followed by a Voxa block was deleted: when
// `deletedName` was listed, the list loses it (saved anew), or, when it was
// the only one, the list record goes.
void dropFromMetaList(TevStream& stream, const MetaList& before, const std::string& deletedName);

}  // namespace tev::voxa

#endif  // TEV_SRC_ECHO_META_LIST_H
