// The sound-list side of the record editor (editor/sound_bridge.h): deletes
// that keep the list in step, and the saves that replace a listed sound.
#include "editor/sound_bridge.h"

#include <new>
#include <vector>

#include "echo/echoframe_internal.h"
#include "echo/meta_list.h"
#include "editor/save_internal.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "tev/query.h"
#include "tev/sound.h"

namespace tev::sound_bridge {

struct ListBeforeEdit {
    voxa::MetaList list;
};

void ListRelease::operator()(ListBeforeEdit* list) const { delete list; }

ListHandle readSoundList(_TEV_info& info) {
    ListHandle handle(new (std::nothrow) ListBeforeEdit);
    if (handle) voxa::readMetaList(&info, &handle->list);
    return handle;
}

void dropFromSoundList(TevStream& stream, const ListBeforeEdit& before, const std::string& deletedName) {
    voxa::dropFromMetaList(stream, before.list, deletedName);
}

bool convertBareSound(TevStream& stream, uint32_t dataLength, uint32_t subLength, uint32_t nameLength,
                      const char* tag) {
    return voxa::convertBareSoundForSave(stream, dataLength, subLength, nameLength, tag);
}

bool isListedSound(_TEV_info_pack* pack, const char* name) {
    const OwnedUnit meta(extractTEVDataFromFilebyName(pack, voxa::kMetaRecordName, voxa::kMetaRecordNameLength));
    return meta && isIdenticalNameInMetaInfo(meta.get(), name) != 0;
}

namespace {

// The list of the "EchoFrame_Meta_Info" record at `metaIndex` with `name`
// appended; empty when that record does not read as a list.
std::vector<unsigned char> listWithNameAdded(_TEV_info* info, uint32_t metaIndex, const char* name,
                                             uint32_t nameLength) {
    voxa::MetaList list;
    if (!voxa::readMetaListAt(info, metaIndex, &list)) return {};
    list.names.emplace_back(name, nameLength);
    return list.bytes();
}

// A listed sound record was deleted (which also took its name out of the
// list, or the list away with its last name): the list comes back with the
// name last, and the record with it. When the deleted record was the one
// the Voxa block points at, the record and the list go in together behind
// a new block, as a sound record; otherwise the record is appended, then
// the list.
}  // namespace

uint32_t relistReplacedSound(TevStream& stream, const SaveRequest& r, OwnedPackOnStream pack, uint32_t mark) {
    const uint32_t metaIndex = findRecord(pack.get(), voxa::kMetaRecordName);
    if (metaIndex == kNameNotFound) return LUMET_TEV_FALSE;
    const std::vector<unsigned char> header = listWithNameAdded(pack->info, metaIndex, r.name, r.nameLength);
    const uint32_t headerSize = static_cast<uint32_t>(header.size());
    OwnedVoxaOnStream voxa = parseVoxaBlock(stream);
    if (DeleteATEVDataStream(pack->info, metaIndex, voxa.get()) != LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
    pack.reset(checkTEVInStreamAndUpdate(&stream));
    if (!pack) return LUMET_TEV_FALSE;
    if (mark == kVoxaMarkItself) {
        return NewAddVoxaData(pack->info, voxa::kMetaType, voxa::kSoundType, r.name, r.nameLength, r.data,
                              r.dataLength, header.data(), headerSize);
    }
    voxa = parseVoxaBlock(stream);
    if (appendRequest(stream, pack->info, r, voxa.get()) != LUMET_TEV_TRUE) return LUMET_TEV_FALSE;
    pack.reset(checkTEVInStreamAndUpdate(&stream));
    voxa = parseVoxaBlock(stream);
    if (!pack) return LUMET_TEV_FALSE;
    const SaveRequest meta{voxa::kMetaRecordName, voxa::kMetaRecordNameLength, nullptr, 0, header.data(),
                           headerSize, voxa::kMetaType, 1};
    return appendRequest(stream, pack->info, meta, voxa.get());
}


}  // namespace tev::sound_bridge
