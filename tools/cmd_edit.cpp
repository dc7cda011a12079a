// The editing commands: `tev add`, `tev delete`, `tev clear`. Each checks
// everything it can before the library touches the file, so that a refused
// edit leaves the file byte for byte as it was.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <algorithm>
#include <map>

#include "cli.h"
#include "edit_guard.h"

namespace tevcli {
namespace {

struct AddOptions {
    std::string file;
    std::string name;
    std::string dataFile;
    std::optional<std::string> dataText;
    std::string subInfoFile;
    std::optional<uint32_t> type;  // default: 1, or the replaced record's type
    bool replace = false;
    bool force = false;
};

constexpr uint32_t kDefaultType = 1;

// Cuts every record off. The library's answer does not say whether the cut
// itself went through, so the file is asked afterwards: no container may be
// left at its end.
bool cutAllRecords(const std::string& file) {
    if (deleteAllDataFromFile(file.c_str()) != 1) return false;
    return !signatureHasContainer(getSignature(file.c_str()));
}

// What a replaced record keeps unless the command gives it anew.
struct Kept {
    uint32_t type = kDefaultType;
    FileBytes subInfo;
};

std::optional<Kept> keptFromRecord(_TEV_info_pack* pack, const std::string& name) {
    const tev::Record unit(extractTEVDataFromFilebyName(pack, name.c_str(), static_cast<unsigned int>(name.size())));
    if (!unit) return std::nullopt;
    Kept kept;
    kept.type = unit->data_type;
    if (unit->sub_info != nullptr) {
        kept.subInfo = FileBytes(std::vector<unsigned char>(unit->sub_info, unit->sub_info + unit->sub_info_length));
    }
    return kept;
}

bool hasRecord(_TEV_info_pack* pack, const std::string& name) {
    const uint32_t count = GetTevCount(pack);
    for (uint32_t i = 0; i < count; ++i) {
        if (recordName(pack, i) == name) return true;
    }
    return false;
}

std::optional<FileBytes> loadData(const AddOptions& o) {
    if (o.dataText) return FileBytes(std::vector<unsigned char>(o.dataText->begin(), o.dataText->end()));
    return readWholeFile(o.dataFile, tev::kTooBigDataLength, "data file");
}

// Refusals that need only the arguments and the file's facts.
std::optional<std::string> refuseArguments(const FileFacts& facts, size_t dataLength, uint32_t type,
                                           size_t subLength) {
    if (facts.size == 0) return "the file is empty; records are kept behind media data";
    if (dataLength == 0) return "the data is empty";
    if (type == TEV_USER_DEFINED_DATA && subLength == 0) {
        return "type 0 (user-defined) needs sub-information (--sub-info-file)";
    }
    if (facts.signature == SIGNATURE_ERROR) return "cannot read the end of the file";
    return std::nullopt;
}

// Refusals that depend on the container already in the file. Data and
// sub-information were read below the library's data limit, so their lengths
// fit 32 bits.
std::optional<std::string> refuseForContainer(const AddOptions& o, _TEV_info_pack* pack, size_t dataLength,
                                              size_t subLength) {
    if (hasRecord(pack, o.name) && !o.replace) {
        return "record \"" + printable(o.name) + "\" exists (use --replace to overwrite it)";
    }
    if (checkTEVInfoForSaving(pack->info, static_cast<uint32_t>(dataLength), static_cast<uint32_t>(subLength),
                              static_cast<uint32_t>(o.name.size())) != LUMET_TEV_TRUE) {
        return "the container would grow beyond its size limit";
    }
    return std::nullopt;
}

int runAdd(const AddOptions& o) {
    if (o.type == TEV_USER_DEFINED_DATA && o.subInfoFile.empty()) {
        return usage("type 0 (user-defined) needs sub-information (--sub-info-file)");
    }
    if (o.dataText && o.dataText->empty()) return usage("--data is empty");
    const std::optional<FileFacts> facts = inspectFile(o.file, true);
    if (!facts) return kExitFailed;
    if (!o.force) {
        if (std::optional<std::string> why = damagedTrailer(o.file, *facts);
            why && !signatureHasContainer(facts->signature)) {
            return fail(o.file, *why + "; adding would start a second container (use --force to add anyway)");
        }
    }
    const std::optional<FileBytes> data = loadData(o);
    if (!data) return kExitFailed;
    Kept kept;
    // Plain media is only appended to; anything else is saved from the first
    // record or sound on (narrowed below for a plain container).
    std::vector<Region> regions;
    if (facts->signature != SIGNATURE_DETECTION_FAIL) regions = appendedRegions(o.file, *facts);
    // MP4 and HEIC media get their records in a "tevd" box, unless a
    // container outside one is already there.
    bool boxed = facts->signature == SIGNATURE_DETECTION_FAIL && isBoxedMedia(o.file);
    if (!o.subInfoFile.empty()) {
        std::optional<FileBytes> loaded =
            readWholeFile(o.subInfoFile, tev::kTooBigDataLength, "sub-information file");
        if (!loaded) return kExitFailed;
        if (loaded->empty()) return fail(o.subInfoFile, "the sub-information file is empty");
        kept.subInfo = std::move(*loaded);
    }
    if (signatureHasContainer(facts->signature)) {
        tev::Pack pack = requireContainer(o.file, *facts);
        if (!pack) return kExitFailed;
        if (o.replace && (!o.type || o.subInfoFile.empty())) {
            if (std::optional<Kept> old = keptFromRecord(pack.get(), o.name)) {
                if (!o.type) kept.type = old->type;
                if (o.subInfoFile.empty()) kept.subInfo = std::move(old->subInfo);
            }
        }
        if (facts->signature == SIGNATURE_TEV) regions = recordRegions(pack.get(), {o.name});
        boxed = checkSignatureMP4Tag(pack->info) == LUMET_TEV_TRUE;
        if (std::optional<std::string> why =
                refuseForContainer(o, pack.get(), data->size(), kept.subInfo.size())) {
            return fail(o.file, *why);
        }
    }
    if (o.type) kept.type = *o.type;
    const FileBytes& sub = kept.subInfo;
    if (std::optional<std::string> why = refuseArguments(*facts, data->size(), kept.type, sub.size())) {
        return fail(o.file, *why);
    }
    const auto save = [&] {
        const uint32_t saved = saveTEVDataToFile(
            o.file.c_str(), o.name.data(), static_cast<uint32_t>(o.name.size()),
            sub.empty() ? nullptr : sub.data(), static_cast<uint32_t>(sub.size()), data->data(),
            static_cast<uint32_t>(data->size()), kept.type, o.replace ? 1u : 0u);
        if (saved != 1) return fail(o.file, "could not save record \"" + printable(o.name) + "\"");
        return static_cast<int>(kExitOk);
    };
    // An image with sound keeps its sounds (a bare one becomes a record).
    std::optional<SoundSet> sounds;
    if (facts->signature == SIGNATURE_VOXA || facts->signature == SIGNATURE_VOXA_TEV) {
        sounds = soundSet(o.file);
        if (!sounds) return kExitFailed;
        if (sounds->count(o.name) != 0) (*sounds)[o.name] = static_cast<int64_t>(data->size());
    }
    const auto check = [&]() -> std::optional<std::string> {
        if (sounds && soundSet(o.file) != sounds) return "the sounds are not all there";
        return recordHolds(o.file, o.name, kept.type, sub.data(), sub.size(), data->data(), data->size(), boxed);
    };
    return guardedEdit(o.file, regions, save, check);
}

// Every requested name must match a record (a name given twice needs two
// records of that name) before anything is deleted.
std::optional<std::string> missingName(_TEV_info_pack* pack, const std::vector<std::string>& names) {
    std::map<std::string, int> available;
    const uint32_t count = GetTevCount(pack);
    for (uint32_t i = 0; i < count; ++i) ++available[recordName(pack, i)];
    for (const std::string& name : names) {
        if (available[name]-- <= 0) return name;
    }
    return std::nullopt;
}

// After deleting `names` from a container that held `before`: the others,
// in their order, and nothing else.
std::optional<std::string> deletedExactly(const std::string& file, std::vector<std::string> before,
                                          const std::vector<std::string>& names) {
    for (const std::string& name : names) before.erase(std::find(before.begin(), before.end(), name));
    std::vector<std::string> after;
    if (tev::Pack pack = openContainer(file)) {
        for (uint32_t i = 0; i < GetTevCount(pack.get()); ++i) after.push_back(recordName(pack.get(), i));
    }
    if (after != before) return "the records left are not the ones kept";
    return std::nullopt;
}

int runDelete(const std::string& file, const std::vector<std::string>& names) {
    const std::optional<FileFacts> facts = inspectFile(file, true);
    if (!facts) return kExitFailed;
    std::vector<std::string> before;
    std::vector<Region> regions;
    {
        tev::Pack pack = requireContainer(file, *facts);
        if (!pack) return kExitFailed;
        if (std::optional<std::string> missing = missingName(pack.get(), names)) {
            return fail(file, "no record named \"" + printable(*missing) + "\"");
        }
        for (uint32_t i = 0; i < GetTevCount(pack.get()); ++i) before.push_back(recordName(pack.get(), i));
        regions = facts->signature == SIGNATURE_TEV ? recordRegions(pack.get(), names)
                                                     : appendedRegions(file, *facts);
    }
    // Every record of a plain container goes: that is one cut, which either
    // happens or not (as in `clear`), and nothing needs saving.
    if (facts->signature == SIGNATURE_TEV && names.size() == before.size()) {
        if (!cutAllRecords(file)) return fail(file, "could not delete the records");
        return kExitOk;
    }
    const auto remove = [&] {
        for (const std::string& name : names) {
            if (deleteTEVDataFromFile(file.c_str(), name.data(), static_cast<uint32_t>(name.size())) != 1) {
                return fail(file, "could not delete record \"" + printable(name) + "\"");
            }
        }
        return static_cast<int>(kExitOk);
    };
    return guardedEdit(file, regions, remove, [&] { return deletedExactly(file, before, names); });
}

int nothingToClear(const char* text) {
    if (!jsonMode()) std::fprintf(out(), "%s\n", text);
    return kExitOk;
}

// A container that does not parse, cut off behind the media's own end.
int cutBackToMedia(const std::string& file, const FileFacts& facts) {
    const std::optional<int64_t> end = mediaEnd(file);
    if (!end) return fail(file, "cannot find where the media ends; the file is left as it is");
    if (*end >= facts.size) return nothingToClear("the media runs to the end of the file; nothing to cut");
    if (truncate(file.c_str(), *end) != 0) return fail(file, std::string("cannot cut the file: ") + std::strerror(errno));
    return kExitOk;
}

int runClear(const std::string& file, bool force) {
    const std::optional<FileFacts> facts = inspectFile(file, true);
    if (!facts) return kExitFailed;
    if (std::optional<std::string> damage = damagedTrailer(file, *facts)) {
        if (force) return cutBackToMedia(file, *facts);
        return fail(file, *damage + " (use --force to cut the file back to its media)");
    }
    if (facts->signature == SIGNATURE_DETECTION_FAIL) return nothingToClear("nothing to clear");
    const auto clear = [&] {
        if (!cutAllRecords(file)) return fail(file, "could not remove the records");
        return static_cast<int>(kExitOk);
    };
    // A plain container goes with one cut, which either happens or not.
    if (facts->signature == SIGNATURE_TEV) return clear();
    const std::vector<Region> regions = appendedRegions(file, *facts);
    const auto check = [&]() -> std::optional<std::string> {
        if (signatureHasContainer(getSignature(file.c_str()))) return "a container is still there";
        return std::nullopt;
    };
    return guardedEdit(file, regions, clear, check);
}

}  // namespace

Command addAddCommand(CLI::App& parent) {
    auto o = std::make_shared<AddOptions>();
    CLI::App* app = parent.add_subcommand("add", "Store a named record in the file");
    app->add_option("FILE", o->file, "Media file (JPEG, HEIC, MP4)")->required();
    app->add_option("NAME", o->name, "Record name (1 to 1024 bytes)")->required()->check(nameLength());
    CLI::App* source = app->add_option_group("data", "Where the data comes from (exactly one)");
    source->add_option("--data-file", o->dataFile, "File whose content is the data");
    source->add_option("--data", o->dataText, "The data as text");
    source->require_option(1);
    app->add_option("--type", o->type,
                    "Data type, 0 to 65535 (0 needs sub-information); default 1, or with --replace "
                    "the replaced record's type")
        ->check(CLI::Range(0u, kMaxDataType));
    app->add_option("--sub-info-file", o->subInfoFile,
                    "File whose content is the sub-information; with --replace the replaced record's "
                    "sub-information is kept when this is not given");
    app->add_flag("--replace", o->replace, "Replace a record of the same name");
    app->add_flag("--force", o->force,
                  "Add even when the end of the file looks like a damaged container");
    return {app, [o] { return runAdd(*o); }};
}

Command addDeleteCommand(CLI::App& parent) {
    struct Options {
        std::string file;
        std::vector<std::string> names;
    };
    auto o = std::make_shared<Options>();
    CLI::App* app = parent.add_subcommand("delete", "Delete named records");
    app->add_option("FILE", o->file, "Media file with a container")->required();
    app->add_option("NAME", o->names, "Record names")->required()->check(nameLength());
    return {app, [o] { return runDelete(o->file, o->names); }};
}

Command addClearCommand(CLI::App& parent) {
    struct Options {
        std::string file;
        bool force = false;
    };
    auto o = std::make_shared<Options>();
    CLI::App* app = parent.add_subcommand(
        "clear", "Remove every record, leaving the media alone (plain media: nothing to clear)");
    app->add_option("FILE", o->file, "Media file")->required();
    app->add_flag("--force", o->force,
                  "Cut a damaged container (one whose directory does not parse) back to the media");
    return {app, [o] { return runClear(o->file, o->force); }};
}

}  // namespace tevcli
