// `tev cover FILE NEWMEDIA [--from-file]`: the media in front of FILE's
// records is replaced in place; records, sounds and the "tevd" box stay.
// The whole file is saved in the undo file first (the old media is part of
// what the edit writes over), and afterwards the file is read back: the new
// media in front, every record with its old type and bytes, the same sound.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "cli.h"
#include "container/format.h"
#include "edit_guard.h"

namespace tevcli {
namespace {

struct Options {
    std::string file;
    std::string media;
    bool fromFile = false;
};

struct Kept {
    std::string name;
    uint32_t type;
    std::vector<unsigned char> sub, data;
    bool operator==(const Kept& o) const {
        return name == o.name && type == o.type && sub == o.sub && data == o.data;
    }
};

// What must come through the edit: the records (fillers aside), the first
// sound's bytes and whether the records lie in a "tevd" box.
struct Snapshot {
    std::vector<Kept> records;
    std::vector<unsigned char> sound;
    bool boxed = false;
};

Snapshot snapshot(const std::string& path) {
    Snapshot s;
    if (tev::Pack pack = openContainer(path)) {
        s.boxed = checkSignatureMP4Tag(pack->info) == LUMET_TEV_TRUE;
        for (uint32_t i = 0; i < GetTevCount(pack.get()); ++i) {
            const std::string name = recordName(pack.get(), i);
            if (name == tev::kFillerName) continue;
            const tev::Record unit(extractTEVDataFromFilebyIndex(pack.get(), i));
            Kept k{name, recordType(pack.get(), i), {}, {}};
            if (unit && unit->sub_info != nullptr) k.sub.assign(unit->sub_info, unit->sub_info + unit->sub_info_length);
            if (unit && unit->data != nullptr) k.data.assign(unit->data, unit->data + unit->data_length);
            s.records.push_back(std::move(k));
        }
    }
    const uint32_t signature = getSignature(path.c_str());
    if (signature == SIGNATURE_VOXA || signature == SIGNATURE_VOXA_TEV) {
        uint32_t size = 0;
        unsigned char* bytes = GetAudioInVoxa(path.c_str(), &size);
        if (bytes != nullptr) s.sound.assign(bytes, bytes + size);
        std::free(bytes);
    }
    return s;
}

// Every record that was there still is, with its type and bytes (a bare
// sound's conversion adds its own records); the sound and the box stay.
std::optional<std::string> keptWhole(const std::string& path, const Snapshot& before, const FileBytes& media) {
    if (!fileHolds(path, 0, media.data(), media.size())) return "the new media is not in front";
    const Snapshot after = snapshot(path);
    for (const Kept& k : before.records) {
        if (std::find(after.records.begin(), after.records.end(), k) == after.records.end()) {
            return "record \"" + printable(k.name) + "\" did not stay whole";
        }
    }
    if (after.sound != before.sound) return "the sound did not stay whole";
    if (before.boxed && !after.boxed) return "the records left their \"tevd\" box";
    return std::nullopt;
}

int run(const Options& o) {
    const std::optional<FileFacts> facts = inspectFile(o.file, true);
    if (!facts) return kExitFailed;
    if (std::optional<std::string> damaged = damagedTrailer(o.file, *facts)) return fail(o.file, *damaged);
    std::optional<FileBytes> media;
    if (o.fromFile) {
        const std::optional<FileFacts> source = inspectFile(o.media, false);
        if (!source) return kExitFailed;
        const int64_t length = firstKeptByte(o.media);
        media = readWholeFile(o.media, tev::kTooBigDataLength - 1, "new media");
        if (!media) return kExitFailed;
        *media = FileBytes(std::vector<unsigned char>(media->data(), media->data() + length));
    } else {
        media = readWholeFile(o.media, tev::kTooBigDataLength - 1, "new media");
        if (!media) return kExitFailed;
    }
    if (media->empty()) return fail(o.media, "the new media is empty");
    const Snapshot before = snapshot(o.file);
    const auto replace = [&]() -> int {
        const uint32_t replaced = o.fromFile ? FastChangeOrgData(o.file.c_str(), o.media.c_str())
                                             : FastChangeCoverData(o.file.c_str(), media->data(),
                                                                   static_cast<uint32_t>(media->size()));
        if (replaced == LUMET_TEV_TRUE) return kExitOk;
        return fail(o.file, "the media was not replaced (another kind of media, media that ends like records, "
                            "or records that do not read)");
    };
    // The whole file is saved: the old media is part of what the edit writes over.
    return guardedEdit(o.file, {{0, facts->size}}, replace, [&] { return keptWhole(o.file, before, *media); },
                       static_cast<int64_t>(media->size()));
}

}  // namespace

Command addCoverCommand(CLI::App& parent) {
    auto o = std::make_shared<Options>();
    CLI::App* app = parent.add_subcommand(
        "cover",
        "Replace the media in front of FILE's records in place (image for image, MP4 for MP4); records, "
        "sounds and the \"tevd\" box stay as they are.");
    app->add_option("FILE", o->file, "File whose media is replaced")->required();
    app->add_option("NEWMEDIA", o->media, "The new media (a whole file)")->required();
    app->add_flag("--from-file", o->fromFile,
                  "Take only NEWMEDIA's media part: the bytes in front of its own records or sound");
    return {app, [o] { return run(*o); }};
}

}  // namespace tevcli
