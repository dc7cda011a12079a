// Reading, building and editing the "EchoFrame_Meta_Info" payload.
#include "echo/meta_list.h"

#include <cstdio>
#include <cstring>

#include <algorithm>

#include "container/check_internal.h"
#include "container/owned.h"
#include "tev/container.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "tev/sound.h"

namespace tev::voxa {
namespace {

constexpr uint32_t kWord = 4;
constexpr uint32_t kFixedWords = 3;  // lead0, lead1, count

uint32_t readWord(const unsigned char* at) {
    return uint32_t{at[0]} | uint32_t{at[1]} << 8 | uint32_t{at[2]} << 16 | uint32_t{at[3]} << 24;
}

unsigned char* putWord(unsigned char* at, uint32_t value) {
    at[0] = static_cast<unsigned char>(value);
    at[1] = static_cast<unsigned char>(value >> 8);
    at[2] = static_cast<unsigned char>(value >> 16);
    at[3] = static_cast<unsigned char>(value >> 24);
    return at + kWord;
}

}  // namespace

bool MetaList::contains(const std::string& name) const {
    for (const std::string& listed : names) {
        if (listed == name) return true;
    }
    return false;
}

size_t MetaList::byteSize() const {
    size_t size = kFixedWords * kWord + names.size() * kWord;
    for (const std::string& name : names) size += name.size();
    return size;
}

uint32_t MetaList::writeTo(unsigned char* out) const {
    unsigned char* at = putWord(out, lead0);
    at = putWord(at, lead1);
    at = putWord(at, static_cast<uint32_t>(names.size()));
    for (const std::string& name : names) at = putWord(at, static_cast<uint32_t>(name.size()));
    for (const std::string& name : names) {
        std::memcpy(at, name.data(), name.size());
        at += name.size();
    }
    return static_cast<uint32_t>(at - out);
}

std::vector<unsigned char> MetaList::bytes() const {
    std::vector<unsigned char> out(byteSize());
    writeTo(out.data());
    return out;
}

bool parseMetaList(const unsigned char* payload, uint64_t size, MetaList* list) {
    if (payload == nullptr || size < kFixedWords * kWord) return false;
    const uint32_t count = readWord(payload + 2 * kWord);
    // Every name has a length word and at least no bytes: the count alone
    // bounds how much of the payload the lengths need.
    if (uint64_t{count} > (size - kFixedWords * kWord) / kWord) return false;
    uint64_t at = kFixedWords * kWord + uint64_t{count} * kWord;
    MetaList parsed;
    parsed.lead0 = readWord(payload);
    parsed.lead1 = readWord(payload + kWord);
    parsed.names.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t length = readWord(payload + (kFixedWords + i) * kWord);
        if (length > size - at) return false;
        parsed.names.emplace_back(reinterpret_cast<const char*>(payload + at), length);
        at += length;
    }
    *list = std::move(parsed);
    return true;
}

bool readMetaListAt(_TEV_info* info, uint32_t index, MetaList* list) {
    int64_t position = 0;
    int64_t length = 0;
    if (info == nullptr || index >= info->meta_count ||
        readDataOfIndexOffset(info, index, &position, &length) == 0 || length < 0) {
        return false;
    }
    unsigned char* data = nullptr;
    readDataOfIndex(info, index, &data, nullptr);
    // The copy is ours even when the stream could not be put back.
    const KUnique<unsigned char> owned(data);
    return data != nullptr && parseMetaList(data, static_cast<uint64_t>(length), list);
}

bool readMetaList(_TEV_info* info, MetaList* list) {
    if (info == nullptr || info->meta_data == nullptr) return false;
    for (uint32_t i = 0; i < info->meta_count; ++i) {
        const _TEV_data_info* entry = info->meta_data[i];
        if (entry != nullptr && entry->name != nullptr && std::strcmp(entry->name, kMetaRecordName) == 0) {
            return readMetaListAt(info, i, list);
        }
    }
    return false;
}

void dropFromMetaList(TevStream& stream, const MetaList& before, const std::string& deletedName) {
    if (!before.contains(deletedName)) return;
    if (before.names.size() == 1) {
        _TEV_info_pack* pack = checkTEVInStreamAndUpdate(&stream);
        if (pack == nullptr) return;
        TevStream* target = &stream;
        deleteTEVDataFromStreambyName(target, pack, kMetaRecordName, kMetaRecordNameLength);
        destroyTEVDATA_Stream(pack);
        return;
    }
    // The list as it is in the file now, without the name; the rest keeps
    // its order and its two leading words.
    OwnedTevInfo info = parseStreamIndex(&stream, true);
    MetaList now;
    if (!info || !readMetaList(info.get(), &now)) return;
    info.reset();
    auto it = std::find(now.names.begin(), now.names.end(), deletedName);
    if (it != now.names.end()) now.names.erase(it);
    const std::vector<unsigned char> payload = now.bytes();
    saveTEVDataToStream(&stream, kMetaRecordName, kMetaRecordNameLength, nullptr, 0, payload.data(),
                        static_cast<uint32_t>(payload.size()), kMetaType, 1);
}

}  // namespace tev::voxa

using tev::voxa::MetaList;

uint32_t makeFirstVoxaHeader(void* out, const void* name, uint32_t len) {
    if (out == nullptr || name == nullptr) return 0;
    MetaList list;
    list.names.emplace_back(static_cast<const char*>(name), len);
    return list.writeTo(static_cast<unsigned char*>(out));
}

uint32_t makeSecondVoxaHeader(char* out, const char* name1, uint32_t len1, const char* name2, uint32_t len2) {
    if (out == nullptr || name1 == nullptr || name2 == nullptr) return 0;
    MetaList list;
    list.names.emplace_back(name1, len1);
    list.names.emplace_back(name2, len2);
    return list.writeTo(reinterpret_cast<unsigned char*>(out));
}

uint32_t makeAddVoxaHeader(char* out, _TEV_info* info, int64_t index, const char* name, uint32_t len) {
    MetaList list;
    if (out == nullptr || name == nullptr || index < 0 || index > UINT32_MAX ||
        !tev::voxa::readMetaListAt(info, static_cast<uint32_t>(index), &list)) {
        std::puts("error!!!!!!!!");
        return 0;
    }
    list.names.emplace_back(name, len);
    return list.writeTo(reinterpret_cast<unsigned char*>(out));
}

// A name that is not listed leaves the list as it is: it still names
// exactly the records it named.
uint32_t makeMinusVoxaHeader(char* out, _TEV_info* info, int64_t index, const char* name, uint32_t /*len*/) {
    MetaList list;
    if (out == nullptr || name == nullptr || index < 0 || index > UINT32_MAX ||
        !tev::voxa::readMetaListAt(info, static_cast<uint32_t>(index), &list)) {
        return 0;
    }
    for (auto it = list.names.begin(); it != list.names.end(); ++it) {
        // Names compare as terminated strings.
        if (std::strcmp(it->c_str(), name) == 0) {
            list.names.erase(it);
            break;
        }
    }
    return list.writeTo(reinterpret_cast<unsigned char*>(out));
}
