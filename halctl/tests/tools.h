#pragma once
// What the tests of commands share: our programs on PATH, and a shell on a board.

#include "client/command_run.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace halctl_tests {

using vb::CommandResult;

inline void put_tools_on_path() {
    static const bool done = [] {
        const char* rest = std::getenv("PATH");
        const std::string path = std::string(TOOL_PATH) + ":" + (rest == nullptr ? "" : rest);
        return setenv("PATH", path.c_str(), 1) == 0;
    }();
    static_cast<void>(done);
}

inline CommandResult run(const std::vector<std::string>& words) {
    put_tools_on_path();
    return vb::run_command(words);
}

// A shell script on a board of its own. `listening` in it waits until somebody has opened the
// GPIO driver, and so misses no edge from then on.
inline CommandResult on_board(const std::string& script) {
    const std::string helpers = "listening() { until [ \"$(vboard ctl node opens /dev/drvgpio)\" "
                                "= 1 ]; do :; done; }\n"
                                "drive() { vboard ctl gpio drive $1 $2 >/dev/null; }\n";
    return run({"vboard", "run", "--", "sh", "-c", helpers + script});
}

} // namespace halctl_tests
