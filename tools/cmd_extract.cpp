// `tev extract FILE NAME`: a record's data (or sub-information) to a file or
// to standard output.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "cli.h"

namespace tevcli {
namespace {

struct Options {
    std::string file;
    std::string name;
    std::string output;
    bool subInfo = false;
};

bool sameFile(const std::string& a, const std::string& b) {
    struct stat sa {}, sb {};
    return stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

// Copies `part` of the file to the output inside the kernel where it can.
int writeBytes(const Options& o, const TevOffsetInfo& part) {
    const int in = open(o.file.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) return fail(o.file, std::string("cannot open: ") + std::strerror(errno));
    int status = kExitOk;
    if (o.output.empty() || o.output == "-") {
        if (std::fflush(out()) != 0 || !copyBytes(in, part.position, fileno(out()), part.length)) {
            status = fail("<stdout>", "cannot write the output");
        }
    } else {
        const int to = open(o.output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (to < 0) {
            status = fail(o.output, std::string("cannot open for writing: ") + std::strerror(errno));
        } else {
            const bool copied = copyBytes(in, part.position, to, part.length);
            if (close(to) != 0 || !copied) status = fail(o.output, "cannot write the output");
        }
    }
    close(in);
    return status;
}

int run(const Options& o) {
    if (jsonMode() && (o.output.empty() || o.output == "-")) {
        return usage("extract --json needs -o FILE: standard output carries the JSON object");
    }
    const std::optional<FileFacts> facts = inspectFile(o.file, false);
    if (!facts) return kExitFailed;
    if (!o.output.empty() && o.output != "-" && sameFile(o.file, o.output)) {
        return fail(o.output, "the output would overwrite the file being read");
    }
    tev::Pack pack = requireContainer(o.file, *facts);
    if (!pack) return kExitFailed;
    // Where the record's bytes lie; the tool copies them itself.
    const tev::Offset data(getTEVInFileByName(pack.get(), o.name.c_str()));
    if (!data) return fail(o.file, "no record named \"" + printable(o.name) + "\"");
    if (!o.subInfo) return writeBytes(o, *data);
    const tev::Offset sub(getTEVSubInfoInFileByName(pack.get(), o.name.c_str()));
    if (!sub) return fail(o.file, "record \"" + printable(o.name) + "\" has no sub-information");
    return writeBytes(o, *sub);
}

}  // namespace

Command addExtractCommand(CLI::App& parent) {
    auto options = std::make_shared<Options>();
    CLI::App* app = parent.add_subcommand("extract", "Write a record's data or sub-information out");
    app->add_option("FILE", options->file, "Media file with a container")->required();
    app->add_option("NAME", options->name, "Record name")->required()->check(nameLength());
    app->add_option("-o,--output", options->output, "Output file (default: standard output)");
    app->add_flag("--sub-info", options->subInfo, "Write the sub-information instead of the data");
    return {app, [options] { return run(*options); }};
}

}  // namespace tevcli
