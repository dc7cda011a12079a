#include "undo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cli.h"

namespace tevcli {
namespace {

// "TEVUNDO1", old size, region count, (position, length) per region, then
// the regions' bytes in the same order. Integers in the machine's order:
// the file never leaves the machine that wrote it.
constexpr char kMagic[8] = {'T', 'E', 'V', 'U', 'N', 'D', 'O', '1'};
constexpr size_t kFixedHeader = sizeof kMagic + sizeof(int64_t) + sizeof(uint32_t);
constexpr size_t kRegionHeader = 2 * sizeof(int64_t);
constexpr uint32_t kMaxRegions = 16;


bool writeAll(int fd, const void* data, size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    while (size > 0) {
        const ssize_t put = write(fd, bytes, size);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        bytes += put;
        size -= static_cast<size_t>(put);
    }
    return true;
}

bool readAll(int fd, int64_t at, void* into, size_t size) {
    auto* bytes = static_cast<unsigned char*>(into);
    while (size > 0) {
        const ssize_t got = pread(fd, bytes, size, at);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        bytes += got;
        size -= static_cast<size_t>(got);
        at += got;
    }
    return true;
}

std::string temporaryPath(const std::string& path) { return undoPath(path) + ".tmp"; }

bool exists(const std::string& path) {
    struct stat st {};
    return lstat(path.c_str(), &st) == 0;
}

struct Saved {
    int64_t oldSize = 0;
    std::vector<Region> regions;
    int64_t dataStart = 0;
};

// Reads and checks the header: every region inside the undo file's size.
bool readHeader(int fd, Saved* saved) {
    struct stat st {};
    char magic[sizeof kMagic];
    uint32_t count = 0;
    if (fstat(fd, &st) != 0 || !readAll(fd, 0, magic, sizeof magic) ||
        std::memcmp(magic, kMagic, sizeof kMagic) != 0 ||
        !readAll(fd, sizeof kMagic, &saved->oldSize, sizeof saved->oldSize) ||
        !readAll(fd, sizeof kMagic + sizeof(int64_t), &count, sizeof count) || count > kMaxRegions ||
        saved->oldSize < 0) {
        return false;
    }
    int64_t total = static_cast<int64_t>(kFixedHeader + kRegionHeader * count);
    for (uint32_t i = 0; i < count; ++i) {
        Region region{};
        const int64_t at = static_cast<int64_t>(kFixedHeader + kRegionHeader * i);
        if (!readAll(fd, at, &region.at, sizeof region.at) ||
            !readAll(fd, at + 8, &region.length, sizeof region.length) || region.at < 0 ||
            region.length < 0 || region.length > st.st_size || region.at > saved->oldSize ||
            region.length > saved->oldSize - region.at) {
            return false;
        }
        total += region.length;
        saved->regions.push_back(region);
    }
    saved->dataStart = static_cast<int64_t>(kFixedHeader + kRegionHeader * count);
    return total == st.st_size;
}

// Writes the saved regions back over the file and cuts it to its old size.
bool putBack(const std::string& path, int undo, const Saved& saved) {
    Fd file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!file.ok()) return false;
    int64_t from = saved.dataStart;
    for (const Region& region : saved.regions) {
        if (lseek(file.get(), region.at, SEEK_SET) != region.at ||
            !copyBytes(undo, from, file.get(), region.length)) {
            return false;
        }
        from += region.length;
    }
    return ftruncate(file.get(), saved.oldSize) == 0 && file.closeChecked();
}

UndoState restoreFrom(const std::string& path) {
    Fd undo(open(undoPath(path).c_str(), O_RDONLY | O_CLOEXEC));
    if (!undo.ok()) {
        if (errno == ENOENT) return UndoState::kNone;
        fail(undoPath(path), std::string("cannot open the undo file: ") + std::strerror(errno));
        return UndoState::kFailed;
    }
    Saved saved;
    if (!readHeader(undo.get(), &saved)) {
        fail(undoPath(path), "the undo file is not one tev wrote; it is left as it is");
        return UndoState::kFailed;
    }
    if (!putBack(path, undo.get(), saved)) {
        fail(path, std::string("cannot write the saved bytes back: ") + std::strerror(errno) +
                       "; the undo file is kept");
        return UndoState::kFailed;
    }
    unlink(undoPath(path).c_str());
    return UndoState::kRestored;
}

}  // namespace

std::string undoPath(const std::string& path) { return path + ".tev-undo"; }

std::optional<UndoFile> UndoFile::save(const std::string& path, const std::vector<Region>& wanted) {
    if (exists(undoPath(path))) {
        fail(path, "an interrupted edit left " + undoPath(path) + "; run `tev repair` on the file first");
        return std::nullopt;
    }
    Fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat st {};
    if (!file.ok() || fstat(file.get(), &st) != 0) {
        fail(path, std::string("cannot open: ") + std::strerror(errno));
        return std::nullopt;
    }
    std::vector<Region> regions;
    for (const Region& region : wanted) {
        const int64_t at = std::clamp<int64_t>(region.at, 0, st.st_size);
        const int64_t length = std::clamp<int64_t>(region.length, 0, st.st_size - at);
        if (length > 0 && regions.size() < kMaxRegions) regions.push_back({at, length});
    }
    const std::string temporary = temporaryPath(path);
    Fd undo(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    bool written = undo.ok();
    const int64_t oldSize = st.st_size;
    const auto count = static_cast<uint32_t>(regions.size());
    written = written && writeAll(undo.get(), kMagic, sizeof kMagic) &&
              writeAll(undo.get(), &oldSize, sizeof oldSize) && writeAll(undo.get(), &count, sizeof count);
    for (const Region& region : regions) {
        written = written && writeAll(undo.get(), &region.at, sizeof region.at) &&
                  writeAll(undo.get(), &region.length, sizeof region.length);
    }
    for (const Region& region : regions) {
        written = written && copyBytes(file.get(), region.at, undo.get(), region.length);
    }
    written = written && undo.closeChecked() && rename(temporary.c_str(), undoPath(path).c_str()) == 0;
    if (!written) {
        const std::string why = std::strerror(errno);
        unlink(temporary.c_str());
        fail(path, "cannot write the undo file " + undoPath(path) + ": " + why + "; the file is left as it is");
        return std::nullopt;
    }
    return UndoFile(path);
}

void UndoFile::discard() {
    if (!path_.empty()) unlink(undoPath(path_).c_str());
    path_.clear();
}

bool UndoFile::restore() {
    if (path_.empty()) return true;
    const bool restored = restoreFrom(path_) == UndoState::kRestored;
    path_.clear();
    return restored;
}

UndoState restoreLeftOverUndo(const std::string& path) {
    unlink(temporaryPath(path).c_str());  // an undo file never finished: the edit had not begun
    return restoreFrom(path);
}

}  // namespace tevcli
