// `tev repair FILE`: brings back a readable file after an edit that was cut
// short. An undo file left beside it is put back (the file as it was before
// that edit); without one, the newest complete container directory in the
// file is found, also one followed by leftover bytes, and the file is cut
// right behind it. A healthy file is left alone.
#include <sys/mman.h>
#include <sys/stat.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "cli.h"
#include "container/check_internal.h"
#include "container/format.h"
#include "container/index.h"
#include "edit_guard.h"
#include "undo.h"

namespace tevcli {
namespace {

// A read-only view of the whole file.
class Mapping {
public:
    explicit Mapping(const std::string& path) {
        Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        struct stat st {};
        if (!fd.ok() || fstat(fd.get(), &st) != 0) return;
        size_ = st.st_size;
        if (size_ == 0) return;
        void* at = mmap(nullptr, static_cast<size_t>(size_), PROT_READ, MAP_PRIVATE, fd.get(), 0);
        if (at != MAP_FAILED) bytes_ = static_cast<const unsigned char*>(at);
    }
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;
    ~Mapping() {
        if (bytes_ != nullptr) munmap(const_cast<unsigned char*>(bytes_), static_cast<size_t>(size_));
    }
    const unsigned char* bytes() const { return bytes_; }
    int64_t size() const { return size_; }

private:
    const unsigned char* bytes_ = nullptr;
    int64_t size_ = 0;
};

// A directory to cut behind: where it ends and where the "tevd" box around
// its records starts (-1 when they lie in none).
struct Directory {
    int64_t end = -1;
    int64_t box = -1;
};

// The directory the library reads in the file's first `end` bytes, when it
// is complete and strict enough to cut behind: version 107 with exactly as
// many entries as KTHO counts, records back to back from the first one up to
// "TEVH", none of them (nor their box) in front of `floor`, each starting
// with the meta type its entry gives and holding its name and
// sub-information.
std::optional<Directory> directoryEndingAt(const Mapping& file, int64_t end, int64_t floor) {
    tev::Buffer handle(_kbsetbuffer(const_cast<unsigned char*>(file.bytes()), end));
    if (!handle || btruncate(handle.get(), end) != 0) return std::nullopt;
    TevStreamBuffer stream(handle.get());
    const tev::OwnedTevInfo info = tev::parseStreamIndex(&stream, true);
    if (!info || info->version != tev::kVersion ||
        info->header_offset !=
            tev::kTailFieldsSize + tev::kKthoBase + uint64_t{tev::kDirectoryEntrySize} * info->meta_count) {
        return std::nullopt;
    }
    const int64_t head = end - info->header_offset;
    int64_t expected = -1;
    for (uint32_t i = 0; i < info->meta_count; ++i) {
        const _TEV_data_info& entry = *info->meta_data[i];
        const int64_t start = tev::recordStart(*info, entry);
        const int64_t header =
            entry.has_sub_info != 0 ? tev::kTagHeaderSize + tev::kSubInfoLengthSize : tev::kTagHeaderSize;
        if (start < floor || start >= head || (expected >= 0 && start != expected) ||
            entry.length > head - start || header + entry.name_length + entry.sub_info_length > entry.length ||
            tev::loadLittleEndian32(file.bytes() + start) != entry.meta_type) {
            return std::nullopt;
        }
        expected = start + entry.length;
    }
    if (expected != head) return std::nullopt;
    const bool boxed = checkSignatureMP4Tag(info.get()) == LUMET_TEV_TRUE && info->data_start_position >= floor;
    return Directory{end, boxed ? info->data_start_position : -1};
}

// The newest directory in the file: the one that ends closest to its end.
std::optional<Directory> newestDirectory(const Mapping& file, int64_t floor) {
    const unsigned char* b = file.bytes();
    for (int64_t scan = file.size(); scan >= tev::kTagSize;) {
        const void* t = memrchr(b, tev::kTagTail[0], static_cast<size_t>(scan - (tev::kTagSize - 1)));
        if (t == nullptr) break;
        const int64_t at = static_cast<const unsigned char*>(t) - b;
        if (tev::tagEquals(reinterpret_cast<const char*>(b + at), tev::kTagTail)) {
            if (std::optional<Directory> found = directoryEndingAt(file, at + tev::kTagSize, floor)) return found;
        }
        scan = at + tev::kTagSize - 1;
    }
    return std::nullopt;
}

// Sets the size field of the "tevd" box at `box` to reach `end`.
bool writeBoxSize(int fd, int64_t box, int64_t end) {
    TevStreamFD stream(fd);
    return stream.seek(box, SEEK_SET) == box &&
           stream.writeTEV_TOTALSIZE(static_cast<uint32_t>(end - box)) == tev::kFieldSize;
}

int say(const char* text) {
    if (!jsonMode()) std::fprintf(out(), "%s\n", text);
    return kExitOk;
}

int cutBehindNewestDirectory(const std::string& path) {
    const Mapping file(path);
    if (file.bytes() == nullptr) return fail(path, "cannot read the file");
    const std::optional<Directory> directory = newestDirectory(file, mediaEnd(path).value_or(0));
    if (!directory) {
        return fail(path, "no complete container directory to restore "
                          "(`tev clear --force` cuts the file back to its media)");
    }
    const int64_t end = directory->end;
    Fd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!fd.ok() || (directory->box >= 0 && !writeBoxSize(fd.get(), directory->box, end)) ||
        ftruncate(fd.get(), end) != 0 || !fd.closeChecked()) {
        return fail(path, std::string("cannot cut the file: ") + std::strerror(errno));
    }
    if (!jsonMode()) {
        std::fprintf(out(), "cut %lld bytes behind the container\n", static_cast<long long>(file.size() - end));
    }
    return kExitOk;
}

int runRepair(const std::string& path) {
    switch (restoreLeftOverUndo(path)) {
        case UndoState::kRestored:
            return say("put back as it was before the interrupted edit");
        case UndoState::kFailed:
            return kExitFailed;
        case UndoState::kNone:
            break;
    }
    // An edit of the library cut short leaves its journal behind the file's
    // end; the library completes or undoes it, and the file loses the journal.
    struct stat before {};
    const bool sized = stat(path.c_str(), &before) == 0;
    if (recoverTEVFile(path.c_str()) != 1) return fail(path, "cannot complete or undo the interrupted edit");
    struct stat after {};
    if (sized && stat(path.c_str(), &after) == 0 && after.st_size != before.st_size) {
        return say("completed or undid the interrupted edit");
    }
    const std::optional<FileFacts> facts = inspectFile(path, true);
    if (!facts) return kExitFailed;
    const bool damaged = damagedTrailer(path, *facts).has_value() ||
                         (signatureHasContainer(facts->signature) && containerReadsWhole(path).has_value());
    if (!damaged) return say("nothing to repair");
    return cutBehindNewestDirectory(path);
}

}  // namespace

Command addRepairCommand(CLI::App& parent) {
    auto file = std::make_shared<std::string>();
    CLI::App* app = parent.add_subcommand(
        "repair", "Bring back a readable file after an interrupted edit: put back what the edit's undo file "
                  "saved, or cut the file behind its newest complete container");
    app->add_option("FILE", *file, "Media file")->required();
    return {app, [file] { return runRepair(*file); }};
}

}  // namespace tevcli
