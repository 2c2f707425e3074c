// Runs a program on the time of a board made for it.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace vb::test {

struct Outcome {
    int exit_code = -1; // -1: killed by a signal
    std::string output;
    std::chrono::nanoseconds real_time{};
};

// `page` becomes VBOARD_CLOCK as it is, valid or not. The program is found along PATH.
Outcome run_on_board_time(const std::filesystem::path& page,
                          const std::vector<std::string>& command);

} // namespace vb::test
