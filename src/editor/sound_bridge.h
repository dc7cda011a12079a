// What the record editor needs from the layer that keeps sounds as records
// (src/echo), which provides it: the editor itself does not know the sound
// list's layout. A delete that keeps a Voxa block in step holds the list as
// it was before the record went, and has the name dropped from it after; a
// save into an image with sound has the sound converted into records, and
// one that replaces a listed sound has it listed again.
#ifndef TEV_SRC_EDITOR_SOUND_BRIDGE_H
#define TEV_SRC_EDITOR_SOUND_BRIDGE_H

#include <memory>
#include <string>

#include "container/owned.h"
#include "tev/stream.h"
#include "tev/types.h"

namespace tev {
struct SaveRequest;
}

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

// The first step of a save into an image whose sound is a bare Voxa block:
// the sound becomes the record "EchoFrame_000" with its list. False (after
// logging failures under `tag`) when the block does not parse, there is no
// room for the record of `dataLength` + `subLength` + `nameLength` bytes or
// a step fails; nothing is written before the checks pass.
bool convertBareSound(TevStream& stream, uint32_t dataLength, uint32_t subLength, uint32_t nameLength,
                      const char* tag);
// True when the sound list of `pack` names `name`.
bool isListedSound(_TEV_info_pack* pack, const char* name);
// A listed sound record was deleted (which also took its name out of the
// list, or the list away with its last name): the list comes back with the
// name last, and the record with it. When the deleted record was the one the
// Voxa block points at (`mark` kVoxaMarkItself), the record and the list go
// in together behind a new block, as a sound record; otherwise the record
// is appended, then the list. 0 when the list is missing or a step fails.
uint32_t relistReplacedSound(TevStream& stream, const SaveRequest& request, OwnedPackOnStream pack,
                             uint32_t mark);

}  // namespace tev::sound_bridge

#endif  // TEV_SRC_EDITOR_SOUND_BRIDGE_H
