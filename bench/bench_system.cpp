#include "bench_system.h"

#include "heap_counter.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace tevbench {

namespace {

// Blocks of this size and above come from fresh mappings in the probe child
// (glibc's starting threshold, which it otherwise raises after frees).
constexpr int kProbeMmapThreshold = 128 * 1024;
constexpr int64_t kKiB = 1024;
// Maps the pages of a range into the page table (Linux 5.14 and later).
#ifndef MADV_POPULATE_READ
#define MADV_POPULATE_READ 22
#endif

// Closes a descriptor when it goes out of scope.
class Fd {
  public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0) close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }
    bool ok() const { return fd_ >= 0; }

  private:
    int fd_;
};

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
using Memory = std::unique_ptr<unsigned char, FreeDeleter>;

bool preadAll(int fd, unsigned char* to, int64_t length, int64_t position) {
    while (length > 0) {
        const ssize_t got = pread(fd, to, static_cast<size_t>(length), position);
        if (got <= 0) return false;
        to += got;
        position += got;
        length -= got;
    }
    return true;
}

bool pwriteAll(int fd, const unsigned char* from, int64_t length, int64_t position) {
    while (length > 0) {
        const ssize_t put = pwrite(fd, from, static_cast<size_t>(length), position);
        if (put <= 0) return false;
        from += put;
        position += put;
        length -= put;
    }
    return true;
}

// Reads a small /proc file whole into `text`; bytes read, or -1.
int64_t readProcFile(const char* path, char* text, size_t capacity) {
    Fd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) return -1;
    size_t used = 0;
    while (used + 1 < capacity) {
        const ssize_t got = read(fd.get(), text + used, capacity - 1 - used);
        if (got < 0) return -1;
        if (got == 0) break;
        used += static_cast<size_t>(got);
    }
    text[used] = '\0';
    return static_cast<int64_t>(used);
}

// The number after "key" in a /proc "key: value" text, or -1.
int64_t procField(const char* text, const char* key) {
    const char* at = std::strstr(text, key);
    if (at == nullptr) return -1;
    return std::strtoll(at + std::strlen(key), nullptr, 10);
}

// A forked child starts without page-table entries for the parent's file
// mappings (code and read-only data of the program and its libraries); the
// first call into a library would fault them in and count them as memory
// of the operation. Maps them all in before the measurement starts.
void mapInFileBackedPages() {
    static char maps[1 << 16];
    if (readProcFile("/proc/self/maps", maps, sizeof maps) <= 0) return;
    for (char* line = maps; *line != '\0';) {
        char* next = std::strchr(line, '\n');
        if (next != nullptr) *next = '\0';
        unsigned long start = 0;
        unsigned long end = 0;
        char perms[5] = {};
        if (std::sscanf(line, "%lx-%lx %4s", &start, &end, perms) == 3 && perms[0] == 'r' &&
            std::strchr(line, '/') != nullptr) {
            madvise(reinterpret_cast<void*>(start), end - start, MADV_POPULATE_READ);
        }
        if (next == nullptr) break;
        line = next + 1;
    }
}

}  // namespace

IoCounters readIoCounters() {
    // rchar already counts every earlier read of /proc/self/io, but not the
    // read that fetches it; those bytes are kept here and taken off.
    static int64_t procBytesRead = 0;
    char text[1024];
    const int64_t got = readProcFile("/proc/self/io", text, sizeof text);
    if (got < 0) return {};
    IoCounters counters{procField(text, "rchar:") - procBytesRead, procField(text, "wchar:")};
    procBytesRead += got;
    return counters;
}

bool FileSnapshot::capture(const std::string& path, const std::vector<Range>& ranges) {
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat st {};
    if (!fd.ok() || fstat(fd.get(), &st) != 0) return false;
    path_ = path;
    size_ = st.st_size;
    pieces_.clear();
    for (const Range& range : ranges) {
        const int64_t end = std::min(size_, range.position + range.length);
        if (range.position < 0 || end <= range.position) return false;
        Piece piece{range.position, std::vector<unsigned char>(static_cast<size_t>(end - range.position))};
        if (!preadAll(fd.get(), piece.bytes.data(), end - range.position, range.position)) return false;
        pieces_.push_back(std::move(piece));
    }
    return true;
}

bool FileSnapshot::restore() const {
    Fd fd(open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    if (!fd.ok()) return false;
    for (const Piece& piece : pieces_) {
        const int64_t length = static_cast<int64_t>(piece.bytes.size());
        if (!pwriteAll(fd.get(), piece.bytes.data(), length, piece.position)) return false;
    }
    return ftruncate(fd.get(), size_) == 0;
}

int64_t fileSize(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? static_cast<int64_t>(st.st_size) : -1;
}

bool readFileStart(const std::string& path, unsigned char* to, int64_t length) {
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return fd.ok() && preadAll(fd.get(), to, length, 0);
}

bool rawWriteAt(const std::string& path, int64_t position, const std::vector<unsigned char>& bytes) {
    Fd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    return fd.ok() && pwriteAll(fd.get(), bytes.data(), static_cast<int64_t>(bytes.size()), position);
}

bool rawReadAt(const std::string& path, int64_t position, int64_t length) {
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    Memory memory(static_cast<unsigned char*>(std::malloc(static_cast<size_t>(length))));
    return fd.ok() && memory && preadAll(fd.get(), memory.get(), length, position);
}

bool rawCopyInPlace(const std::string& path, int64_t position, int64_t length) {
    Fd fd(open(path.c_str(), O_RDWR | O_CLOEXEC));
    Memory memory(static_cast<unsigned char*>(std::malloc(static_cast<size_t>(length))));
    return fd.ok() && memory && preadAll(fd.get(), memory.get(), length, position) &&
           pwriteAll(fd.get(), memory.get(), length, position);
}

bool rawMoveAndCut(const std::string& path, int64_t from, int64_t to, int64_t length, int64_t cut) {
    Fd fd(open(path.c_str(), O_RDWR | O_CLOEXEC));
    Memory memory(static_cast<unsigned char*>(std::malloc(static_cast<size_t>(std::max<int64_t>(length, 1)))));
    return fd.ok() && memory && preadAll(fd.get(), memory.get(), length, from) &&
           pwriteAll(fd.get(), memory.get(), length, to) && ftruncate(fd.get(), cut) == 0;
}

bool rawReadRanges(const std::string& path, const std::vector<Range>& ranges) {
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) return false;
    int64_t largest = 0;
    for (const Range& range : ranges) largest = std::max(largest, range.length);
    std::vector<unsigned char> scratch(static_cast<size_t>(largest));
    for (const Range& range : ranges) {
        if (!preadAll(fd.get(), scratch.data(), range.length, range.position)) return false;
    }
    return true;
}

namespace {

// The child's half of peakMemoryOf.
PeakMemory measureInChild(const std::function<bool()>& operation) {
    PeakMemory peak;
    char status[4096];
    mallopt(M_MMAP_THRESHOLD, kProbeMmapThreshold);
    malloc_trim(0);
    mapInFileBackedPages();
    const int64_t startKiB =
        readProcFile("/proc/self/status", status, sizeof status) > 0 ? procField(status, "VmRSS:") : -1;
    const int reset = open("/proc/self/clear_refs", O_WRONLY | O_CLOEXEC);
    const bool cleared = reset >= 0 && write(reset, "5", 1) == 1;
    if (reset >= 0) close(reset);
    startHeapCount();
    const bool ok = operation();
    const int64_t heap = stopHeapCount();
    if (!ok) return peak;
    peak.heap = heap;
    if (startKiB >= 0 && cleared && readProcFile("/proc/self/status", status, sizeof status) > 0) {
        peak.resident = (procField(status, "VmHWM:") - startKiB) * kKiB;
    }
    return peak;
}

}  // namespace

PeakMemory peakMemoryOf(const std::function<bool()>& operation) {
    int channel[2];
    if (pipe2(channel, O_CLOEXEC) != 0) return {};
    const pid_t child = fork();
    if (child == 0) {
        close(channel[0]);
        const PeakMemory peak = measureInChild(operation);
        const bool sent = write(channel[1], &peak, sizeof peak) == sizeof peak;
        _exit(sent ? 0 : 1);
    }
    close(channel[1]);
    PeakMemory peak;
    if (child < 0 || read(channel[0], &peak, sizeof peak) != sizeof peak) peak = {};
    close(channel[0]);
    int waitStatus = 0;
    if (child > 0) waitpid(child, &waitStatus, 0);
    return peak;
}

}  // namespace tevbench
