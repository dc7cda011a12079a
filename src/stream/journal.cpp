// The journal that makes an edit all or nothing, its recovery, and the file
// locks. Layout behind the file's end, at J = max(old end, new end):
//
//   J               the journal bytes: the new tail (redo) or the old one (undo)
//   J + length      the footer, 56 bytes, little-endian:
//                   "TEVJRNL1", version 1, mode (1 redo, 2 undo), tail start,
//                   old end, new end, journal length (8 bytes each), CRC-32
//                   of the journal bytes, CRC-32 of the footer's first 52 bytes
//
// The footer goes out first, so from the first write on the file ends in it
// and reads as no container. Redo: the new tail is written to J, then to its
// place, then the file is cut to the new end. Undo (chosen when the bytes the
// edit overwrites are fewer than half the bytes it writes, as for an append
// over a small directory): the old bytes are saved at J, the new tail is
// written in place, then the cut. A journal whose bytes do not match their
// CRC was not complete, so nothing in place was touched yet: recovery cuts
// the file to its old end. Otherwise recovery rolls a redo journal forward
// and an undo journal back.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "stream/safe_edit.h"
#include "tev/crc.h"
#include "util/checked.h"
#include "util/log.h"

namespace tev {

namespace {

constexpr unsigned char kMagic[8] = {'T', 'E', 'V', 'J', 'R', 'N', 'L', '1'};
constexpr uint32_t kVersion = 1;
constexpr uint32_t kRedo = 1;
constexpr uint32_t kUndo = 2;
constexpr int64_t kFooterSize = 56;
constexpr int64_t kFooterChecked = kFooterSize - 4;
constexpr int64_t kCopyChunk = int64_t{1} << 20;
constexpr unsigned int kCrc32Polynomial = 0xEDB88320u;

struct Footer {
    uint32_t mode = 0;
    int64_t tailStart = 0;
    int64_t oldEnd = 0;
    int64_t newEnd = 0;
    int64_t length = 0;
    uint32_t crc = 0;
};

// The reflected CRC-32 of calcCRC, eight bytes a step: the journal is
// checked over every byte an edit moves, so this runs at memory speed.
struct CrcTables {
    uint32_t t[8][256];
    CrcTables() {
        makeCRCtable(t[0], kCrc32Polynomial);
        for (int i = 0; i < 256; ++i) {
            for (int k = 1; k < 8; ++k) t[k][i] = (t[k - 1][i] >> 8) ^ t[0][t[k - 1][i] & 0xFFu];
        }
    }
};

uint32_t crcOf(const unsigned char* bytes, int64_t size, uint32_t crc = 0) {
    static const CrcTables tables;
    const auto& t = tables.t;
    uint32_t c = ~crc;
    int64_t i = 0;
    for (; i + 8 <= size; i += 8) {
        const uint32_t lo = c ^ (uint32_t{bytes[i]} | uint32_t{bytes[i + 1]} << 8 | uint32_t{bytes[i + 2]} << 16 |
                                 uint32_t{bytes[i + 3]} << 24);
        c = t[7][lo & 0xFFu] ^ t[6][(lo >> 8) & 0xFFu] ^ t[5][(lo >> 16) & 0xFFu] ^ t[4][lo >> 24] ^
            t[3][bytes[i + 4]] ^ t[2][bytes[i + 5]] ^ t[1][bytes[i + 6]] ^ t[0][bytes[i + 7]];
    }
    for (; i < size; ++i) c = (c >> 8) ^ t[0][(c ^ bytes[i]) & 0xFFu];
    return ~c;
}

void put32(unsigned char* at, uint32_t value) {
    for (int i = 0; i < 4; ++i) at[i] = static_cast<unsigned char>(value >> (8 * i));
}

void put64(unsigned char* at, int64_t value) {
    const auto bits = static_cast<uint64_t>(value);
    for (int i = 0; i < 8; ++i) at[i] = static_cast<unsigned char>(bits >> (8 * i));
}

uint32_t get32(const unsigned char* at) {
    uint32_t value = 0;
    for (int i = 3; i >= 0; --i) value = (value << 8) | at[i];
    return value;
}

int64_t get64(const unsigned char* at) {
    uint64_t value = 0;
    for (int i = 7; i >= 0; --i) value = (value << 8) | at[i];
    return static_cast<int64_t>(value);
}

void encode(const Footer& f, unsigned char out[kFooterSize]) {
    std::memcpy(out, kMagic, sizeof kMagic);
    put32(out + 8, kVersion);
    put32(out + 12, f.mode);
    put64(out + 16, f.tailStart);
    put64(out + 24, f.oldEnd);
    put64(out + 32, f.newEnd);
    put64(out + 40, f.length);
    put32(out + 48, f.crc);
    put32(out + 52, crcOf(out, kFooterChecked));
}

// A footer that checks and whose numbers describe the file of `size` bytes
// that ends in it.
bool decode(const unsigned char in[kFooterSize], int64_t size, Footer* f) {
    if (std::memcmp(in, kMagic, sizeof kMagic) != 0 || get32(in + 8) != kVersion ||
        get32(in + 52) != crcOf(in, kFooterChecked)) {
        return false;
    }
    f->mode = get32(in + 12);
    f->tailStart = get64(in + 16);
    f->oldEnd = get64(in + 24);
    f->newEnd = get64(in + 32);
    f->length = get64(in + 40);
    f->crc = get32(in + 48);
    if (f->tailStart < 0 || f->oldEnd < f->tailStart || f->newEnd < f->tailStart || f->length < 0) return false;
    const int64_t journalAt = std::max(f->oldEnd, f->newEnd);
    int64_t end = 0;
    if (!checkedAdd(journalAt, f->length, &end) || !checkedAdd(end, kFooterSize, &end) || end != size) {
        return false;
    }
    if (f->mode == kRedo) return f->length == f->newEnd - f->tailStart;
    if (f->mode == kUndo) return f->length == f->oldEnd - f->tailStart;
    return false;
}

int64_t sizeOf(int fd) {
    struct stat st {};
    if (::fstat(fd, &st) != 0) return -1;
    return static_cast<int64_t>(st.st_size);
}

bool preadAll(int fd, unsigned char* out, int64_t size, int64_t at) {
    int64_t done = 0;
    while (done < size) {
        const ssize_t got = ::pread64(fd, out + done, static_cast<size_t>(size - done), at + done);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        done += got;
    }
    return true;
}

bool pwriteAll(int fd, const unsigned char* bytes, int64_t size, int64_t at) {
    int64_t done = 0;
    while (done < size) {
        const ssize_t put = ::pwrite64(fd, bytes + done, static_cast<size_t>(size - done), at + done);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        done += put;
    }
    return true;
}

bool cut(int fd, int64_t size) {
    while (::ftruncate64(fd, size) != 0) {
        if (errno != EINTR) return false;
    }
    return true;
}

struct Free {
    void operator()(unsigned char* bytes) const { std::free(bytes); }
};
using Bytes = std::unique_ptr<unsigned char, Free>;

Bytes allocate(int64_t size) {
    return Bytes(static_cast<unsigned char*>(std::malloc(static_cast<size_t>(std::max<int64_t>(size, 1)))));
}

// CRC-32 of the file's bytes [at, at + size), false when they do not read.
bool crcOfRange(int fd, int64_t at, int64_t size, uint32_t* crc) {
    const Bytes chunk = allocate(std::min(size, kCopyChunk));
    if (!chunk) return false;
    uint32_t value = 0;
    for (int64_t done = 0; done < size;) {
        const int64_t step = std::min(size - done, kCopyChunk);
        if (!preadAll(fd, chunk.get(), step, at + done)) return false;
        value = crcOf(chunk.get(), step, value);
        done += step;
    }
    *crc = value;
    return true;
}

// Copies [from, from + size) to `to`; the two ranges never overlap here.
bool copyRange(int fd, int64_t from, int64_t to, int64_t size) {
    const Bytes chunk = allocate(std::min(size, kCopyChunk));
    if (!chunk) return false;
    for (int64_t done = 0; done < size;) {
        const int64_t step = std::min(size - done, kCopyChunk);
        if (!preadAll(fd, chunk.get(), step, from + done) || !pwriteAll(fd, chunk.get(), step, to + done)) {
            return false;
        }
        done += step;
    }
    return true;
}

// After a failed write before anything in place changed: the old end again
// (nothing to cut when nothing went out, as on a descriptor opened read-only).
CommitResult rollBackToOldEnd(int fd, int64_t oldEnd) {
    if (sizeOf(fd) == oldEnd || cut(fd, oldEnd)) return CommitResult::kRolledBack;
    return CommitResult::kPending;
}

}  // namespace

CommitResult commitOverlay(OverlayStream& overlay) {
    if (!overlay.changed()) return CommitResult::kDone;
    const int fd = overlay.fd();
    Footer f;
    f.tailStart = overlay.tailStart();
    f.oldEnd = overlay.fileSize();
    f.newEnd = overlay.logicalSize();
    const int64_t tailSize = f.newEnd - f.tailStart;
    // Only a cut: one call that happens or not.
    if (tailSize == 0) {
        if (f.newEnd == f.oldEnd) return CommitResult::kDone;
        return cut(fd, f.newEnd) ? CommitResult::kDone : CommitResult::kRolledBack;
    }
    const int64_t savedSize = f.oldEnd - f.tailStart;
    f.mode = savedSize <= tailSize / 2 ? kUndo : kRedo;
    Bytes saved;
    if (f.mode == kUndo && savedSize > 0) {
        saved = allocate(savedSize);
        if (!saved || !preadAll(fd, saved.get(), savedSize, f.tailStart)) return CommitResult::kRolledBack;
    }
    const unsigned char* journal = f.mode == kUndo ? saved.get() : overlay.tail();
    f.length = f.mode == kUndo ? savedSize : tailSize;
    f.crc = crcOf(journal, f.length);
    const int64_t journalAt = std::max(f.oldEnd, f.newEnd);
    unsigned char footer[kFooterSize];
    encode(f, footer);

    if (!pwriteAll(fd, footer, kFooterSize, journalAt + f.length) ||
        !pwriteAll(fd, journal, f.length, journalAt)) {
        return rollBackToOldEnd(fd, f.oldEnd);
    }
    if (!pwriteAll(fd, overlay.tail(), tailSize, f.tailStart)) {
        if (f.mode == kUndo) {
            if (pwriteAll(fd, journal, f.length, f.tailStart)) return rollBackToOldEnd(fd, f.oldEnd);
            return CommitResult::kPending;
        }
        // The journal is whole: finishing the edit is the way to a
        // consistent file.
        if (!pwriteAll(fd, overlay.tail(), tailSize, f.tailStart)) return CommitResult::kPending;
    }
    if (cut(fd, f.newEnd) || cut(fd, f.newEnd)) return CommitResult::kDone;
    return CommitResult::kPending;
}

bool recoverJournal(int fd) {
    const int64_t size = sizeOf(fd);
    if (size < 0) return false;
    if (size < kFooterSize) return true;
    unsigned char footer[kFooterSize];
    Footer f;
    if (!preadAll(fd, footer, kFooterSize, size - kFooterSize) || !decode(footer, size, &f)) return true;
    const int64_t journalAt = std::max(f.oldEnd, f.newEnd);
    uint32_t crc = 0;
    if (!crcOfRange(fd, journalAt, f.length, &crc)) {
        logLine(kLogError, "TEVJournal", "journal does not read, errno : %d", errno);
        return false;
    }
    bool done = false;
    if (crc != f.crc) {
        done = cut(fd, f.oldEnd);
    } else if (f.mode == kRedo) {
        done = copyRange(fd, journalAt, f.tailStart, f.length) && cut(fd, f.newEnd);
    } else {
        done = copyRange(fd, journalAt, f.tailStart, f.length) && cut(fd, f.oldEnd);
    }
    if (!done) logLine(kLogError, "TEVJournal", "interrupted edit not recovered, errno : %d", errno);
    return done;
}

uint32_t finishGuardedEdit(OverlayStream& overlay, uint32_t result) {
    switch (commitOverlay(overlay)) {
        case CommitResult::kDone:
            ::lseek64(overlay.fd(), overlay.position(), SEEK_SET);
            return result;
        case CommitResult::kRolledBack:
            logLine(kLogError, "TEVJournal", "write failed, the edit was rolled back");
            return 0;
        case CommitResult::kPending:
            break;
    }
    logLine(kLogError, "TEVJournal", "write failed, the next call completes or undoes the edit");
    return 0;
}

// ------------------------------------------------------------------ locks

namespace {

// The files this thread holds a lock on, so that an entry point calling
// another does not wait for itself.
struct HeldFile {
    dev_t device;
    ino_t inode;
};
constexpr int kMaxHeld = 8;
thread_local HeldFile tHeld[kMaxHeld];
thread_local int tHeldCount = 0;

bool heldByThisThread(const struct stat& st) {
    for (int i = 0; i < tHeldCount; ++i) {
        if (tHeld[i].device == st.st_dev && tHeld[i].inode == st.st_ino) return true;
    }
    return false;
}

}  // namespace

FileLock::FileLock(int fd, bool exclusive) : mFd(fd), mTaken(false) {
    struct stat st {};
    if (fd < 0 || ::fstat(fd, &st) != 0 || heldByThisThread(st) || tHeldCount == kMaxHeld) return;
    int rc = 0;
    while ((rc = ::flock(fd, exclusive ? LOCK_EX : LOCK_SH)) != 0 && errno == EINTR) {
    }
    if (rc != 0) return;
    tHeld[tHeldCount++] = HeldFile{st.st_dev, st.st_ino};
    mTaken = true;
}

FileLock::~FileLock() {
    if (!mTaken) return;
    --tHeldCount;
    ::flock(mFd, LOCK_UN);
}

namespace {
thread_local const TevStream* tActiveOverlay = nullptr;
}  // namespace

ActiveOverlay::ActiveOverlay(const TevStream* overlay) : mPrevious(tActiveOverlay) {
    tActiveOverlay = overlay;
}

ActiveOverlay::~ActiveOverlay() { tActiveOverlay = mPrevious; }

bool isActiveOverlay(const TevStream* stream) { return stream != nullptr && stream == tActiveOverlay; }

int guardableDescriptor(TevStream* stream) {
    if (stream == nullptr || stream == tActiveOverlay) return -1;
    switch (stream->GetStreamType()) {
        case TEV_STREAM_FD:
            return static_cast<TevStreamFD*>(stream)->descriptor();
        case TEV_STREAM_FILE:
            return static_cast<TevStreamFile*>(stream)->descriptor();
        default:
            return -1;
    }
}

int descriptorOf(FILE* fp) { return fp != nullptr ? fileno(fp) : -1; }

bool descriptorWritable(int fd) {
    const int flags = ::fcntl(fd, F_GETFL);
    return flags != -1 && (flags & O_ACCMODE) != O_RDONLY;
}

ReadGuard::ReadGuard(int fd, bool canWrite) : mLock(fd, canWrite) {
    if (canWrite) recoverJournal(fd);
}

}  // namespace tev
