// tev: inspect, extract and edit the records kept behind the media data of
// JPEG, HEIC and MP4 files.
//
// Exit status: 0 success, 1 the operation failed (no container, no such
// record, refused or failed edit), 2 the command line was wrong.
#include <CLI/CLI.hpp>

#include <cstdio>
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

    const std::vector<Command> commands = {
        addInfoCommand(app),    addListCommand(app),   addExtractCommand(app),
        addAddCommand(app),     addDeleteCommand(app), addClearCommand(app),
        addSoundCommand(app),   addCopyCommand(app),
    };

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
