// System-level helpers of the benchmark: byte counters of the process,
// saving and restoring the edited part of a file, the raw I/O that the
// library's operations are compared with, and the peak-memory probe.
#ifndef TEV_BENCH_BENCH_SYSTEM_H
#define TEV_BENCH_BENCH_SYSTEM_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tevbench {

// Bytes moved by read-like and write-like system calls of this process
// (`rchar` and `wchar` of /proc/self/io), page cache hits included.
struct IoCounters {
    int64_t readBytes = 0;
    int64_t writtenBytes = 0;
};

// Reads the counters; the bytes of /proc/self/io read to get them are
// subtracted, so two back-to-back calls differ by nothing.
IoCounters readIoCounters();

// A byte range of a file.
struct Range {
    int64_t position;
    int64_t length;
};

// The bytes of a file from a set of ranges plus its size, written back by
// restore(): what an edit changes (a directory, a box header, a whole
// container) goes back without copying the media in front of it.
class FileSnapshot {
  public:
    bool capture(const std::string& path, const std::vector<Range>& ranges);
    bool restore() const;
    int64_t size() const { return size_; }

  private:
    struct Piece {
        int64_t position;
        std::vector<unsigned char> bytes;
    };
    std::string path_;
    int64_t size_ = 0;
    std::vector<Piece> pieces_;
};

int64_t fileSize(const std::string& path);
// Reads the first `length` bytes of a file.
bool readFileStart(const std::string& path, unsigned char* to, int64_t length);

// Raw baselines: the least a program must do to move the same bytes, each
// opening and closing the file as the library's path forms do.
// Writes `bytes` at `position` (where the old directory begins).
bool rawWriteAt(const std::string& path, int64_t position, const std::vector<unsigned char>& bytes);
// Reads `length` bytes at `position` into freshly allocated memory.
bool rawReadAt(const std::string& path, int64_t position, int64_t length);
// Reads the `length` bytes at `position` into fresh memory and writes them
// back where they were: one copy of that region through user space.
bool rawCopyInPlace(const std::string& path, int64_t position, int64_t length);
// Reads the `length` bytes at `from` into fresh memory, writes them at `to`
// and cuts the file at `cut`: the bytes a delete has to move.
bool rawMoveAndCut(const std::string& path, int64_t from, int64_t to, int64_t length, int64_t cut);
// One read per range, in order, into a reused scratch buffer.
bool rawReadRanges(const std::string& path, const std::vector<Range>& ranges);

// Memory one call of `operation` needs, in bytes (-1 when not measured).
struct PeakMemory {
    int64_t heap = -1;      // highest live heap during the call (exact, see heap_counter.h)
    int64_t resident = -1;  // growth of the resident set's high-water mark
};

// Runs `operation` once in a forked child and measures both figures there.
// For the resident figure the child fixes malloc's mmap threshold (so large
// blocks are fresh mappings, not recycled pages), returns freed heap pages to
// the system, maps in the pages of its file mappings (code the operation will
// run), resets its high-water mark through /proc/self/clear_refs and reports
// VmHWM after the call minus VmRSS before it. The kernel keeps these counters
// per CPU and sums them lazily, so the resident figure is only good to a few
// hundred KiB; the heap figure is exact. Both stay -1 when the operation fails.
PeakMemory peakMemoryOf(const std::function<bool()>& operation);

}  // namespace tevbench

#endif  // TEV_BENCH_BENCH_SYSTEM_H
