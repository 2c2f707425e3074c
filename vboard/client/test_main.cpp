// The main program of tests that run on a board.

#include <gtest/gtest.h>

#include <fmt/format.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>

namespace {

constexpr time_t kHangsAfter = 50; // real seconds; the runner ends a test after 60

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

void watch_for_a_hang() {
    std::thread([] {
        const timespec patience{kHangsAfter, 0};
        // The plain system call: patience is in real time, not in the board's.
        syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, &patience, nullptr);
        show_stacks();
    }).detach();
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests)) {
        watch_for_a_hang();
    }
    testing::UnitTest::GetInstance()->listeners().Append(new HowToRunAlone(argv[0]));
    return RUN_ALL_TESTS();
}
