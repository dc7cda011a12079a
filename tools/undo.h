// The undo file: the bytes an edit may overwrite, saved beside the edited
// file before the library touches it, so that an edit cut short (the
// process killed, the disk full, a write failing) can be rolled back to the
// file as it was, byte for byte.
//
// FILE.tev-undo is written in full under a temporary name and renamed into
// place, so it either exists whole or not at all. It is removed when the
// edit has been checked; `tev repair FILE` puts a left-over one back.
#ifndef TEV_TOOLS_UNDO_H
#define TEV_TOOLS_UNDO_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tevcli {

// A stretch of the file an edit may write over.
struct Region {
    int64_t at;
    int64_t length;
};

class UndoFile {
public:
    // Saves `regions` (clipped to the file) and the file's size. Reports the
    // problem and returns nullopt when FILE.tev-undo already exists (an
    // earlier edit was interrupted) or cannot be written.
    static std::optional<UndoFile> save(const std::string& path, const std::vector<Region>& regions);

    // The edit stands: the undo file goes.
    void discard();
    // The edit is taken back: the saved bytes return, the file gets its old
    // size and the undo file goes. False (the undo file kept) when that fails.
    bool restore();

    UndoFile(UndoFile&& other) noexcept : path_(std::move(other.path_)) { other.path_.clear(); }
    UndoFile& operator=(UndoFile&&) = delete;
    // An undo file not discarded or restored stays for `tev repair`.
    ~UndoFile() = default;

private:
    explicit UndoFile(std::string path) : path_(std::move(path)) {}
    std::string path_;
};

std::string undoPath(const std::string& path);

// What `tev repair` finds beside the file.
enum class UndoState { kNone, kRestored, kFailed };
// Puts back the undo file of `path` if there is one; kFailed has been reported.
UndoState restoreLeftOverUndo(const std::string& path);

}  // namespace tevcli

#endif  // TEV_TOOLS_UNDO_H
