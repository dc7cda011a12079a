// A directory assembled in memory, byte for byte as the step-by-step writers
// (writeTEV_KTSS, writeTEV_KVER, writeTEV_KCnt, writeTEV_KDR, writeTEV_KTHO,
// writeTEV_KTS) put it on a stream, so that it can go out with one write
// instead of three per entry.
#ifndef TEV_SRC_CONTAINER_DIRECTORY_IMAGE_H
#define TEV_SRC_CONTAINER_DIRECTORY_IMAGE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "tev/stream.h"
#include "tev/types.h"

namespace tev {

class DirectoryImage {
public:
    // Makes room for a directory of `entryCount` entries; false when the
    // memory cannot be had.
    bool reserve(uint32_t entryCount);
    // "TEVH", the version and `countField`.
    void begin(uint32_t countField);
    // Meta type, start offset and length of one entry.
    void addEntry(const _TEV_data_info& entry);
    // KTHO for `entryCount` entries and "TEVT".
    void end(uint32_t entryCount);

    // True when every field went into the reserved room.
    bool complete() const { return bytes_ != nullptr && !overflowed_; }
    const unsigned char* data() const { return bytes_.get(); }
    int64_t size() const { return static_cast<int64_t>(size_); }

private:
    void put(const void* field, size_t length);
    void putWord(uint32_t value);

    std::unique_ptr<unsigned char[]> bytes_;
    size_t capacity_ = 0;
    size_t size_ = 0;
    bool overflowed_ = false;
};

// Writes a complete image at the stream's position with one write. When the
// write does not complete (a memory buffer without room writes nothing, a
// file may take part of it), the stream is put back where the image began
// and the result is false: the caller then writes the directory field by
// field, which leaves the bytes and reports the failing step it always did.
bool writeDirectoryImage(TevStream& stream, const DirectoryImage& image);

// The one writer of a container directory. Its write, step by step, so each
// caller can report the step that failed with its own text.
enum class DirectoryStep { kHead, kVersion, kCount, kEntry, kKtho, kTail, kDone };
struct DirectoryWrite {
    DirectoryStep failedStep;  // kDone when every write succeeded
    int64_t lastResult;        // result of the last write made
    bool ok() const { return failedStep == DirectoryStep::kDone; }
};
// Which field writes stop a directory written field by field: any that
// writes nothing, or only those that report an error (a memory buffer
// without room refuses a write with 0 and the next field is tried).
enum class DirectoryStop { kAtRefusal, kAtError };
// "TEVH", version, `countField`, the entries, KTHO for the number of
// entries, "TEVT" at the stream's position: in one write when the memory
// for it can be had, else field by field, stopping as `stop` says. A
// complete write reports "TEVT"'s result as the last one.
DirectoryWrite writeDirectory(TevStream& stream, uint32_t countField, const std::vector<_TEV_data_info*>& entries,
                              DirectoryStop stop = DirectoryStop::kAtRefusal);
// The index's entries in directory order; false when one is missing.
bool collectEntries(const _TEV_info& info, std::vector<_TEV_data_info*>* entries);

}  // namespace tev

#endif  // TEV_SRC_CONTAINER_DIRECTORY_IMAGE_H
