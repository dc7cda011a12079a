// JSON output of the commands that take --json.
#ifndef TEV_TOOLS_JSON_OUT_H
#define TEV_TOOLS_JSON_OUT_H

#include <nlohmann/json.hpp>

#include <cstdio>
#include <string>

#include "cli.h"

namespace tevcli {

// Prints the value indented, one object per run. Record names are bytes
// from the file and need not be UTF-8: invalid sequences become U+FFFD
// rather than aborting the output.
inline int printJson(const nlohmann::ordered_json& value) {
    const std::string text =
        value.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
    noteJsonPrinted();
    if (!writeOut(text.data(), text.size())) {
        std::fprintf(stderr, "tev: cannot write the output\n");
        return kExitFailed;
    }
    return kExitOk;
}

}  // namespace tevcli

#endif  // TEV_TOOLS_JSON_OUT_H
