// How many opens of a node the board counts, for a test that expects so many.
#pragma once

#include "client/client.h"

#include <string>
#include <thread>

namespace hal_test {

// The kernel tells the board of a close(2) only after that has returned: give it the time.
inline int opens_settled_at(int expected, vb::Client& board, const std::string& node) {
    constexpr int kPatience = 10'000;
    int opens = -1;
    for (int i = 0; i < kPatience && opens != expected; ++i) {
        std::this_thread::yield();
        opens = board.ask("node.opens", {{"path", node}}).get<int>();
    }
    return opens;
}

} // namespace hal_test
