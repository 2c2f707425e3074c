#pragma once
// Talking to boards that run: `vboard ctl` and `vboard list`.

#include "core/json.h"

#include <optional>
#include <string>
#include <vector>

namespace vb {

struct ControlOptions {
    std::optional<int> launcher;    // which board; unset: the one we are on, or the only one
    std::vector<std::string> words; // group, verb, arguments; empty: list the verbs
    bool json = false;              // help and complaints, too; answers are JSON anyway
};

int steer_board(const ControlOptions& options);
int list_boards(bool json);

void print_line(const Json& json);

// Says on standard error what went wrong, and returns the exit code: "vboard ctl: WHAT" and, where
// there is a `help` to read, a second line that says which; or an object of "error" and "code".
int complain(bool json, const std::string& command, const std::string& what, int code,
             const std::string& help = "");

} // namespace vb
