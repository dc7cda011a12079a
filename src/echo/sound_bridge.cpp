// The sound-list side of the record editor's deletes (editor/sound_bridge.h).
#include "editor/sound_bridge.h"

#include <new>

#include "echo/meta_list.h"

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

}  // namespace tev::sound_bridge
