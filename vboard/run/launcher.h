#pragma once
// Starts a board in namespaces of its own and runs a program on it.

#include "panel/doorway.h"

#include <optional>
#include <string>
#include <vector>

namespace vb {

struct RunOptions {
    std::string board_file;       // the text of the board file
    std::optional<double> speed;  // board seconds a real second; unset: programs keep real time
    std::string trace_path;       // empty: the trace is kept in memory only
    std::string usb_capture_path; // empty: there is none
    std::vector<std::string> faults;
    std::string state_folder;            // what outlives the board; empty: nothing does
    std::optional<panel::Doorway> panel; // where the web panel listens; unset: there is none
    std::string sticks_folder;           // images that the panel offers; empty: none
    std::vector<std::string> program;
    bool interactive = false; // the program takes the terminal over, as a shell does
};

// Starts it again as often as it asks for that. Returns the exit status to pass on. Says on
// standard error what is missing where it cannot.
int run_on_board(const RunOptions& options);

} // namespace vb
