// Preloaded into one `tev` run by the crash harness. It counts the calls
// that change one file (write, pwrite, writev, pwritev, ftruncate and their
// 64-bit forms) and, at the k-th of them, does one of:
//   kill      die before the call
//   killhalf  write the first half of the bytes, then die
//   enospc    fail the call with ENOSPC
//   eio       fail the call with EIO
//   short     write the first half of the bytes and report that much
// A truncation has no half: killhalf dies before it, short fails it with EIO.
//
// Environment: TEV_FAULT_PATH the file, TEV_FAULT_AT k (0: only count),
// TEV_FAULT_MODE one of the words above, TEV_FAULT_COUNT_OUT a file that
// receives the number of calls seen when the process exits normally.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// The faults in the order of their names in parseMode.
enum class Mode { kCount, kKill, kKillHalf, kNoSpace, kIoError, kShort };

struct Config {
    bool haveTarget = false;
    dev_t device = 0;
    ino_t inode = 0;
    long at = 0;
    Mode mode = Mode::kCount;
    long seen = 0;
};

Config gConfig;

Mode parseMode(const char* text) {
    static const char* const kNames[] = {"kill", "killhalf", "enospc", "eio", "short"};
    for (size_t i = 0; text != nullptr && i < sizeof kNames / sizeof kNames[0]; ++i) {
        if (std::strcmp(text, kNames[i]) == 0) return static_cast<Mode>(i + 1);
    }
    return Mode::kCount;
}

// Read when the shim is loaded: the harness makes the file before the run.
__attribute__((constructor)) void load() {
    const char* at = std::getenv("TEV_FAULT_AT");
    gConfig.at = at != nullptr ? std::strtol(at, nullptr, 10) : 0;
    gConfig.mode = gConfig.at > 0 ? parseMode(std::getenv("TEV_FAULT_MODE")) : Mode::kCount;
    const char* path = std::getenv("TEV_FAULT_PATH");
    struct stat target {};
    gConfig.haveTarget = path != nullptr && ::stat(path, &target) == 0;
    gConfig.device = target.st_dev;
    gConfig.inode = target.st_ino;
}

// What to do with this call: nothing (kCount), or the configured fault when
// it is the chosen call on the file.
Mode nextCall(int fd) {
    struct stat st {};
    if (!gConfig.haveTarget || ::fstat(fd, &st) != 0 || st.st_dev != gConfig.device || st.st_ino != gConfig.inode) {
        return Mode::kCount;
    }
    return ++gConfig.seen == gConfig.at ? gConfig.mode : Mode::kCount;
}

[[noreturn]] void die() {
    ::raise(SIGKILL);
    ::_exit(137);
}

template <typename T>
T next(const char* name) {
    return reinterpret_cast<T>(::dlsym(RTLD_NEXT, name));
}

// Applies a fault to a call that writes `size` bytes; `writeHalf` writes the
// first `half` bytes. Returns true with `*result` set when the call is done.
template <typename WriteHalf>
bool fault(Mode mode, size_t size, WriteHalf writeHalf, ssize_t* result) {
    switch (mode) {
        case Mode::kCount:
            return false;
        case Mode::kKill:
            die();
        case Mode::kKillHalf:
            writeHalf(size / 2);
            die();
        case Mode::kShort:
            if (size >= 2) {
                *result = writeHalf(size / 2);
                return true;
            }
            errno = ENOSPC;  // nothing to halve
            break;
        case Mode::kNoSpace:
            errno = ENOSPC;
            break;
        case Mode::kIoError:
            errno = EIO;
            break;
    }
    *result = -1;
    return true;
}

// The first `count` bytes of an I/O vector, as a vector of its own.
int cutVector(const struct iovec* in, int n, size_t count, struct iovec* out) {
    int used = 0;
    for (int i = 0; i < n && count > 0; ++i) {
        out[used] = in[i];
        if (out[used].iov_len > count) out[used].iov_len = count;
        count -= out[used].iov_len;
        ++used;
    }
    return used;
}

template <typename Fn>
int truncateCall(Mode mode, Fn call) {
    if (mode == Mode::kKill || mode == Mode::kKillHalf) die();
    if (mode == Mode::kNoSpace || mode == Mode::kShort || mode == Mode::kIoError) {
        errno = mode == Mode::kNoSpace ? ENOSPC : EIO;
        return -1;
    }
    return call();
}

__attribute__((destructor)) void reportCount() {
    const char* out = std::getenv("TEV_FAULT_COUNT_OUT");
    if (out == nullptr) return;
    if (FILE* f = std::fopen(out, "w")) {
        std::fprintf(f, "%ld\n", gConfig.seen);
        std::fclose(f);
    }
}

// A write of `n` bytes from `buf` through `real`, faulted when it is the
// chosen call; `at...` is the position of the positioned forms.
template <typename Fn, typename... At>
ssize_t writeCall(Fn real, int fd, const void* buf, size_t n, At... at) {
    ssize_t result = 0;
    if (fault(nextCall(fd), n, [&](size_t half) { return real(fd, buf, half, at...); }, &result)) return result;
    return real(fd, buf, n, at...);
}

template <typename Fn, typename... At>
ssize_t vectorCall(Fn real, int fd, const struct iovec* v, int count, At... at) {
    struct iovec cut[IOV_MAX];
    ssize_t result = 0;
    size_t size = 0;
    for (int i = 0; i < count; ++i) size += v[i].iov_len;
    const auto half = [&](size_t n) { return real(fd, cut, cutVector(v, count, n, cut), at...); };
    if (count <= IOV_MAX && fault(nextCall(fd), size, half, &result)) return result;
    return real(fd, v, count, at...);
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) ssize_t write(int fd, const void* buf, size_t n) {
    static const auto real = next<decltype(&::write)>("write");
    return writeCall(real, fd, buf, n);
}

__attribute__((visibility("default"))) ssize_t pwrite(int fd, const void* buf, size_t n, off_t at) {
    static const auto real = next<decltype(&::pwrite)>("pwrite");
    return writeCall(real, fd, buf, n, at);
}

__attribute__((visibility("default"))) ssize_t pwrite64(int fd, const void* buf, size_t n, off64_t at) {
    static const auto real = next<decltype(&::pwrite64)>("pwrite64");
    return writeCall(real, fd, buf, n, at);
}

__attribute__((visibility("default"))) ssize_t writev(int fd, const struct iovec* v, int count) {
    static const auto real = next<decltype(&::writev)>("writev");
    return vectorCall(real, fd, v, count);
}

__attribute__((visibility("default"))) ssize_t pwritev(int fd, const struct iovec* v, int count, off_t at) {
    static const auto real = next<decltype(&::pwritev)>("pwritev");
    return vectorCall(real, fd, v, count, at);
}

__attribute__((visibility("default"))) ssize_t pwritev64(int fd, const struct iovec* v, int count, off64_t at) {
    static const auto real = next<decltype(&::pwritev64)>("pwritev64");
    return vectorCall(real, fd, v, count, at);
}

__attribute__((visibility("default"))) int ftruncate(int fd, off_t length) {
    static const auto real = next<decltype(&::ftruncate)>("ftruncate");
    return truncateCall(nextCall(fd), [&] { return real(fd, length); });
}

__attribute__((visibility("default"))) int ftruncate64(int fd, off64_t length) {
    static const auto real = next<decltype(&::ftruncate64)>("ftruncate64");
    return truncateCall(nextCall(fd), [&] { return real(fd, length); });
}

}  // extern "C"
