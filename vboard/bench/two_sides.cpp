#include "two_sides.h"

#include "bare_server.h"
#include "side.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

namespace {

constexpr int kPairs = 40;

int be_a_side(bool is_board, std::span<const Case> cases) {
    const std::string bare = is_board ? "" : start_bare_server();
    for (std::string which; std::getline(std::cin, which);) {
        const Case& one = cases[std::stoul(which)];
        std::printf("%f\n", one.nanoseconds(is_board ? one.board_node : bare.c_str()));
        std::fflush(stdout);
    }
    return 0;
}

void compare(const Case& one, std::size_t which, Side& board, Side& bare) {
    std::vector<double> ours;
    std::vector<double> theirs;
    std::vector<double> ratios;
    for (int pair = 0; pair < kPairs; ++pair) {
        const bool first = pair % 2 == 0; // who goes first gains nothing in the long run
        const double early = (first ? board : bare).measure(which);
        const double late = (first ? bare : board).measure(which);
        ours.push_back(first ? early : late);
        theirs.push_back(first ? late : early);
        ratios.push_back(ours.back() / theirs.back());
    }
    if (one.bytes == 0) {
        std::printf("%-32s %8.1f us     bare %8.1f us     times   %.2f\n", one.name,
                    median(ours) / 1e3, median(theirs) / 1e3, median(ratios));
    } else {
        const double byte = one.bytes * 1e9 / (1 << 20);
        std::printf("%-32s %8.0f MiB/s  bare %8.0f MiB/s  ratio   %.2f\n", one.name,
                    byte / median(ours), byte / median(theirs), 1 / median(ratios));
    }
}

} // namespace

int compare_with_bare_server(int argc, char** argv, std::span<const Case> cases) {
    try {
        if (argc > 1) {
            return be_a_side(std::string_view(argv[1]) == "board", cases);
        }
        const std::string self = std::filesystem::read_symlink("/proc/self/exe");
        Side board({"vboard", "run", "--", self.c_str(), "board"});
        Side bare({self.c_str(), "bare"});
        for (std::size_t which = 0; which < cases.size(); ++which) {
            compare(cases[which], which, board, bare);
        }
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}

} // namespace bench
