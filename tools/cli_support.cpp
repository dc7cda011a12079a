#include "cli.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android/log.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tevcli {
namespace {

FILE* gOut = stdout;
bool gVerbose = false;
bool gJson = false;
bool gJsonPrinted = false;
std::string gFirstProblem;

void keepFirstProblem(const std::string& text) {
    if (gFirstProblem.empty()) gFirstProblem = text;
}

// Library log lines reach stderr only when asked for with --verbose.
void quietLogger(const __android_logger_data* data, const char* message) {
    if (gVerbose) __android_log_stderr_logger(data, message);
}

std::string errnoText() { return std::strerror(errno); }

}  // namespace

void setUpChannels(bool verbose) {
    gVerbose = verbose;
    __android_log_set_logger(quietLogger);
    if (verbose) __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);

    std::fflush(stdout);
    const int results = dup(STDOUT_FILENO);
    if (results < 0) return;  // keep stdout as it is; only the separation is lost
    FILE* resultStream = fdopen(results, "wb");
    if (resultStream == nullptr) {
        close(results);
        return;
    }
    const int sink = verbose ? dup(STDERR_FILENO) : open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (sink >= 0) {
        dup2(sink, STDOUT_FILENO);
        close(sink);
    }
    gOut = resultStream;
}

FILE* out() { return gOut; }

bool writeOut(const void* data, size_t size) {
    return std::fwrite(data, 1, size, gOut) == size && std::fflush(gOut) == 0;
}

int fail(const std::string& file, const std::string& problem) {
    std::fprintf(stderr, "tev: %s: %s\n", file.c_str(), problem.c_str());
    keepFirstProblem(file + ": " + problem);
    return kExitFailed;
}

int usage(const std::string& problem) {
    std::fprintf(stderr, "tev: %s\n", problem.c_str());
    keepFirstProblem(problem);
    return kExitUsage;
}

void setJsonMode(bool on) { gJson = on; }
bool jsonMode() { return gJson; }
bool jsonPrinted() { return gJsonPrinted; }
void noteJsonPrinted() { gJsonPrinted = true; }
const std::string& firstProblem() { return gFirstProblem; }

const CLI::Validator& nameLength() {
    static const CLI::Validator validator(
        [](const std::string& name) {
            return name.size() >= tev::kMinNameLength && name.size() <= tev::kMaxNameLength
                       ? std::string()
                       : std::string("names must be 1 to 1024 bytes long");
        },
        "1 to 1024 bytes", "name length");
    return validator;
}

std::optional<FileFacts> inspectFile(const std::string& path, bool forWriting) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) {
        fail(path, "cannot open: " + errnoText());
        return std::nullopt;
    }
    if (!S_ISREG(st.st_mode)) {
        fail(path, "not a regular file");
        return std::nullopt;
    }
    if (access(path.c_str(), forWriting ? (R_OK | W_OK) : R_OK) != 0) {
        fail(path, std::string(forWriting ? "cannot open for writing: " : "cannot open: ") +
                       errnoText());
        return std::nullopt;
    }
    FileFacts facts;
    facts.size = st.st_size;
    facts.signature = getSignature(path.c_str());
    if (facts.signature == SIGNATURE_ERROR) {
        fail(path, "cannot read the end of the file");
        return std::nullopt;
    }
    return facts;
}

const char* signatureName(uint32_t signature) {
    switch (signature) {
        case SIGNATURE_DETECTION_FAIL: return "media";
        case SIGNATURE_TEV: return "container";
        case SIGNATURE_VOXA: return "voxa";
        case SIGNATURE_VOXA_TEV: return "container+voxa";
        default: return "unknown";
    }
}

tev::Pack openContainer(const std::string& path) { return tev::openForReading(path.c_str()); }

tev::Pack requireContainer(const std::string& path, const FileFacts& facts) {
    if (!signatureHasContainer(facts.signature)) {
        fail(path, facts.signature == SIGNATURE_VOXA ? "no container (only a Voxa sound block)"
                                                     : "no container");
        return nullptr;
    }
    tev::Pack pack = openContainer(path);
    if (!pack) fail(path, "container is damaged (its directory does not parse)");
    return pack;
}

bool isBoxedMedia(const std::string& path) {
    tev::OwnedFile fp(std::fopen(path.c_str(), "rb"));
    return fp && checkMP4Fp(fp.get()) == LUMET_TEV_TRUE;
}

std::string recordName(_TEV_info_pack* pack, uint32_t index) {
    const char* name = GetNameInList(pack, static_cast<int>(GetTevCount(pack)), static_cast<int>(index));
    return name != nullptr ? name : "";
}

uint32_t recordType(_TEV_info_pack* pack, uint32_t index) {
    const _TEV_info* info = pack->info;
    if (info == nullptr || info->meta_data == nullptr || index >= info->meta_count ||
        info->meta_data[index] == nullptr) {
        return 0;
    }
    return _getDataType(info->meta_data[index]->meta_type);
}

FileBytes& FileBytes::operator=(FileBytes&& other) noexcept {
    if (this != &other) {
        if (mapping_ != nullptr) munmap(mapping_, mappedSize_);
        bytes_ = std::move(other.bytes_);
        mapping_ = std::exchange(other.mapping_, nullptr);
        mappedSize_ = std::exchange(other.mappedSize_, 0);
    }
    return *this;
}

FileBytes::~FileBytes() {
    if (mapping_ != nullptr) munmap(mapping_, mappedSize_);
}

FileBytes FileBytes::mapped(void* mapping, size_t size) {
    FileBytes bytes;
    bytes.mapping_ = static_cast<unsigned char*>(mapping);
    bytes.mappedSize_ = size;
    return bytes;
}

namespace {

// Reads until the end of a descriptor whose size is not known beforehand.
std::optional<FileBytes> readUntilEnd(int fd, const std::string& path, uint64_t limit, const std::string& what) {
    std::vector<unsigned char> bytes;
    constexpr size_t kStep = 1 << 16;
    for (;;) {
        const size_t used = bytes.size();
        bytes.resize(used + kStep);
        const ssize_t got = read(fd, bytes.data() + used, kStep);
        if (got < 0 && errno == EINTR) {
            bytes.resize(used);
            continue;
        }
        if (got < 0) {
            fail(path, "cannot read " + what);
            return std::nullopt;
        }
        bytes.resize(used + static_cast<size_t>(got));
        if (got == 0) return FileBytes(std::move(bytes));
        if (bytes.size() >= limit) {
            fail(path, what + " is too big (limit " + std::to_string(limit - 1) + " bytes)");
            return std::nullopt;
        }
    }
}

// The whole of a regular file of `size` bytes, read through a buffer.
std::optional<FileBytes> readRegular(int fd, const std::string& path, uint64_t size, const std::string& what) {
    std::vector<unsigned char> bytes(size);
    for (uint64_t done = 0; done < size;) {
        const ssize_t got = pread(fd, bytes.data() + done, size - done, static_cast<off_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            fail(path, "cannot read " + what);
            return std::nullopt;
        }
        done += static_cast<uint64_t>(got);
    }
    return FileBytes(std::move(bytes));
}

}  // namespace

std::optional<FileBytes> readWholeFile(const std::string& path, uint64_t limit, const std::string& what) {
    Fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat st {};
    if (file.get() < 0 || fstat(file.get(), &st) != 0) {
        fail(path, "cannot open " + what + ": " + errnoText());
        return std::nullopt;
    }
    if (!S_ISREG(st.st_mode)) return readUntilEnd(file.get(), path, limit, what);
    const uint64_t size = static_cast<uint64_t>(st.st_size);
    if (size >= limit) {
        fail(path, what + " of " + std::to_string(size) + " bytes is too big (limit " +
                       std::to_string(limit - 1) + " bytes)");
        return std::nullopt;
    }
    if (size == 0) return FileBytes();
    // The pages are mapped in up front: the library hands them to write()
    // in one piece, and faulting them in one by one would cost more.
    void* mapping = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, file.get(), 0);
    if (mapping == MAP_FAILED) return readRegular(file.get(), path, size, what);
    return FileBytes::mapped(mapping, size);
}

namespace {

// Errors after which a kernel-side copy is not possible for these
// descriptors, and the next method is tried instead.
bool cannotCopyHere(int error) {
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EBADF ||
           error == EOPNOTSUPP || error == ETXTBSY || error == EPERM;
}

// Moves what it can with `step` (a kernel-side copy that advances `at`);
// returns false on a real failure, true with `remaining` left over when the
// method does not apply to these descriptors.
template <typename Step>
bool copyWith(Step step, int64_t& remaining) {
    while (remaining > 0) {
        const ssize_t moved = step(static_cast<size_t>(std::min<int64_t>(remaining, int64_t{1} << 30)));
        if (moved > 0) {
            remaining -= moved;
            continue;
        }
        if (moved < 0 && errno == EINTR) continue;
        return moved < 0 && cannotCopyHere(errno);
    }
    return true;
}

}  // namespace

bool copyBytes(int in, int64_t at, int out, int64_t length) {
    int64_t remaining = length;
    loff_t from = at;
    if (!copyWith([&](size_t n) { return copy_file_range(in, &from, out, nullptr, n, 0); }, remaining)) {
        return false;
    }
    off_t offset = static_cast<off_t>(from);
    if (remaining > 0 &&
        !copyWith([&](size_t n) { return sendfile(out, in, &offset, n); }, remaining)) {
        return false;
    }
    if (remaining == 0) return true;
    constexpr size_t kChunk = 1 << 20;
    std::vector<unsigned char> chunk(static_cast<size_t>(std::min<int64_t>(remaining, kChunk)));
    while (remaining > 0) {
        const ssize_t got = pread(in, chunk.data(), std::min<size_t>(chunk.size(), remaining), offset);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        for (ssize_t written = 0; written < got;) {
            const ssize_t put = write(out, chunk.data() + written, static_cast<size_t>(got - written));
            if (put < 0 && errno == EINTR) continue;
            if (put <= 0) return false;
            written += put;
        }
        offset += got;
        remaining -= got;
    }
    return true;
}

std::string printable(const std::string& name) {
    std::string shown;
    for (unsigned char c : name) {
        if (c >= 0x20 && c != 0x7F && c != '\\') {
            shown += static_cast<char>(c);
        } else {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
            shown += escaped;
        }
    }
    return shown;
}

}  // namespace tevcli
