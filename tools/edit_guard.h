// Edits under an undo file: the bytes the edit may overwrite are saved
// first, the edit runs, and the file is then read back and judged; an edit
// that failed, or that left a file other than the one asked for, is rolled
// back to the file as it was.
#ifndef TEV_TOOLS_EDIT_GUARD_H
#define TEV_TOOLS_EDIT_GUARD_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cli.h"
#include "undo.h"

namespace tevcli {

// What the file must hold after the edit: nullopt when it does, else why not.
using EditCheck = std::function<std::optional<std::string>()>;

// Everything behind the media: from the first record or sound to the end
// of the file (nothing for plain media, which an edit only appends to).
std::vector<Region> appendedRegions(const std::string& path, const FileFacts& facts);

// For an edit of named records of a plain container: from the first record
// of those names (the directory when none of them exists yet) to the end,
// and the "tevd" box header. Records in front are never written.
std::vector<Region> recordRegions(_TEV_info_pack* pack, const std::vector<std::string>& names);

// The first byte the library keeps behind the media: the first record (or
// its "tevd" box header) or the first sound, whichever comes first; the
// file's size when there is neither.
int64_t firstKeptByte(const std::string& path);

// Runs `edit` (an exit status) with `regions` saved, then `check`, then the
// checks every edit must pass: the container (if any) reads whole and the
// first record or sound starts where the media ends (`mediaLength`, or where
// it started before the edit). Returns the edit's status, or kExitFailed
// after rolling back.
int guardedEdit(const std::string& path, const std::vector<Region>& regions, const std::function<int()>& edit,
                const EditCheck& check, std::optional<int64_t> mediaLength = std::nullopt);

// A whole command that edits `path` in ways only the library knows: all
// that lies behind the media is saved, and afterwards the file must pass the
// checks of every edit. A file that cannot be inspected goes to `run` as it
// is, which reports the problem.
int guardedCommand(const std::string& path, const std::function<int()>& run);
// The same with a check of the caller's instead.
int guardedCommandWith(const std::string& path, const std::function<int()>& run, const EditCheck& check);

// True when the file holds `expected` from `at` on.
bool fileHolds(const std::string& path, int64_t at, const unsigned char* expected, size_t length);

// Checks shared by the edits. Each gives nullopt when the file passes.
// The container reads, with every record's name, and a "tevd" box that
// ends where the file ends.
std::optional<std::string> containerReadsWhole(const std::string& path);
// The first record named `name` holds exactly these bytes and this type.
// With `boxed`, the container must lie in a "tevd" box.
std::optional<std::string> recordHolds(const std::string& path, const std::string& name, uint32_t type,
                                       const unsigned char* sub, size_t subLength, const unsigned char* data,
                                       size_t dataLength, bool boxed);

}  // namespace tevcli

#endif  // TEV_TOOLS_EDIT_GUARD_H
