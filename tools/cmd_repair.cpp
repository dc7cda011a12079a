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
#include "edit_guard.h"
#include "undo.h"

namespace tevcli {
namespace {

constexpr uint32_t kVersion = 107;
constexpr uint32_t kEntrySize = 12;
constexpr uint32_t kKthoBase = 12;
constexpr uint32_t kMaxNameLength = 1024;
constexpr uint32_t kSubFlag = 0x8000;
constexpr int64_t kBoxHeaderSize = 8;

uint32_t le32(const unsigned char* p) {
    return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
}

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

// True when a complete directory ends at `end` (just behind its "TEVT")
// whose records lie back to back from `*first` up to "TEVH", each starting
// with the meta type its entry gives and a name of 1 to 1024 bytes, none of
// them in front of `floor`.
bool directoryEndsAt(const unsigned char* b, int64_t end, int64_t floor, int64_t* first) {
    if (end < 8 || std::memcmp(b + end - 4, "TEVT", 4) != 0) return false;
    const uint32_t ktho = le32(b + end - 8);
    const int64_t head = end - 8 - int64_t{ktho};
    if (ktho < kKthoBase + kEntrySize || head < floor || std::memcmp(b + head, "TEVH", 4) != 0 ||
        le32(b + head + 4) != kVersion) {
        return false;
    }
    const uint32_t count = le32(b + head + 8);
    if (count == 0 || (ktho - kKthoBase) / kEntrySize != count || (ktho - kKthoBase) % kEntrySize != 0) {
        return false;
    }
    int64_t expected = -1;
    for (uint32_t i = 0; i < count; ++i) {
        const unsigned char* entry = b + head + 12 + int64_t{kEntrySize} * i;
        const uint32_t meta = le32(entry);
        const int64_t start = head - int64_t{le32(entry + 4)};
        const int64_t length = le32(entry + 8);
        if (start < floor || start >= head || (expected >= 0 && start != expected) || length > head - start) {
            return false;
        }
        const int64_t header = (meta & kSubFlag) != 0 ? 12 : 8;
        if (length < header + 1 || le32(b + start) != meta) return false;
        const uint32_t nameLength = le32(b + start + 4);
        const int64_t subLength = (meta & kSubFlag) != 0 ? le32(b + start + 8) : 0;
        if (nameLength < 1 || nameLength > kMaxNameLength || header + nameLength + subLength > length ||
            ((meta & kSubFlag) != 0 && subLength == 0)) {
            return false;
        }
        if (i == 0) *first = start;
        expected = start + length;
    }
    return expected == head;
}

// The end of the newest directory in the file, or -1.
int64_t newestDirectoryEnd(const Mapping& file, int64_t floor, int64_t* first) {
    const unsigned char* b = file.bytes();
    for (int64_t scan = file.size(); scan >= 4;) {
        const void* t = memrchr(b, 'T', static_cast<size_t>(scan - 3));
        if (t == nullptr) break;
        const int64_t at = static_cast<const unsigned char*>(t) - b;
        if (directoryEndsAt(b, at + 4, floor, first)) return at + 4;
        scan = at + 3;
    }
    return -1;
}

bool writeBoxSize(int fd, int64_t box, int64_t end) {
    const auto size = static_cast<uint32_t>(end - box);
    const unsigned char field[4] = {static_cast<unsigned char>(size >> 24), static_cast<unsigned char>(size >> 16),
                                    static_cast<unsigned char>(size >> 8), static_cast<unsigned char>(size)};
    return pwrite(fd, field, sizeof field, box) == static_cast<ssize_t>(sizeof field);
}

int say(const char* text) {
    if (!jsonMode()) std::fprintf(out(), "%s\n", text);
    return kExitOk;
}

int cutBehindNewestDirectory(const std::string& path) {
    const Mapping file(path);
    if (file.bytes() == nullptr) return fail(path, "cannot read the file");
    const int64_t floor = mediaEnd(path).value_or(0);
    int64_t first = 0;
    const int64_t end = newestDirectoryEnd(file, floor, &first);
    if (end < 0) {
        return fail(path, "no complete container directory to restore "
                          "(`tev clear --force` cuts the file back to its media)");
    }
    const bool boxed = first >= floor + kBoxHeaderSize &&
                       std::memcmp(file.bytes() + first - 4, "tevd", 4) == 0;
    Fd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!fd.ok() || (boxed && !writeBoxSize(fd.get(), first - kBoxHeaderSize, end)) ||
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
