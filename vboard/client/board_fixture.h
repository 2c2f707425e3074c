#pragma once
// The fixture of every test that runs on a board: speak to the world through it, look at the trace
// through it, and let it check at the end that nothing was done wrong and nothing left behind.
//
// Tests may share a board, one after the other. After each the fixture takes its faults away, lets
// held calls go, brings vanished nodes back and sets the speed back. Lines, registers and stored
// data stay as the test left them: a test says what it wants of those itself.

#include "client/client.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace vb {

class BoardTest : public ::testing::Test {
  protected:
    void SetUp() override;
    // Fails the test on misuse that was not announced, on a bug in a model, and on descriptors or
    // threads that are there at the end and were not at the start.
    void TearDown() override;

    Client& board() { return board_; }

    // --- the world ---
    Json drive(unsigned line, int level) {
        return board().ask("gpio.drive", {{"line", line}, {"level", level}});
    }
    int level(unsigned line) {
        return board().ask("gpio.show", {{"line", line}}).at("level").get<int>();
    }
    int add_fault(const std::string& fault) {
        return board().ask("fault.add", {{"fault", fault}}).at("id").get<int>();
    }
    void clear_faults() { board().ask("fault.clear"); }
    void set_speed(double factor) { board().ask("clock.speed", {{"factor", factor}}); }
    void vanish(const std::string& node) { board().ask("node.vanish", {{"path", node}}); }
    void appear(const std::string& node) { board().ask("node.appear", {{"path", node}}); }

    // How many opens of a node the board counts. The kernel tells it of a close(2) only after that
    // has returned, so it gets the time to come to the `expected` number.
    int opens(const std::string& node, int expected);

    // --- the trace ---
    // From here on only what comes later counts.
    void forget_trace() { since_ = board().ask("trace.last").get<std::uint64_t>(); }
    // All events since the last forget_trace() that match.
    std::vector<Json> events(const Json& match);
    // Waits for one; an empty object and a failure where none comes.
    Json expect_event(const Json& match);
    // Nothing of this kind has happened.
    void expect_none(const Json& match);
    // The texts that the library sent to the system log, without level, module and line.
    std::vector<std::string> logged();
    // The same with one level's name: "ERROR".
    std::vector<std::string> logged(const std::string& level);
    void expect_misuse() { misuse_expected_ = true; }

    // Fails the first, second, third... call on a node with this errno, until a run in which
    // nothing failed. After each run `check` is told whether a call failed in it.
    void sweep(const std::string& node, const std::string& error, const std::function<void()>& run,
               const std::function<void(bool failed)>& check);

    static std::size_t descriptors();
    static std::size_t threads();

  private:
    void put_back(const Json& trace);

    Client board_ = Client::of_this_board();
    double speed_ = 1;
    std::uint64_t started_ = 0;
    std::uint64_t since_ = 0;
    std::size_t descriptors_ = 0;
    std::size_t threads_ = 0;
    bool misuse_expected_ = false;
};

} // namespace vb
