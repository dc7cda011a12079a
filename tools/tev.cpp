// tev: inspect, extract and edit the records kept behind the media data of
// JPEG, HEIC and MP4 files.
//
// Exit status: 0 success, 1 the operation failed (no container, no such
// record, refused or failed edit), 2 the command line was wrong.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "cli.h"

int main(int argc, char** argv) {
    using namespace tevcli;
    CLI::App app{"Inspect and edit the records kept behind the media data of JPEG, HEIC and MP4 files",
                 "tev"};
    app.require_subcommand(1);
    app.fallthrough();
    bool verbose = false;
    app.add_flag("-v,--verbose", verbose, "Show the library's own log lines on stderr");

    // Setting up a subcommand's options is most of the parser's cost, and the
    // tool runs once per operation: when the first word that is not an
    // option names a subcommand, only that one is set up. Otherwise (help,
    // a wrong name) all are, so that the parser can list them.
    using Maker = Command (*)(CLI::App&);
    static constexpr std::pair<const char*, Maker> kCommands[] = {
        {"info", addInfoCommand},     {"list", addListCommand},     {"extract", addExtractCommand},
        {"add", addAddCommand},       {"delete", addDeleteCommand}, {"clear", addClearCommand},
        {"sound", addSoundCommand},   {"copy", addCopyCommand},
    };
    const char* named = nullptr;
    for (int i = 1; i < argc && named == nullptr; ++i) {
        if (argv[i][0] != '-') named = argv[i];
    }
    std::vector<Command> commands;
    for (const auto& [name, make] : kCommands) {
        if (named != nullptr && std::strcmp(named, name) == 0) commands.push_back(make(app));
    }
    if (commands.empty()) {
        for (const auto& command : kCommands) commands.push_back(command.second(app));
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return kExitUsage;
    }

    setUpChannels(verbose);
    for (const Command& command : commands) {
        if (command.app->parsed()) {
            const int status = command.run();
            if (std::fflush(out()) != 0) {
                std::fprintf(stderr, "tev: cannot write the output\n");
                return kExitFailed;
            }
            return status;
        }
    }
    return kExitUsage;
}
