// Shared pieces of the save family: the request every entry point passes on,
// the steps of the central save that the file-sync form and the sound layer
// reuse, and the reader of whole data files.
#ifndef TEV_SRC_EDITOR_SAVE_INTERNAL_H
#define TEV_SRC_EDITOR_SAVE_INTERNAL_H

#include <cstdint>
#include <memory>

#include "container/format.h"
#include "container/index.h"
#include "container/owned.h"
#include "tev/container.h"
#include "tev/stream.h"
#include "tev/types.h"

namespace tev {

// Bit 0 of the update argument asks to replace a record of the same name.
inline constexpr uint32_t kUpdateReplaceBit = 1;
// _getIndexOfName's answer for an absent name.
inline constexpr uint32_t kNameNotFound = 0xFFFFFFFFu;

// One record to save, as an entry point received it.
struct SaveRequest {
    const char* name;  // name_len bytes, not necessarily terminated
    uint32_t nameLength;
    const unsigned char* sub;
    uint32_t subLength;
    const unsigned char* data;
    uint32_t dataLength;
    uint32_t type;
    uint32_t update;

    bool replaces() const { return (update & kUpdateReplaceBit) != 0; }
};

// The Voxa block at the end of the stream with its sound table, or null when
// there is none. A block older than the current writer's that lists no sound
// is a leftover and counts as none.
OwnedVoxaOnStream parseVoxaBlock(TevStream& stream);

// The name bytes as a NUL-terminated string for _getIndexOfName; null when
// the copy cannot be allocated.
KUnique<char[]> copyNameKey(const char* name, uint32_t length);

// Index of `key` in the pack, or kNameNotFound.
uint32_t findRecord(_TEV_info_pack* pack, const char* key);

// Appends the request's record through AddTEVDataStream's body (see
// appendRecord in add_internal.h).
uint32_t appendRequest(TevStream& stream, _TEV_info* info, const SaveRequest& request, _voxa_info_struct* voxa,
                       bool* complete = nullptr);

// The replaced record was the only one: the container is gone and the
// record becomes the first of a new one (in a "tevd" box on MP4 media when
// `withBox`). A container that still ends the stream but no longer parses
// is not written over: 0.
uint32_t readdAsFirstRecord(TevStream& stream, const SaveRequest& request, bool withBox);

// Where the record at `index` lies relative to the record holding the
// Voxa sound: kVoxaMarkBefore, kVoxaMarkItself or kVoxaMarkAfter (also when
// no record holds it).
uint32_t voxaPositionMark(_TEV_info& info, _voxa_info_struct& voxa, uint32_t index);

// What a save reports when the name exists and no replacement was asked:
// a memory buffer counts it as success, a file does not.
uint32_t existingNameResult(TevStream& stream);

// Steps of saveTEVDataToStream for plain media and for a container; the
// file-sync save runs them without the MP4 box work.
uint32_t saveIntoPlainMedia(TevStream& stream, const SaveRequest& request, bool withBox);
uint32_t saveIntoContainer(TevStream& stream, const SaveRequest& request, const char* key,
                           bool withBox);

// The first steps of a record save into an image whose sound is a bare
// Voxa block: MP4 media is refused, the sound becomes the record
// "EchoFrame_000" with its list (refusals logged under `tag`), and the new
// container and block are parsed. True, with both, when the save goes on.
bool convertVoxaImageForSave(TevStream& stream, uint32_t dataLength, uint32_t subLength, uint32_t nameLength,
                             const char* tag, OwnedPackOnStream* pack, OwnedVoxaOnStream* voxa);

// The first steps of every save into a container followed by a Voxa block
// (a record or a sound): MP4 media is refused, the container and the block
// are parsed, and the room for `dataLength` + `subLength` + `nameLength`
// more bytes is checked, each refusal logged under `tag`. True, with both
// parsed, when the save goes on.
bool openVoxaContainerForSave(TevStream& stream, uint32_t dataLength, uint32_t subLength, uint32_t nameLength,
                              const char* tag, OwnedPackOnStream* pack, OwnedVoxaOnStream* voxa);

// Opens `path` "r+b", saves through the central operation and closes the
// file; 0 without a log line when the path cannot be opened.
uint32_t saveRequestToPath(const char* path, const SaveRequest& request);

// Reading the whole content of a data file for the "FileData" forms.
enum class DataFileStatus {
    kOk,
    kOpenFailed,
    kSeekFailed,
    kEmpty,
    kTooBig,      // 0xFFF00001 bytes or more: refused before allocating
    kUnreadable,  // allocation or read failed
};

struct DataFile {
    KUnique<unsigned char[]> bytes;
    uint32_t length = 0;
};

DataFileStatus readWholeDataFile(const char* path, DataFile* out);

}  // namespace tev

#endif  // TEV_SRC_EDITOR_SAVE_INTERNAL_H
