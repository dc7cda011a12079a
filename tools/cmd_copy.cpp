// `tev copy SRC DST`: the records of one file's container (and its sounds)
// into another file, or the source's container bytes appended unchanged.
#include <cstring>
#include <string>
#include <vector>

#include "cli.h"
#include "echo/meta_list.h"
#include "edit_guard.h"

namespace tevcli {
namespace {

struct Options {
    std::string source;
    std::string destination;
    std::optional<uint32_t> type;
    std::optional<std::string> name;
    bool raw = false;
};

bool hasSound(uint32_t signature) { return signature == SIGNATURE_VOXA || signature == SIGNATURE_VOXA_TEV; }

// Each named record (the first of its name) arrived in the destination with
// the type and bytes it has in the source.
std::optional<std::string> arrivedWhole(const Options& o, const std::vector<std::string>& names) {
    tev::Pack from = openContainer(o.source);
    tev::Pack to = openContainer(o.destination);
    if (!from || !to) return "a container does not read";
    for (const std::string& name : names) {
        const auto size = static_cast<unsigned int>(name.size());
        const tev::Record a(extractTEVDataFromFilebyName(from.get(), name.c_str(), size));
        const tev::Record b(extractTEVDataFromFilebyName(to.get(), name.c_str(), size));
        if (!a || !b || a->data_type != b->data_type || a->data_length != b->data_length ||
            std::memcmp(a->data, b->data, a->data_length) != 0) {
            return "record \"" + printable(name) + "\" did not arrive whole";
        }
    }
    return std::nullopt;
}

// The source's record names, in directory order.
std::vector<std::string> recordNames(_TEV_info_pack* pack) {
    std::vector<std::string> names;
    for (uint32_t i = 0; i < GetTevCount(pack); ++i) names.push_back(recordName(pack, i));
    return names;
}

int runRaw(const Options& o, const FileFacts& source, const FileFacts& destination) {
    if (destination.size == 0) return fail(o.destination, "the destination is empty; records are kept behind media data");
    if (isBoxedMedia(o.destination)) {
        return fail(o.destination, "a raw merge into MP4 or HEIC would leave the container outside a box");
    }
    tev::Pack pack = requireContainer(o.source, source);
    if (!pack) return kExitFailed;
    const std::vector<std::string> names = recordNames(pack.get());
    const auto merge = [&] {
        tev::OwnedFile out(std::fopen(o.destination.c_str(), "r+b"));
        if (!out) return fail(o.destination, "cannot open for writing");
        const uint32_t merged = copyMergeTEVData(pack->info, out.get());
        if (std::fclose(out.release()) != 0 || merged != 1) {
            return fail(o.destination, "could not append the container");
        }
        return static_cast<int>(kExitOk);
    };
    return guardedCommandWith(o.destination, merge, [&] { return arrivedWhole(o, names); });
}

// The type and name copies fill only a destination without records.
int runSelective(const Options& o, const FileFacts& source, const FileFacts& destination) {
    if (!signatureHasContainer(source.signature)) return fail(o.source, "no container");
    // The library's name copy answers 1 and copies nothing from such a source.
    if (o.name && source.signature == SIGNATURE_VOXA_TEV) {
        return fail(o.source, "carries sound behind its records; --name copies only from a file without sound");
    }
    if (destination.signature != SIGNATURE_DETECTION_FAIL) {
        return fail(o.destination, "already holds records or sound; --type and --name copy only into plain media");
    }
    tev::Pack pack = requireContainer(o.source, source);
    if (!pack) return kExitFailed;
    std::optional<std::string> found;
    for (uint32_t i = 0; i < GetTevCount(pack.get()) && !found; ++i) {
        if (o.type ? recordType(pack.get(), i) == *o.type : recordName(pack.get(), i) == *o.name) {
            found = recordName(pack.get(), i);
        }
    }
    pack.reset();
    if (!found) {
        return fail(o.source, o.type ? "no record of type " + std::to_string(*o.type)
                                     : "no record named \"" + printable(*o.name) + "\"");
    }
    const auto copy = [&] {
        const uint32_t copied =
            o.type ? copyTEVDataType(o.source.c_str(), o.destination.c_str(), *o.type)
                   : copyTEVDataKeyName(o.source.c_str(), o.destination.c_str(), o.name->c_str());
        if (copied != 1) return fail(o.destination, "could not copy the records");
        return static_cast<int>(kExitOk);
    };
    // The first record of the type or name is the one that goes.
    return guardedCommandWith(o.destination, copy, [&] { return arrivedWhole(o, {*found}); });
}

int runAll(const Options& o, const FileFacts& source) {
    if (source.signature == SIGNATURE_DETECTION_FAIL) return fail(o.source, "no records to copy");
    if (hasSound(source.signature) && isBoxedMedia(o.destination)) {
        return fail(o.destination, "the source carries sound, which MP4 and HEIC files cannot");
    }
    std::vector<std::string> expected;
    std::vector<std::string> whole;  // the records a copy carries byte for byte
    if (signatureHasContainer(source.signature)) {
        tev::Pack pack = requireContainer(o.source, source);
        if (!pack) return kExitFailed;
        expected = recordNames(pack.get());
        for (uint32_t i = 0; i < GetTevCount(pack.get()); ++i) {
            if (recordType(pack.get(), i) != TEV_USER_DEFINED_DATA &&
                recordName(pack.get(), i) != tev::voxa::kMetaRecordName) {
                whole.push_back(recordName(pack.get(), i));
            }
        }
    }
    const auto copy = [&] {
        if (copyTEVData(o.source.c_str(), o.destination.c_str()) != 1) {
            return fail(o.destination, "could not copy the records");
        }
        return static_cast<int>(kExitOk);
    };
    if (const int status = guardedCommandWith(o.destination, copy, [&] { return arrivedWhole(o, whole); });
        status != kExitOk) {
        return status;
    }
    // The library answers with the last record's save; say which ones did
    // not arrive (user-defined records need the sub-information that a copy
    // leaves behind).
    tev::Pack copied = openContainer(o.destination);
    for (const std::string& name : expected) {
        bool present = false;
        for (uint32_t i = 0; copied && i < GetTevCount(copied.get()) && !present; ++i) {
            present = recordName(copied.get(), i) == name;
        }
        if (!present) return fail(o.destination, "record \"" + printable(name) + "\" was not copied");
    }
    return kExitOk;
}

int run(const Options& o) {
    const std::optional<FileFacts> source = inspectFile(o.source, true);
    if (!source) return kExitFailed;
    const std::optional<FileFacts> destination = inspectFile(o.destination, true);
    if (!destination) return kExitFailed;
    if (o.raw) return runRaw(o, *source, *destination);
    if (o.type || o.name) return runSelective(o, *source, *destination);
    return runAll(o, *source);
}

}  // namespace

Command addCopyCommand(CLI::App& parent) {
    auto o = std::make_shared<Options>();
    CLI::App* app = parent.add_subcommand(
        "copy",
        "Copy records from SRC into DST (without their sub-information). The source is opened for writing "
        "too, and a source holding a bare sound is converted into records in place first.");
    app->add_option("SRC", o->source, "File whose records are copied (opened for writing)")->required();
    app->add_option("DST", o->destination, "File that receives them")->required();
    CLI::App* what = app->add_option_group("what", "What to copy (default: every record and sound)");
    what->add_option("--type", o->type, "Only the records of this data type, into plain media")
        ->check(CLI::Range(0u, kMaxDataType));
    what->add_option("--name", o->name, "Only the first record of this name, into plain media");
    what->add_flag("--raw", o->raw, "Append the source's container bytes unchanged (not into MP4/HEIC)");
    what->require_option(0, 1);
    // A source holding a bare sound is edited too: the library converts it
    // in place first.
    return {app, [o] {
                if (getSignature(o->source.c_str()) != SIGNATURE_VOXA) return run(*o);
                return guardedCommand(o->source, [o] { return run(*o); });
            }};
}

}  // namespace tevcli
