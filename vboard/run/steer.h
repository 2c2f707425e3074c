#pragma once
// Talking to boards that run: `vboard ctl` and `vboard list`.

#include <optional>
#include <string>
#include <vector>

namespace vb {

struct ControlOptions {
    std::optional<int> launcher;    // which board; unset: the one we are on, or the only one
    std::vector<std::string> words; // group, verb, arguments; empty: list the verbs
};

int steer_board(const ControlOptions& options);
int list_boards();

} // namespace vb
