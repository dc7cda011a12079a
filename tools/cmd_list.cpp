// `tev list FILE`: one row per record with its name, type, sub-information
// length and where its data lies in the file.
#include <nlohmann/json.hpp>

#include <cinttypes>

#include "cli.h"
#include "json_out.h"

namespace tevcli {
namespace {

struct Part {
    int64_t position = -1;  // -1: the record has no such part
    int64_t length = 0;
};

struct Row {
    uint32_t index;
    std::string name;
    uint32_t type;
    Part subInfo;
    Part data;
};

Part partOf(TevOffsetInfo* raw) {
    const tev::Offset offset(raw);
    if (!offset) return {};
    return {offset->position, offset->length};
}

std::vector<Row> collectRows(_TEV_info_pack* pack) {
    std::vector<Row> rows;
    const uint32_t count = GetTevCount(pack);
    for (uint32_t i = 0; i < count; ++i) {
        rows.push_back({i, recordName(pack, i), recordType(pack, i),
                        partOf(getTEVSubInfoInFileByIndex(pack, i)),
                        partOf(getTEVInFileByIndex(pack, i))});
    }
    return rows;
}

nlohmann::ordered_json partJson(const Part& part) {
    return part.position < 0 ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(part.position);
}

nlohmann::ordered_json toJson(const std::string& file, const std::vector<Row>& rows) {
    nlohmann::ordered_json records = nlohmann::ordered_json::array();
    for (const Row& r : rows) {
        nlohmann::ordered_json j;
        j["index"] = r.index;
        j["name"] = r.name;
        j["type"] = r.type;
        j["sub_info_position"] = partJson(r.subInfo);
        j["sub_info_length"] = r.subInfo.length;
        j["data_position"] = partJson(r.data);
        j["data_length"] = r.data.length;
        records.push_back(j);
    }
    nlohmann::ordered_json j;
    j["file"] = file;
    j["records"] = records;
    return j;
}

void printText(const std::vector<Row>& rows) {
    FILE* o = out();
    std::fprintf(o, "%5s  %5s  %8s  %13s  %11s  %s\n", "index", "type", "sub-info", "data-position",
                 "data-length", "name");
    for (const Row& r : rows) {
        const std::string position = r.data.position < 0 ? "-" : std::to_string(r.data.position);
        std::fprintf(o, "%5u  %5u  %8" PRId64 "  %13s  %11" PRId64 "  %s\n", r.index, r.type,
                     r.subInfo.length, position.c_str(), r.data.length, printable(r.name).c_str());
    }
}

}  // namespace

Command addListCommand(CLI::App& parent) {
    struct Options {
        std::string file;
    };
    auto options = std::make_shared<Options>();
    CLI::App* app = parent.add_subcommand("list", "List the records of the file's container");
    app->add_option("FILE", options->file, "Media file")->required();
    return {app, [options] {
                const std::optional<FileFacts> facts = inspectFile(options->file, false);
                if (!facts) return int{kExitFailed};
                // Media without a container lists no records.
                std::vector<Row> rows;
                if (signatureHasContainer(facts->signature)) {
                    tev::Pack pack = requireContainer(options->file, *facts);
                    if (!pack) return int{kExitFailed};
                    rows = collectRows(pack.get());
                }
                if (jsonMode()) return printJson(toJson(options->file, rows));
                printText(rows);
                return int{kExitOk};
            }};
}

}  // namespace tevcli
