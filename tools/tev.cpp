// tev: inspect, extract and edit the records kept behind the media data of
// JPEG, HEIC and MP4 files.
//
// Exit status: 0 success, 1 the files refuse the command or the edit failed,
// 2 the command line is wrong (see kExitStatusHelp).
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "cli.h"
#include "json_out.h"
#include "tev/tev.h"

namespace {

using namespace tevcli;

std::string versionText() {
    char* container = getTEVVersion();
    std::string text = std::string("tev ") + TEV_TOOL_VERSION + " (libTEV.lumet.so " + TEV_TOOL_VERSION +
                       ", container version " + (container != nullptr ? container : "?") + ")";
    _kfree(container);
    return text;
}

using Maker = Command (*)(CLI::App&);
constexpr std::pair<const char*, Maker> kCommands[] = {
    {"info", addInfoCommand},     {"list", addListCommand},     {"extract", addExtractCommand},
    {"add", addAddCommand},       {"delete", addDeleteCommand}, {"clear", addClearCommand},
    {"sound", addSoundCommand},   {"copy", addCopyCommand},     {"repair", addRepairCommand},
    {"cover", addCoverCommand},
};

std::string commandList() {
    std::string names;
    for (const auto& command : kCommands) names += (names.empty() ? "" : ", ") + std::string(command.first);
    return names;
}

bool isCommand(const std::string& word) {
    for (const auto& command : kCommands) {
        if (word == command.first) return true;
    }
    return false;
}

// JSON mode is known before parsing, so that usage errors answer in JSON too.
bool asksForJson(int argc, char** argv) {
    for (int i = 1; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
        if (std::strcmp(argv[i], "--json") == 0) return true;
    }
    return false;
}

// In JSON mode, the object for a run whose command printed none of its own.
int finishJson(const std::string& command, int status) {
    if (!jsonMode() || jsonPrinted()) return status;
    nlohmann::ordered_json j;
    if (!command.empty()) j["command"] = command;
    j["ok"] = status == kExitOk;
    if (status != kExitOk) {
        j["error"] = firstProblem().empty() ? "failed" : firstProblem();
        j["exit_status"] = status;
    }
    const int printed = printJson(j);
    return status != kExitOk ? status : printed;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Inspect and edit the records kept behind the media data of JPEG, HEIC and MP4 files",
                 "tev"};
    app.footer(kExitStatusHelp);
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", versionText());
    bool verbose = false;
    bool json = false;
    app.add_flag("-v,--verbose", verbose, "Show the library's own log lines on stderr");
    app.add_flag("--json", json, "Print one JSON object, also on failure (every command)");

    setJsonMode(asksForJson(argc, argv));

    // The global options are flags, so the first word that is not an option
    // names the subcommand. `tev help [COMMAND]` is `tev [COMMAND] --help`;
    // an unknown name is reported as such, with the list of subcommands.
    std::vector<std::string> args(argv + 1, argv + argc);
    const auto isWord = [](const std::string& a) { return a.rfind('-', 0) != 0; };
    auto named = std::find_if(args.begin(), args.end(), isWord);
    if (named != args.end() && *named == "help") {
        args.erase(named);
        args.emplace_back("--help");
        named = std::find_if(args.begin(), args.end(), isWord);
    } else if (named != args.end() && !isCommand(*named)) {
        usage("unknown subcommand \"" + *named + "\" (one of: " + commandList() + ")");
        return finishJson("", kExitUsage);
    }

    // Setting up a subcommand's options is most of the parser's cost, and the
    // tool runs once per operation: only the named subcommand is set up, or
    // all of them when none is named (so that help can list them).
    std::vector<Command> commands;
    for (const auto& [name, make] : kCommands) {
        if (named == args.end() || *named == name) commands.push_back(make(app));
    }
    std::reverse(args.begin(), args.end());

    try {
        app.parse(args);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        if (!jsonMode()) {
            app.exit(e);
            return kExitUsage;
        }
        usage(e.what());
        return finishJson("", kExitUsage);
    }

    setUpChannels(verbose);
    for (const Command& command : commands) {
        if (command.app->parsed()) {
            const int status = finishJson(command.app->get_name(), command.run());
            if (std::fflush(out()) != 0) {
                std::fprintf(stderr, "tev: cannot write the output\n");
                return kExitFailed;
            }
            return status;
        }
    }
    return kExitUsage;
}
