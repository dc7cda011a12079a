// Shared pieces of the `tev` command-line tool: exit codes, the output and
// error channels, owners for what the library hands out, and the checks that
// every command runs on its file before it asks the library anything.
#ifndef TEV_TOOLS_CLI_H
#define TEV_TOOLS_CLI_H

#include <unistd.h>

#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "container/format.h"
#include "container/owned.h"
#include "tev/tev.hpp"

namespace tevcli {

// Exit status, the same split in every command: 2 when the command line
// itself is wrong, judged before any file is looked at (unknown subcommand
// or option, missing argument, a value out of its range such as a type
// above 65535 or an empty or over-long name); 1 when the command is
// well-formed but cannot be done on these files (missing file, no
// container, no such record, a name that exists, a refused or failed edit).
enum ExitCode : int {
    kExitOk = 0,
    kExitFailed = 1,
    kExitUsage = 2,
};
inline constexpr const char* kExitStatusHelp =
    "Exit status: 0 success; 1 the files refuse the command or the edit failed (a refused edit "
    "leaves the file unchanged); 2 the command line is wrong (unknown subcommand or option, a "
    "missing argument, a value out of range).";

// The tool refuses what the library would refuse, with a clear message, by
// the library's own limits (container/format.h); data types are 16 bits.
inline constexpr uint32_t kMaxDataType = std::numeric_limits<decltype(tev::DataType::value)>::max();

// Record names on the command line: 1 to 1024 bytes (a usage error otherwise).
const CLI::Validator& nameLength();

// A subcommand: its CLI11 node and what to run once it was parsed.
struct Command {
    CLI::App* app = nullptr;
    std::function<int()> run;
};

Command addInfoCommand(CLI::App& parent);
Command addListCommand(CLI::App& parent);
Command addExtractCommand(CLI::App& parent);
Command addAddCommand(CLI::App& parent);
Command addDeleteCommand(CLI::App& parent);
Command addClearCommand(CLI::App& parent);
Command addSoundCommand(CLI::App& parent);
Command addCopyCommand(CLI::App& parent);
Command addRepairCommand(CLI::App& parent);
Command addCoverCommand(CLI::App& parent);

// --- output channels -------------------------------------------------------
// The library prints a few diagnostics to standard output and logs failures
// to the Android log. The tool keeps its own standard output for its results
// only: descriptor 1 is pointed at /dev/null (or at stderr with --verbose)
// and results go to a duplicate of the original descriptor.
void setUpChannels(bool verbose);
FILE* out();
// Writes bytes to the result channel; false on a short write.
bool writeOut(const void* data, size_t size);

// "tev: FILE: problem" on stderr; returns kExitFailed. The first problem of
// a run is kept for the JSON error object.
int fail(const std::string& file, const std::string& problem);
// The same for a usage problem found after parsing; returns kExitUsage.
int usage(const std::string& problem);

// --- JSON mode (--json, taken by every command) -----------------------------
// In JSON mode every run prints exactly one JSON object on the result
// channel: the command's own, or {"ok": false, "error": …} on failure, or
// {"ok": true} for an edit that has nothing else to say.
void setJsonMode(bool on);
bool jsonMode();
bool jsonPrinted();  // the command printed its own object (printJson)
void noteJsonPrinted();
const std::string& firstProblem();

// --- owners ----------------------------------------------------------------
// What the library hands out is owned through tev/tev.hpp's owners
// (tev::Pack, tev::Offset, tev::Record, tev::Voxa, tev::NameList) and files
// through tev::OwnedFile; descriptors the tool opens itself through Fd.

// An owned descriptor, closed when it goes; closeChecked reports the close.
class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    ~Fd() {
        if (fd_ >= 0) close(fd_);
    }
    int get() const { return fd_; }
    bool ok() const { return fd_ >= 0; }
    bool closeChecked() {
        const int fd = fd_;
        fd_ = -1;
        return close(fd) == 0;
    }

private:
    int fd_;
};

// --- the file under work ---------------------------------------------------
// A regular file the tool may read (and, for edits, write). On failure the
// problem is reported and nullopt returned.
struct FileFacts {
    int64_t size = 0;
    uint32_t signature = SIGNATURE_ERROR;
};
std::optional<FileFacts> inspectFile(const std::string& path, bool forWriting);

// 2 or 4: a container ends the file, or comes right before a Voxa block.
inline bool signatureHasContainer(uint32_t signature) { return tev::hasContainer(tev::toSignature(signature)); }
const char* signatureName(uint32_t signature);

// Parses the container read-only. Null when there is none or it is damaged.
tev::Pack openContainer(const std::string& path);

// Opens the container of `path` for a command that needs one; reports
// "no container" or "container is damaged" and returns null otherwise.
tev::Pack requireContainer(const std::string& path, const FileFacts& facts);

// Why the end of the file looks like a damaged container: a container
// directory that does not parse, or "TEVH"/"TEVT" near the end of a file
// the library reads as plain media or a bare sound (bytes after a
// container). Nullopt when nothing looks damaged.
std::optional<std::string> damagedTrailer(const std::string& path, const FileFacts& facts);

// Where the media itself ends: after a JPEG's end-of-image marker, or at the
// first top-level box of an MP4/HEIC file that is a "tevd" box or not a box
// at all. Nullopt when the file is neither or its structure cannot be
// followed.
std::optional<int64_t> mediaEnd(const std::string& path);

// MP4 and HEIC media: records go into a "tevd" box, and sound cannot go in.
bool isBoxedMedia(const std::string& path);

// The sounds an image lists: name and length (a bare sound is
// "EchoFrame_000"). Nullopt, reported, when they cannot be read.
using SoundSet = std::map<std::string, int64_t>;
std::optional<SoundSet> soundSet(const std::string& path);

// The name of record `index` (borrowed from the pack), or "" when unreadable.
std::string recordName(_TEV_info_pack* pack, uint32_t index);
// Data type of record `index` from its directory entry.
uint32_t recordType(_TEV_info_pack* pack, uint32_t index);

// The bytes of a whole file: mapped read-only for a regular file, so that
// they reach the library without being copied through a read buffer; read
// into memory for pipes and other special files, or when mapping fails.
class FileBytes {
public:
    FileBytes() = default;
    explicit FileBytes(std::vector<unsigned char> bytes) : bytes_(std::move(bytes)) {}
    FileBytes(FileBytes&& other) noexcept { *this = std::move(other); }
    FileBytes& operator=(FileBytes&& other) noexcept;
    ~FileBytes();

    // Takes over a read-only mapping of `size` bytes.
    static FileBytes mapped(void* mapping, size_t size);

    const unsigned char* data() const { return mapping_ != nullptr ? mapping_ : bytes_.data(); }
    size_t size() const { return mapping_ != nullptr ? mappedSize_ : bytes_.size(); }
    bool empty() const { return size() == 0; }

private:
    std::vector<unsigned char> bytes_;
    unsigned char* mapping_ = nullptr;
    size_t mappedSize_ = 0;
};

// Reads a whole file of at most `limit` bytes; reports and returns nullopt
// on failure or when the file is larger.
std::optional<FileBytes> readWholeFile(const std::string& path, uint64_t limit, const std::string& what);

// Copies `length` bytes from position `at` of descriptor `in` to descriptor
// `out` at its current offset: inside the kernel (copy_file_range, else
// sendfile) where the descriptors allow it, else through a bounded buffer.
// False on a failed or short copy.
bool copyBytes(int in, int64_t at, int out, int64_t length);

// Name shown in text output: control bytes and backslashes as \xNN, the
// rest (UTF-8 included) as it is.
std::string printable(const std::string& name);

}  // namespace tevcli

#endif  // TEV_TOOLS_CLI_H
