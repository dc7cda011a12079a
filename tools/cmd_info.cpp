// `tev info FILE`: what the file ends with, its MP4 framing, the container's
// directory summary and "tevd" box, and the Voxa sound table.
#include <nlohmann/json.hpp>

#include <cinttypes>

#include "cli.h"
#include "container/mp4_box.h"
#include "json_out.h"

namespace tevcli {
namespace {

struct BoxFacts {
    bool present = false;
    int64_t size = 0;      // the big-endian size field
    int64_t expected = 0;  // file size - data start
};

struct ContainerFacts {
    bool parsed = false;
    uint32_t version = 0;
    uint32_t records = 0;
    int64_t dataStart = 0;
    BoxFacts box;
};

struct Sound {
    uint32_t start;
    uint32_t end;
};

struct VoxaFacts {
    uint32_t version = 0;
    std::vector<Sound> sounds;
};

struct InfoReport {
    std::string file;
    FileFacts facts;
    bool mp4 = false;
    std::optional<ContainerFacts> container;
    std::optional<VoxaFacts> voxa;
    std::vector<std::string> names;     // the records' names, in directory order
    std::optional<std::string> warning; // the end looks like a damaged container
};

ContainerFacts describeContainer(const std::string& path, int64_t fileSize) {
    ContainerFacts facts;
    tev::Pack pack = openContainer(path);
    if (!pack) return facts;
    facts.parsed = true;
    facts.version = pack->info->version;
    facts.records = GetTevCount(pack.get());
    facts.dataStart = pack->info->data_start_position;
    facts.box.present = checkSignatureMP4Tag(pack->info) == 1;
    uint32_t size = 0;
    if (facts.box.present && tev::readBoxSize(*pack->info->Stream, facts.dataStart, &size)) {
        facts.box.size = size;
        facts.box.expected = fileSize - facts.dataStart;
    }
    return facts;
}

std::optional<VoxaFacts> describeVoxa(const std::string& path) {
    tev::Voxa voxa(_checkAudioInImageFile(path.c_str()));
    if (!voxa) return std::nullopt;
    VoxaFacts facts;
    facts.version = voxa->version;
    for (uint32_t i = 0; i < voxa->sound_count && voxa->sound_table != nullptr; ++i) {
        facts.sounds.push_back({voxa->sound_table[2 * i], voxa->sound_table[2 * i + 1]});
    }
    return facts;
}

InfoReport gather(const std::string& path, const FileFacts& facts) {
    InfoReport report;
    report.file = path;
    report.facts = facts;
    tev::OwnedFile fp(std::fopen(path.c_str(), "rb"));
    report.mp4 = fp && checkMP4Fp(fp.get()) == 1;
    if (signatureHasContainer(facts.signature)) report.container = describeContainer(path, facts.size);
    report.voxa = describeVoxa(path);
    if (report.container && report.container->parsed) {
        tev::Pack pack = openContainer(path);
        for (uint32_t i = 0; pack && i < GetTevCount(pack.get()); ++i) report.names.push_back(recordName(pack.get(), i));
    }
    report.warning = damagedTrailer(path, facts);
    return report;
}

nlohmann::ordered_json toJson(const InfoReport& r) {
    nlohmann::ordered_json j;
    j["file"] = r.file;
    j["size"] = r.facts.size;
    j["signature"] = r.facts.signature;
    j["ends_with"] = signatureName(r.facts.signature);
    j["mp4"] = r.mp4;
    j["container"] = nullptr;
    if (r.container) {
        const ContainerFacts& c = *r.container;
        nlohmann::ordered_json cj;
        cj["status"] = c.parsed ? "ok" : "damaged";
        if (c.parsed) {
            cj["version"] = c.version;
            cj["records"] = c.records;
            cj["data_start"] = c.dataStart;
            cj["boxed"] = c.box.present;
            cj["box_size"] = c.box.present ? nlohmann::ordered_json(c.box.size) : nullptr;
            cj["box_size_ok"] =
                c.box.present ? nlohmann::ordered_json(c.box.size == c.box.expected) : nullptr;
        }
        j["container"] = cj;
    }
    j["records"] = nlohmann::ordered_json::array();
    for (const std::string& name : r.names) j["records"].push_back(name);
    j["warning"] = r.warning ? nlohmann::ordered_json(*r.warning) : nlohmann::ordered_json(nullptr);
    j["voxa"] = nullptr;
    if (r.voxa) {
        nlohmann::ordered_json sounds = nlohmann::ordered_json::array();
        for (const Sound& s : r.voxa->sounds) sounds.push_back({{"start", s.start}, {"end", s.end}});
        j["voxa"] = {{"version", r.voxa->version}, {"sounds", sounds}};
    }
    return j;
}

void printContainer(FILE* o, const ContainerFacts& c) {
    if (!c.parsed) {
        std::fprintf(o, "container:  damaged (the directory does not parse)\n");
        return;
    }
    std::fprintf(o, "container:  version %u, %u record%s, data start %" PRId64 "\n", c.version,
                 c.records, c.records == 1 ? "" : "s", c.dataStart);
    if (!c.box.present) {
        std::fprintf(o, "mp4 box:    none\n");
    } else if (c.box.size == c.box.expected) {
        std::fprintf(o, "mp4 box:    \"tevd\", size %" PRId64 " (correct)\n", c.box.size);
    } else {
        std::fprintf(o, "mp4 box:    \"tevd\", size %" PRId64 " (wrong: %" PRId64 " expected)\n",
                     c.box.size, c.box.expected);
    }
}

void printText(const InfoReport& r) {
    FILE* o = out();
    if (r.warning) std::fprintf(stderr, "tev: warning: %s: %s\n", r.file.c_str(), r.warning->c_str());
    std::fprintf(o, "file:       %s\n", r.file.c_str());
    std::fprintf(o, "size:       %" PRId64 " bytes\n", r.facts.size);
    std::fprintf(o, "ends with:  %s (signature %u)\n", signatureName(r.facts.signature),
                 r.facts.signature);
    std::fprintf(o, "mp4:        %s\n", r.mp4 ? "yes" : "no");
    if (r.container) {
        printContainer(o, *r.container);
    } else {
        std::fprintf(o, "container:  none\n");
    }
    if (!r.voxa) {
        std::fprintf(o, "voxa:       none\n");
        return;
    }
    std::fprintf(o, "voxa:       version %u, %zu sound%s\n", r.voxa->version, r.voxa->sounds.size(),
                 r.voxa->sounds.size() == 1 ? "" : "s");
    for (size_t i = 0; i < r.voxa->sounds.size(); ++i) {
        const Sound& s = r.voxa->sounds[i];
        std::fprintf(o, "  sound %zu:  %u .. %u (%" PRId64 " bytes)\n", i, s.start, s.end,
                     int64_t{s.end} - int64_t{s.start});
    }
}

}  // namespace

Command addInfoCommand(CLI::App& parent) {
    struct Options {
        std::string file;
    };
    auto options = std::make_shared<Options>();
    CLI::App* app = parent.add_subcommand(
        "info", "Show what the file ends with, its container, \"tevd\" box and Voxa sounds");
    app->add_option("FILE", options->file, "Media file")->required();
    return {app, [options] {
                const std::optional<FileFacts> facts = inspectFile(options->file, false);
                if (!facts) return int{kExitFailed};
                const InfoReport report = gather(options->file, *facts);
                if (jsonMode()) return printJson(toJson(report));
                printText(report);
                return int{kExitOk};
            }};
}

}  // namespace tevcli
