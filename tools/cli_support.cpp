#include "cli.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android/log.h>

#include <cerrno>
#include <cstring>

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
            return name.size() >= kMinNameLength && name.size() <= kMaxNameLength
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

bool signatureHasContainer(uint32_t signature) {
    return signature == SIGNATURE_TEV || signature == SIGNATURE_VOXA_TEV;
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

PackPtr openContainer(const std::string& path) { return PackPtr(checkTEVWithReadPM(path.c_str())); }

PackPtr requireContainer(const std::string& path, const FileFacts& facts) {
    if (!signatureHasContainer(facts.signature)) {
        fail(path, facts.signature == SIGNATURE_VOXA ? "no container (only a Voxa sound block)"
                                                     : "no container");
        return nullptr;
    }
    PackPtr pack = openContainer(path);
    if (!pack) fail(path, "container is damaged (its directory does not parse)");
    return pack;
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

std::optional<std::vector<unsigned char>> readWholeFile(const std::string& path, uint64_t limit,
                                                       const std::string& what) {
    FilePtr fp(std::fopen(path.c_str(), "rb"));
    struct stat st {};
    if (!fp || fstat(fileno(fp.get()), &st) != 0) {
        fail(path, "cannot open " + what + ": " + errnoText());
        return std::nullopt;
    }
    if (!S_ISREG(st.st_mode)) {
        fail(path, what + " is not a regular file");
        return std::nullopt;
    }
    const uint64_t size = static_cast<uint64_t>(st.st_size);
    if (size >= limit) {
        fail(path, what + " of " + std::to_string(size) + " bytes is too big (limit " +
                       std::to_string(limit - 1) + " bytes)");
        return std::nullopt;
    }
    std::vector<unsigned char> bytes(size);
    if (size > 0 && std::fread(bytes.data(), 1, size, fp.get()) != size) {
        fail(path, "cannot read " + what);
        return std::nullopt;
    }
    return bytes;
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
