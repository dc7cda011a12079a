// `tev sound …`: the sounds an image carries, either as a bare Voxa block
// behind the media or as EchoFrame records listed by "EchoFrame_Meta_Info"
// in the container with a Voxa block behind it. Every edit is checked here
// first, so that a refused one leaves the file byte for byte as it was.
#include <nlohmann/json.hpp>

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <map>

#include "cli.h"
#include "echo/meta_list.h"
#include "edit_guard.h"
#include "json_out.h"

namespace tevcli {
namespace {

using tev::voxa::kMetaRecordName;
// Records, meta list, directory and Voxa block added around a sound's bytes
// by any sound edit, with room to spare.
constexpr uint64_t kSoundEditOverhead = 4096;

struct Sound {
    std::string name;
    int64_t position = 0;  // of the sound's bytes, from the start of the file
    int64_t length = 0;
    bool inBlock = false;  // the Voxa block points at this one
};

struct SoundFacts {
    uint32_t signature = SIGNATURE_ERROR;
    int64_t size = 0;
    bool bare = false;  // a Voxa block with no container
    std::vector<Sound> sounds;
};

// The first sound of the Voxa block: start and end, if it lists one.
std::optional<std::pair<uint32_t, uint32_t>> blockSound(const std::string& path) {
    tev::Voxa voxa(_checkAudioInImageFile(path.c_str()));
    if (!voxa || voxa->sound_count == 0 || voxa->sound_table == nullptr) return std::nullopt;
    return std::make_pair(voxa->sound_table[0], voxa->sound_table[1]);
}

// The records named by the meta list, in list order. Nullopt (reported)
// when the container or the list cannot be read.
std::optional<std::vector<Sound>> listedSounds(const std::string& path, const FileFacts& facts) {
    tev::Pack pack = requireContainer(path, facts);
    if (!pack) return std::nullopt;
    char** names = nullptr;
    uint32_t count = 0;
    getEchoFrameNameList(pack.get(), &names, &count);
    const tev::NameList owned(names, count);
    const auto block = blockSound(path);
    std::vector<Sound> sounds;
    for (uint32_t i = 0; i < count && names != nullptr; ++i) {
        const tev::Offset where(getTEVInFileByName(pack.get(), names[i]));
        if (!where) {
            fail(path, "the sound list names \"" + printable(names[i]) + "\", which is not in the container");
            return std::nullopt;
        }
        Sound s{names[i], where->position, where->length, false};
        s.inBlock = block && block->first == s.position;
        sounds.push_back(std::move(s));
    }
    return sounds;
}

std::optional<SoundFacts> describeSounds(const std::string& path, bool forWriting) {
    const std::optional<FileFacts> facts = inspectFile(path, forWriting);
    if (!facts) return std::nullopt;
    SoundFacts result;
    result.signature = facts->signature;
    result.size = facts->size;
    if (facts->signature == SIGNATURE_VOXA) {
        result.bare = true;
        const auto block = blockSound(path);
        if (!block) {
            fail(path, "the Voxa sound block is damaged or lists no sound");
            return std::nullopt;
        }
        // A bare sound has no name of its own; it is shown under the name
        // its record gets when the sound is converted.
        result.sounds.push_back(
            {tev::voxa::kFirstSoundName, block->first, int64_t{block->second} - block->first, true});
    } else if (signatureHasContainer(facts->signature)) {
        // Deleting the sound the Voxa block points at drops the block, so a
        // container without one may still list sounds.
        std::optional<std::vector<Sound>> sounds = listedSounds(path, *facts);
        if (!sounds) return std::nullopt;
        result.sounds = std::move(*sounds);
    }
    return result;
}

const Sound* findSound(const SoundFacts& facts, const std::string& name) {
    for (const Sound& s : facts.sounds) {
        if (s.name == name) return &s;
    }
    return nullptr;
}

// Refusals shared by every sound edit. A sound saved into a container grows
// it under the library's container bound, one saved behind plain media or a
// bare sound under its sound-block bound.
std::optional<std::string> refuseSoundEdit(const std::string& path, const SoundFacts& facts, uint64_t adding) {
    if (facts.size == 0) return "the file is empty; sounds are kept behind image data";
    if (isBoxedMedia(path)) return "MP4 and HEIC files cannot carry sound";
    const uint64_t bound = signatureHasContainer(facts.signature) ? tev::kContainerSizeBound : tev::kVoxaSaveBound;
    if (static_cast<uint64_t>(facts.size) + adding + kSoundEditOverhead >= bound) {
        return "no room: sound positions must stay below 4 GiB";
    }
    return std::nullopt;
}

int unknownSound(const std::string& path, const std::string& name) {
    return fail(path, "no sound named \"" + printable(name) + "\"");
}

int runList(const std::string& path, bool json) {
    const std::optional<SoundFacts> facts = describeSounds(path, false);
    if (!facts) return kExitFailed;
    if (json) {
        nlohmann::ordered_json sounds = nlohmann::ordered_json::array();
        for (const Sound& s : facts->sounds) {
            sounds.push_back({{"name", s.name}, {"position", s.position}, {"length", s.length},
                              {"in_voxa_block", s.inBlock}});
        }
        return printJson({{"file", path}, {"signature", facts->signature},
                          {"ends_with", signatureName(facts->signature)}, {"bare", facts->bare},
                          {"sounds", sounds}});
    }
    FILE* o = out();
    for (size_t i = 0; i < facts->sounds.size(); ++i) {
        const Sound& s = facts->sounds[i];
        std::fprintf(o, "%zu\t%s\t%" PRId64 "\t%" PRId64 "%s\n", i, printable(s.name).c_str(), s.position,
                     s.length, s.inBlock ? (facts->bare ? "\tbare sound" : "\tvoxa block") : "");
    }
    return kExitOk;
}

}  // namespace

std::optional<SoundSet> soundSet(const std::string& path) {
    std::optional<SoundFacts> facts = describeSounds(path, false);
    if (!facts) return std::nullopt;
    SoundSet set;
    for (const Sound& s : facts->sounds) set[s.name] = s.length;
    return set;
}

namespace {

// The names of the records that are neither sounds nor the sound list.
std::vector<std::string> otherRecords(const std::string& path, const SoundSet& sounds) {
    std::vector<std::string> names;
    tev::Pack pack = signatureHasContainer(getSignature(path.c_str())) ? openContainer(path) : nullptr;
    for (uint32_t i = 0; pack && i < GetTevCount(pack.get()); ++i) {
        std::string name = recordName(pack.get(), i);
        if (name != kMetaRecordName && sounds.count(name) == 0) names.push_back(std::move(name));
    }
    return names;
}

// A sound edit under an undo file: afterwards the file lists exactly
// `expected(before)` and keeps its other records;
// `also` adds a check of its own.
int guardedSoundEdit(const std::string& path, const std::function<int()>& edit,
                     const std::function<SoundSet(SoundSet)>& expected,
                     const EditCheck& also = [] { return std::optional<std::string>(); }) {
    const std::optional<SoundSet> before = soundSet(path);
    if (!before) return edit();  // the edit reports what it cannot read
    const std::vector<std::string> others = otherRecords(path, *before);
    const auto check = [&]() -> std::optional<std::string> {
        const std::optional<SoundSet> after = soundSet(path);
        if (!after || *after != expected(*before)) return "the sounds listed are not the ones asked for";
        if (otherRecords(path, *after) != others) return "the other records are not all there";
        return also();
    };
    return guardedCommandWith(path, edit, check);
}

// The file's sound list with `name` added or taken out (the library's list
// builders); empty when the list cannot be read.
std::vector<char> changedSoundList(const std::string& path, const std::string& name, bool add) {
    tev::Pack pack = openContainer(path);
    if (!pack) return {};
    const uint32_t metaIndex = _getIndexOfName(pack.get(), kMetaRecordName);
    const tev::Offset meta(getTEVInFileByName(pack.get(), kMetaRecordName));
    if (!meta || metaIndex >= GetTevCount(pack.get())) return {};
    const uint32_t nameLength = static_cast<uint32_t>(name.size());
    std::vector<char> payload(static_cast<size_t>(meta->length) + (add ? sizeof(uint32_t) + name.size() : 0));
    payload.resize(add ? makeAddVoxaHeader(payload.data(), pack->info, metaIndex, name.data(), nameLength)
                       : makeMinusVoxaHeader(payload.data(), pack->info, metaIndex, name.c_str(), nameLength));
    return payload;
}

bool saveSoundList(const std::string& path, const std::vector<char>& payload) {
    return !payload.empty() &&
           saveTEVDataToFile(path.c_str(), kMetaRecordName, tev::voxa::kMetaRecordNameLength, nullptr, 0,
                             reinterpret_cast<const unsigned char*>(payload.data()),
                             static_cast<uint32_t>(payload.size()), tev::voxa::kMetaType, 1) == 1;
}

bool hasSoundList(const std::string& path) {
    tev::Pack pack = openContainer(path);
    return pack && _getIndexOfName(pack.get(), kMetaRecordName) < GetTevCount(pack.get());
}

// A container without a Voxa block that already lists sounds: the library's
// sound save would start a second list naming the new sound alone, so the
// record is saved by name and the list saved again with the name added.
bool addListedSound(const std::string& path, const std::vector<Sound>& sounds, const std::string& name,
                    const FileBytes& data) {
    if (saveTEVDataToFile(path.c_str(), name.data(), static_cast<uint32_t>(name.size()), nullptr, 0, data.data(),
                          static_cast<uint32_t>(data.size()), TEV_ECHOFRAME_SOUND_DATA, 1) != 1) {
        return false;
    }
    for (const Sound& s : sounds) {
        if (s.name == name) return true;
    }
    return saveSoundList(path, changedSoundList(path, name, true));
}

int runAdd(const std::string& path, const std::string& name, const std::string& dataFile) {
    const std::optional<SoundFacts> facts = describeSounds(path, true);
    if (!facts) return kExitFailed;
    std::optional<FileBytes> data = readWholeFile(dataFile, tev::kTooBigDataLength, "data file");
    if (!data) return kExitFailed;
    if (data->empty()) return fail(dataFile, "the sound is empty");
    // The sound goes in once, plus one more copy of the old bare sound when
    // it is turned into a record first.
    uint64_t adding = data->size() + name.size();
    if (facts->bare) adding += static_cast<uint64_t>(facts->sounds.front().length);
    if (std::optional<std::string> why = refuseSoundEdit(path, *facts, adding)) return fail(path, *why);
    if (facts->signature == SIGNATURE_TEV && !requireContainer(path, {facts->size, facts->signature})) {
        return kExitFailed;
    }
    // The library takes the sound through a non-const pointer but only reads it.
    unsigned char* sound = const_cast<unsigned char*>(data->data());
    const bool keepList = facts->signature == SIGNATURE_TEV && hasSoundList(path);
    const auto save = [&] {
        const bool saved =
            keepList ? addListedSound(path, facts->sounds, name, *data)
                     : saveVoxaToImageFile(path.c_str(), sound, static_cast<uint32_t>(data->size()), name.data(),
                                           static_cast<uint32_t>(name.size())) == 1;
        if (!saved) {
            return fail(path, "could not save sound \"" + printable(name) + "\"");
        }
        return static_cast<int>(kExitOk);
    };
    const auto expected = [&](SoundSet set) {
        // A bare sound becomes the record "EchoFrame_000" first.
        set[name] = static_cast<int64_t>(data->size());
        return set;
    };
    const auto sameBytes = [&]() -> std::optional<std::string> {
        const std::optional<SoundFacts> after = describeSounds(path, false);
        const Sound* s = after ? findSound(*after, name) : nullptr;
        if (s == nullptr || !fileHolds(path, s->position, data->data(), data->size())) {
            return "the sound's bytes differ";
        }
        return std::nullopt;
    };
    return guardedSoundEdit(path, save, expected, sameBytes);
}

int writeSound(const std::string& path, const Sound& s, const std::string& output) {
    tev::OwnedFile in(std::fopen(path.c_str(), "rb"));
    if (!in) return fail(path, std::string("cannot open: ") + std::strerror(errno));
    std::vector<unsigned char> bytes(static_cast<size_t>(s.length));
    if (std::fseek(in.get(), static_cast<long>(s.position), SEEK_SET) != 0 ||
        std::fread(bytes.data(), 1, bytes.size(), in.get()) != bytes.size()) {
        return fail(path, "cannot read sound \"" + printable(s.name) + "\"");
    }
    if (output.empty() || output == "-") {
        return writeOut(bytes.data(), bytes.size()) ? int{kExitOk} : fail("<stdout>", "cannot write the output");
    }
    tev::OwnedFile fp(std::fopen(output.c_str(), "wb"));
    if (!fp) return fail(output, std::string("cannot open for writing: ") + std::strerror(errno));
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), fp.get()) == bytes.size();
    if (!written || std::fclose(fp.release()) != 0) return fail(output, "cannot write the output");
    return kExitOk;
}

int runExtract(const std::string& path, const std::string& name, const std::string& output) {
    const std::optional<SoundFacts> facts = describeSounds(path, false);
    if (!facts) return kExitFailed;
    const Sound* sound = findSound(*facts, name);
    if (sound == nullptr) return unknownSound(path, name);
    return writeSound(path, *sound, output);
}

bool deleteRecord(const std::string& path, const std::string& name) {
    return deleteTEVDataFromFile(path.c_str(), name.data(), static_cast<uint32_t>(name.size())) == 1;
}

// A container without a Voxa block: the library's sound deletes want the
// block, so the record goes by name and the list is saved without it.
bool deleteListedSound(const std::string& path, const SoundFacts& facts, const std::string& name) {
    if (facts.sounds.size() == 1) return deleteRecord(path, name) && deleteRecord(path, kMetaRecordName);
    const std::vector<char> payload = changedSoundList(path, name, false);
    return !payload.empty() && deleteRecord(path, name) && saveSoundList(path, payload);
}

uint32_t deleteSound(const std::string& path, const SoundFacts& facts, const std::string& name) {
    if (facts.bare) return deleteAVoxa(path.c_str());
    if (facts.signature == SIGNATURE_VOXA_TEV) return deleteVoxaFromImageFile(path.c_str(), name.c_str());
    return deleteListedSound(path, facts, name) ? 1 : 0;
}

uint32_t clearSounds(const std::string& path, const SoundFacts& facts) {
    if (facts.bare) return deleteAVoxa(path.c_str());
    if (facts.signature == SIGNATURE_VOXA_TEV) return deleteAllVoxaFromImageFile(path.c_str());
    for (const Sound& s : facts.sounds) {
        if (!deleteRecord(path, s.name)) return 0;
    }
    return deleteRecord(path, kMetaRecordName) ? 1 : 0;
}

int runDelete(const std::string& path, const std::string& name) {
    const std::optional<SoundFacts> facts = describeSounds(path, true);
    if (!facts) return kExitFailed;
    if (findSound(*facts, name) == nullptr) return unknownSound(path, name);
    if (isBoxedMedia(path)) return fail(path, "MP4 and HEIC files cannot carry sound");
    const auto remove = [&] {
        if (deleteSound(path, *facts, name) != 1) {
            return fail(path, "could not delete sound \"" + printable(name) + "\"");
        }
        return static_cast<int>(kExitOk);
    };
    return guardedSoundEdit(path, remove, [&](SoundSet set) {
        set.erase(name);
        return set;
    });
}

int runClear(const std::string& path) {
    const std::optional<SoundFacts> facts = describeSounds(path, true);
    if (!facts) return kExitFailed;
    if (facts->sounds.empty()) {
        std::fprintf(stderr, "tev: %s: no sound to remove\n", path.c_str());
        return kExitOk;
    }
    if (isBoxedMedia(path)) return fail(path, "MP4 and HEIC files cannot carry sound");
    const auto clear = [&] {
        if (clearSounds(path, *facts) != 1) return fail(path, "could not remove the sounds");
        return static_cast<int>(kExitOk);
    };
    return guardedSoundEdit(path, clear, [](const SoundSet&) { return SoundSet{}; });
}

int runConvert(const std::string& path) {
    const std::optional<SoundFacts> facts = describeSounds(path, true);
    if (!facts) return kExitFailed;
    if (!facts->bare) return fail(path, "no bare sound to convert (the file holds no Voxa-only sound)");
    if (std::optional<std::string> why = refuseSoundEdit(path, *facts, 0)) return fail(path, *why);
    const auto convert = [&] {
        tev::OwnedFile fp(std::fopen(path.c_str(), "r+b"));
        if (!fp) return fail(path, std::string("cannot open for writing: ") + std::strerror(errno));
        TevStreamFile stream(fp.get());
        _voxa_info_struct* voxa = checkVoxaInStream(&stream);
        const uint32_t converted = voxa != nullptr ? convertVoxaToEchoFrame(&voxa) : 0;
        if (voxa != nullptr) DestroyVoxaStream(voxa);
        if (std::fclose(fp.release()) != 0 || converted != 1) return fail(path, "could not convert the sound");
        return static_cast<int>(kExitOk);
    };
    const auto converted = [&]() -> std::optional<std::string> {
        if (getSignature(path.c_str()) == SIGNATURE_VOXA) return "the sound is still a bare one";
        return std::nullopt;
    };
    return guardedSoundEdit(path, convert, [](SoundSet set) { return set; }, converted);
}

}  // namespace

Command addSoundCommand(CLI::App& parent) {
    struct Options {
        std::string file;
        std::string name;
        std::string dataFile;
        std::string output;
    };
    auto o = std::make_shared<Options>();
    CLI::App* app = parent.add_subcommand(
        "sound", "Sounds kept with an image: a bare Voxa sound, or EchoFrame records and their list");
    app->require_subcommand(1);
    std::vector<std::pair<CLI::App*, std::function<int()>>> actions;

    CLI::App* list = app->add_subcommand("list", "The sounds in list order: name, position, length");
    list->add_option("FILE", o->file, "Image file")->required();
    actions.emplace_back(list, [o] { return runList(o->file, jsonMode()); });

    CLI::App* add = app->add_subcommand("add", "Store a named sound (a sound of that name is replaced)");
    add->add_option("FILE", o->file, "Image file (JPEG)")->required();
    add->add_option("NAME", o->name, "Sound name (1 to 1024 bytes)")->required()->check(nameLength());
    add->add_option("--data-file", o->dataFile, "File whose content is the sound")->required();
    actions.emplace_back(add, [o] { return runAdd(o->file, o->name, o->dataFile); });

    CLI::App* extract = app->add_subcommand("extract", "Write a sound's bytes out (a bare sound is EchoFrame_000)");
    extract->add_option("FILE", o->file, "Image file")->required();
    extract->add_option("NAME", o->name, "Sound name")->required()->check(nameLength());
    extract->add_option("-o,--output", o->output, "Output file (default: standard output)");
    actions.emplace_back(extract, [o] { return runExtract(o->file, o->name, o->output); });

    CLI::App* del = app->add_subcommand("delete", "Remove one sound and its name from the list");
    del->add_option("FILE", o->file, "Image file")->required();
    del->add_option("NAME", o->name, "Sound name")->required()->check(nameLength());
    actions.emplace_back(del, [o] { return runDelete(o->file, o->name); });

    CLI::App* clear = app->add_subcommand("clear", "Remove every sound; other records stay");
    clear->add_option("FILE", o->file, "Image file")->required();
    actions.emplace_back(clear, [o] { return runClear(o->file); });

    CLI::App* convert = app->add_subcommand("convert", "Turn a bare Voxa sound into the EchoFrame_000 record");
    convert->add_option("FILE", o->file, "Image file")->required();
    actions.emplace_back(convert, [o] { return runConvert(o->file); });

    return {app, [actions] {
                for (const auto& [sub, run] : actions) {
                    if (sub->parsed()) return run();
                }
                return int{kExitUsage};
            }};
}

}  // namespace tevcli
