// What the record editor needs from the layer that keeps sounds as records
// (src/echo), which provides it: the editor itself does not know the sound
// list's layout. A delete that keeps a Voxa block in step holds the list as
// it was before the record went, and has the name dropped from it after.
#ifndef TEV_SRC_EDITOR_SOUND_BRIDGE_H
#define TEV_SRC_EDITOR_SOUND_BRIDGE_H

#include <memory>
#include <string>

#include "tev/stream.h"
#include "tev/types.h"

namespace tev::sound_bridge {

struct ListBeforeEdit;
struct ListRelease {
    void operator()(ListBeforeEdit* list) const;
};
using ListHandle = std::unique_ptr<ListBeforeEdit, ListRelease>;

// The sound list of the parsed container `info` (empty when it has none or
// it does not read); null only when the memory cannot be had.
ListHandle readSoundList(_TEV_info& info);
// After the record `deletedName` left the container on `stream`: a list that
// named it no longer does (the list record goes with its last name).
void dropFromSoundList(TevStream& stream, const ListBeforeEdit& before, const std::string& deletedName);

}  // namespace tev::sound_bridge

#endif  // TEV_SRC_EDITOR_SOUND_BRIDGE_H
