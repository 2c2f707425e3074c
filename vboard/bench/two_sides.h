#pragma once
// The same calls on a node of the virtual board and on one of a bare server, in turn in one run.

#include <span>

namespace bench {

struct Case {
    const char* name;
    const char* board_node; // where the board has it; the bare server has one node for everything
    double (*nanoseconds)(const char* node); // of one call, over a number of them
    unsigned bytes;                          // that one call moves; 0 where time is what counts
};

// The whole program: prints a line for each case. Started again by itself, it is the one side or
// the other, and measures what it is told.
int compare_with_bare_server(int argc, char** argv, std::span<const Case> cases);

} // namespace bench
