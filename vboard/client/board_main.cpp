// The main program of tests that run on a board: each in a process of its own, or all in one.

#include "client/client.h"

#include <gtest/gtest.h>

#include <fmt/format.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>

namespace vb {

namespace {

constexpr time_t kHangsAfter = HAL_TEST_SECONDS - 10; // real seconds; then the runner ends it
static_assert(kHangsAfter > 0);
constexpr int kNoBoard = 69;

// Shows where every thread of a hanging test stands, then lets the runner end it.
void show_stacks() {
    const std::string command =
        fmt::format("gdb --batch -p {} -ex 'thread apply all backtrace' >&2 2>/dev/null || "
                    "grep . /proc/{}/task/*/comm /proc/{}/task/*/wchan >&2",
                    getpid(), getpid(), getpid());
    if (std::system(command.c_str()) != 0) { // NOLINT: a fixed command of the tests' own
        fmt::print(stderr, "no stacks to be had\n");
    }
}

// Watches over one test at a time, each from its start. Plain system calls: patience is in real
// time, not in the board's.
class HangWatch : public testing::EmptyTestEventListener {
  public:
    HangWatch() {
        std::thread([] {
            sigset_t signals{}; // those of a test are not for this thread, and do not wake it
            sigfillset(&signals);
            pthread_sigmask(SIG_BLOCK, &signals, nullptr);
            time_t shown = 0;
            while (true) { // a test may count its threads, so this one is there to the end
                const time_t start = test_start;
                const timespec end{(start == shown ? now() : start) + kHangsAfter, 0};
                syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr);
                if (test_start == start && start != shown) {
                    show_stacks();
                    shown = start;
                }
            }
        }).detach();
    }

  private:
    void OnTestStart(const testing::TestInfo&) override { test_start = now(); }

    static time_t now() {
        timespec time{};
        syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &time);
        return time.tv_sec;
    }

    static inline std::atomic<time_t> test_start{now()};
};

class HowToRunAlone : public testing::EmptyTestEventListener {
  public:
    explicit HowToRunAlone(std::string program) : program_(std::move(program)) {}

  private:
    void OnTestEnd(const testing::TestInfo& test) override {
        if (test.result()->Failed()) {
            fmt::print(stderr, "run it alone: vboard run --speed 1 -- {} --gtest_filter={}.{}\n",
                       program_, test.test_suite_name(), test.name());
        }
    }

    std::string program_;
};

bool is_on_a_board() {
    try {
        Client::of_this_board();
        return true;
    } catch (const ClientError&) {
        return false;
    }
}

} // namespace

} // namespace vb

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests)) {
        if (!vb::is_on_a_board()) {
            fmt::print(stderr, "{0} wants a virtual board: vboard run --speed 1 -- {0}\n", argv[0]);
            return vb::kNoBoard;
        }
        auto& listeners = testing::UnitTest::GetInstance()->listeners();
        listeners.Append(new vb::HangWatch);
        listeners.Append(new vb::HowToRunAlone(argv[0]));
    }
    return RUN_ALL_TESTS();
}
