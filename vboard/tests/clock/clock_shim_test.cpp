// Each wait is made by a program of its own on a board at speed 100. The program checks on the
// board's clocks that it never comes back early and says how; here it is checked that it did not
// take the board's time in real time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>

#include "clock/board_clock.h"

namespace vb::clock_shim_test {
namespace {

using namespace std::chrono_literals;

struct Outcome {
    int exit_code = -1; // -1: not started, or killed by a signal
    std::string output;
    std::chrono::nanoseconds real_time{};
};

// `page` becomes VBOARD_CLOCK as it is, valid or not. A sanitizer must let the shim come first.
Outcome run_on_board_time(const std::string& page, const std::string& command) {
    const std::string line = "VBOARD_CLOCK='" + page + "' LD_PRELOAD='" CLOCK_SHIM "'" +
                             " ASAN_OPTIONS=verify_asan_link_order=0 " + command;
    const auto start = std::chrono::steady_clock::now();
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(::popen(line.c_str(), "re"), ::pclose);
    Outcome outcome;
    std::array<char, 4096> block{};
    while (const std::size_t size = std::fread(block.data(), 1, block.size(), pipe.get())) {
        outcome.output.append(block.data(), size);
    }
    const int status = ::pclose(pipe.release());
    outcome.real_time = std::chrono::steady_clock::now() - start;
    outcome.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

std::string probe(const std::string& how, const std::string& name, std::int64_t ns = 0) {
    return "'" CLOCK_PROBE "' " + how + " " + name + " " + std::to_string(ns);
}

class ShimTest : public testing::Test {
  protected:
    ShimTest() { clock_.set_speed(100.0); }
    void TearDown() override { std::filesystem::remove(page_); }

    Outcome run(const std::string& command) const { return run_on_board_time(page_, command); }

    void each(const char* how, std::initializer_list<const char*> names, std::int64_t ns) const {
        for (const char* name : names) {
            const std::int64_t start = clock_.now_ns();
            const Outcome outcome = run(probe(how, name, ns));
            EXPECT_EQ(outcome.exit_code, 0) << name << ": " << outcome.output;
            EXPECT_LT(outcome.real_time, 5s) << name;
            EXPECT_TRUE(clock_.now_ns() - start >= ns || ns == kLong) << name;
        }
    }

    static constexpr std::int64_t kAsked = 5'000'000'000;   // 50 ms of real time
    static constexpr std::int64_t kLong = 1000'000'000'000; // 10 s, which nothing may last
    const std::filesystem::path page_ =
        std::filesystem::path(testing::TempDir()) / ("shim_clock_" + std::to_string(::getpid()));
    BoardClock clock_ = BoardClock::create(page_);
};

TEST_F(ShimTest, SleepsLastTheirBoardTime) {
    each("times_out",
         {"sleep", "usleep", "nanosleep", "clock_nanosleep", "sleep_wall", "sleep_mono"}, kAsked);
}

TEST_F(ShimTest, WaitsForDescriptorsLastTheirBoardTime) {
    each("times_out",
         {"select", "pselect", "poll", "poll_chk", "ppoll", "epoll_wait", "epoll_pwait",
          "epoll_pwait2", "receive"},
         kAsked);
}

TEST_F(ShimTest, WaitsForLocksAndConditionsLastTheirBoardTime) {
    each("times_out",
         {"cond_wall", "cond_mono", "cond_clockwait", "future", "mutex_wall", "mutex_mono",
          "rdlock_wall", "wrlock_wall", "rdlock_mono", "wrlock_mono", "sem_wall", "sem_mono"},
         kAsked);
}

TEST_F(ShimTest, TimersLastTheirBoardTime) {
    each("times_out",
         {"alarm", "setitimer", "timer", "timer_wall", "timer_mono", "timerfd", "timerfd_wall",
          "timerfd_mono"},
         kAsked);
}

TEST_F(ShimTest, WaitsShorterThanTheRealClocksStepsAreStillWaits) {
    each("times_out", {"nanosleep", "ppoll"}, 1);
    each("times_out", {"nanosleep", "ppoll"}, 99);
    each("times_out", {"nanosleep", "poll", "epoll_wait"}, 1'000'000);
}

TEST_F(ShimTest, ACancelledThreadUnwindsAtOnce) {
    each("is_cancelled",
         {"usleep", "sleep_wall", "select", "poll", "epoll_wait", "cond_wall", "sem_wall"}, kLong);
}

TEST_F(ShimTest, AReadyDescriptorEndsTheWaitAtOnce) {
    each("is_ready", {"select", "pselect", "poll", "ppoll", "epoll_wait", "epoll_pwait2"}, kLong);
}

TEST_F(ShimTest, AnInterruptedWaitTellsItsRest) {
    each("is_interrupted", {"sleep", "nanosleep", "clock_nanosleep", "select"}, kLong);
}

TEST_F(ShimTest, AWrongTimeIsRefused) {
    each("is_refused", {"nanosleep", "clock_nanosleep", "ppoll", "cond_wall", "timer", "timerfd"},
         0);
}

TEST_F(ShimTest, ClocksAndTimersReadAsBoardTime) {
    each("check",
         {"clocks_agree", "cpu_clock", "signalled", "rest_of_alarm", "rest_of_timers",
          "periodic_timer"},
         0);
}

TEST_F(ShimTest, BringsNoOtherLibraryIntoAForeignProgram) {
    const Outcome outcome = run("cat /proc/self/maps");
    EXPECT_THAT(outcome.output, testing::HasSubstr("libvboard_clock.so"));
    EXPECT_THAT(outcome.output, testing::Not(testing::HasSubstr("libstdc++")));
    EXPECT_THAT(outcome.output, testing::Not(testing::HasSubstr("libgcc")));
}

// Without a page, or with a file that is none, the machine's own time holds.
TEST_F(ShimTest, WithoutAPageEveryCallPassesThrough) {
    const std::string garbage = page_.string() + ".garbage";
    std::ofstream(garbage) << std::string(4096, 'x');
    for (const std::string& page : {std::string(), page_.string() + ".missing", garbage}) {
        for (const char* name : {"usleep", "select", "sleep_mono", "cond_wall", "cond_mono"}) {
            const Outcome outcome = run_on_board_time(page, probe("times_out", name, 20'000'000));
            EXPECT_EQ(outcome.exit_code, 0) << page << name << outcome.output;
            EXPECT_GE(outcome.real_time, 20ms) << page << name;
        }
        EXPECT_EQ(run_on_board_time(page, probe("check", "signalled")).exit_code, 0) << page;
        const auto start = std::chrono::steady_clock::now().time_since_epoch() / 1ns;
        const auto now = std::stoll(run_on_board_time(page, probe("check", "now")).output);
        EXPECT_LE(start, now) << page;
        EXPECT_LE(now, std::chrono::steady_clock::now().time_since_epoch() / 1ns) << page;
    }
    std::filesystem::remove(garbage);
}

} // namespace
} // namespace vb::clock_shim_test
