// `tev extract FILE NAME`: a record's data (or sub-information) to a file or
// to standard output.
#include <sys/stat.h>

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

int writeBytes(const Options& o, const unsigned char* bytes, uint32_t length) {
    if (o.output.empty() || o.output == "-") {
        return writeOut(bytes, length) ? int{kExitOk} : fail("<stdout>", "cannot write the output");
    }
    FilePtr fp(std::fopen(o.output.c_str(), "wb"));
    if (!fp) return fail(o.output, std::string("cannot open for writing: ") + std::strerror(errno));
    const bool written = std::fwrite(bytes, 1, length, fp.get()) == length;
    if (!written || std::fclose(fp.release()) != 0) return fail(o.output, "cannot write the output");
    return kExitOk;
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
    PackPtr pack = requireContainer(o.file, *facts);
    if (!pack) return kExitFailed;
    const UnitPtr unit(extractTEVDataFromFilebyName(pack.get(), o.name.c_str(),
                                                    static_cast<unsigned int>(o.name.size())));
    if (!unit) return fail(o.file, "no record named \"" + printable(o.name) + "\"");
    if (!o.subInfo) return writeBytes(o, unit->data, unit->data_length);
    if (unit->sub_info == nullptr || unit->sub_info_length == 0) {
        return fail(o.file, "record \"" + printable(o.name) + "\" has no sub-information");
    }
    return writeBytes(o, unit->sub_info, unit->sub_info_length);
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
