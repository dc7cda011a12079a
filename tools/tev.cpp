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

std::string commandList(const CLI::App& app) {
    std::string names;
    for (const CLI::App* sub : app.get_subcommands({})) {
        names += (names.empty() ? "" : ", ") + sub->get_name();
    }
    return names;
}

bool isCommand(const CLI::App& app, const std::string& word) {
    for (const CLI::App* sub : app.get_subcommands({})) {
        if (sub->get_name() == word) return true;
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

    const std::vector<Command> commands = {
        addInfoCommand(app),    addListCommand(app),   addExtractCommand(app),
        addAddCommand(app),     addDeleteCommand(app), addClearCommand(app),
        addSoundCommand(app),   addCopyCommand(app),
    };
    setJsonMode(asksForJson(argc, argv));

    // `tev help [COMMAND]` is `tev [COMMAND] --help`; an unknown first word
    // is named as such, with the list of commands.
    std::vector<std::string> args(argv + 1, argv + argc);
    if (!args.empty() && args[0] == "help") {
        args.erase(args.begin());
        args.emplace_back("--help");
    } else if (!args.empty() && args[0].rfind('-', 0) != 0 && !isCommand(app, args[0])) {
        usage("unknown subcommand \"" + args[0] + "\" (one of: " + commandList(app) + ")");
        return finishJson("", kExitUsage);
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
