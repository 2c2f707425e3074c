// Each wait is made by a program of its own on a board at speed 100. The program checks on the
// board's clocks that it never comes back early and says how; here it is checked that it did not
// take the board's time in real time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <optional>
#include <sstream>

#include "board_clock.h"
#include "board_time_run.h"

namespace {

using namespace std::chrono_literals;
using vb::BoardClock;
using vb::test::Outcome;
using vb::test::run_on_board_time;

class ShimTest : public testing::TestWithParam<const char*> {
  protected:
    ShimTest() { clock_->set_speed(100.0); }
    ~ShimTest() override { std::filesystem::remove(page_); }

    Outcome run(const std::vector<std::string>& command) const {
        return run_on_board_time(page_, command);
    }
    Outcome probe(const char* name) const { return run({CLOCK_PROBE, name}); }

    const std::filesystem::path page_ =
        std::filesystem::path(testing::TempDir()) / ("shim_clock_" + std::to_string(::getpid()));
    std::optional<BoardClock> clock_ = BoardClock::create(page_);
};

std::string name_of(const testing::TestParamInfo<const char*>& info) {
    return info.param;
}

// Every one waits for 5 s of board time, which is 50 ms here.
class TimedWait : public ShimTest {};

TEST_P(TimedWait, LastsItsBoardTimeAndNotItsRealTime) {
    const std::int64_t start = clock_->now_ns();
    const Outcome outcome = probe(GetParam());
    EXPECT_EQ(outcome.exit_code, 0) << outcome.output;
    EXPECT_GE(clock_->now_ns() - start, 5'000'000'000);
    EXPECT_LT(outcome.real_time, 5s);
}

INSTANTIATE_TEST_SUITE_P(Sleeping, TimedWait,
                         testing::Values("sleep", "usleep", "nanosleep", "clock_nanosleep",
                                         "clock_nanosleep_absolute", "thrd_sleep", "sleep_for"),
                         name_of);
INSTANTIATE_TEST_SUITE_P(Polling, TimedWait,
                         testing::Values("select", "pselect", "poll", "ppoll", "poll_chk",
                                         "ppoll_chk", "epoll_wait", "epoll_pwait", "epoll_pwait2"),
                         name_of);
INSTANTIATE_TEST_SUITE_P(Locking, TimedWait,
                         testing::Values("cond_timedwait_realtime", "cond_timedwait_monotonic",
                                         "cond_clockwait", "mutex_timedlock", "mutex_clocklock",
                                         "rwlock_timedrdlock", "rwlock_timedwrlock",
                                         "rwlock_clockrdlock", "rwlock_clockwrlock",
                                         "sem_timedwait", "sem_clockwait", "timedjoin", "clockjoin",
                                         "cnd_timedwait", "mtx_timedlock", "condition_variable",
                                         "timed_mutex", "future", "counting_semaphore"),
                         name_of);
INSTANTIATE_TEST_SUITE_P(TimersAndMessages, TimedWait,
                         testing::Values("alarm", "setitimer", "timer", "timer_absolute", "timerfd",
                                         "timerfd_absolute_realtime", "timerfd_absolute_monotonic",
                                         "receive_timeout", "sigtimedwait", "mq_timedreceive",
                                         "mq_timedsend", "semtimedop"),
                         name_of);

// Checks that the program makes itself, in some tens of seconds of board time.
class BoardTimeCheck : public ShimTest {};

TEST_P(BoardTimeCheck, Holds) {
    const Outcome outcome = probe(GetParam());
    EXPECT_EQ(outcome.exit_code, 0) << outcome.output;
    EXPECT_LT(outcome.real_time, 9s);
}

INSTANTIATE_TEST_SUITE_P(Rest, BoardTimeCheck,
                         testing::Values("rest_of_nanosleep", "rest_of_sleep", "rest_of_select",
                                         "rest_of_alarm", "rest_of_timers", "ready_wins",
                                         "periodic_timer", "short_waits", "invalid_arguments"),
                         name_of);
// Each has a thread wait for 1000 s, 10 s of real time, and cancels it.
INSTANTIATE_TEST_SUITE_P(Cancelled, BoardTimeCheck,
                         testing::Values("cancel_usleep", "cancel_select", "cancel_poll",
                                         "cancel_epoll_wait", "cancel_cond_timedwait",
                                         "cancel_sem_timedwait", "cancel_clock_nanosleep"),
                         name_of);
INSTANTIATE_TEST_SUITE_P(Reading, BoardTimeCheck,
                         testing::Values("clocks_agree", "cpu_clock", "signalled"), name_of);

TEST_F(ShimTest, AllProcessesReadTheSameTime) {
    const std::int64_t before = clock_->now_ns();
    const std::int64_t realtime_before = clock_->realtime_ns();
    const Outcome outcome = probe("now");
    const std::int64_t realtime_after = clock_->realtime_ns();
    const std::int64_t after = clock_->now_ns();
    std::int64_t now = 0;
    std::int64_t realtime = 0;
    std::istringstream(outcome.output) >> now >> realtime;
    EXPECT_LE(before, now);
    EXPECT_LE(now, after);
    EXPECT_LE(realtime_before, realtime);
    EXPECT_LE(realtime, realtime_after);
}

TEST_F(ShimTest, UnmodifiedProgramsLiveOnBoardTime) {
    const std::int64_t before = clock_->realtime_ns();
    const Outcome outcome = run({"sh", "-c", "date +%s%N; sleep 20; date +%s%N"});
    std::int64_t start = 0;
    std::int64_t end = 0;
    std::istringstream(outcome.output) >> start >> end;
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_GE(end - start, 20'000'000'000);
    EXPECT_LT(outcome.real_time, 20s);
    EXPECT_GE(start, before);
    EXPECT_LE(end, clock_->realtime_ns());
}

TEST_F(ShimTest, TimeoutKillsAfterBoardTime) {
    const std::int64_t start = clock_->now_ns();
    const Outcome outcome = run({"timeout", "10", "sleep", "1000"});
    EXPECT_EQ(outcome.exit_code, 124);
    EXPECT_GE(clock_->now_ns() - start, 10'000'000'000);
    EXPECT_LT(outcome.real_time, 10s);
}

TEST_F(ShimTest, BringsNoOtherLibraryIntoAForeignProgram) {
    const Outcome outcome = run({"cat", "/proc/self/maps"});
    EXPECT_THAT(outcome.output, testing::HasSubstr("libvboard_clock.so"));
    EXPECT_THAT(outcome.output, testing::Not(testing::HasSubstr("libstdc++")));
    EXPECT_THAT(outcome.output, testing::Not(testing::HasSubstr("libgcc")));
}

// Without a page, or with a file that is none, the machine's own time holds.
class WithoutPage : public ShimTest {};

TEST_P(WithoutPage, EveryCallPassesThrough) {
    const std::filesystem::path other = page_.string() + ".other";
    const std::string which = GetParam();
    if (which == "garbage") {
        std::ofstream(other) << std::string(4096, 'x');
    }
    const auto start = std::chrono::steady_clock::now();
    const Outcome outcome =
        run_on_board_time(which == "empty" ? "" : other, {CLOCK_PROBE, "pass_through"});
    const auto end = std::chrono::steady_clock::now();
    std::filesystem::remove(other);
    EXPECT_EQ(outcome.exit_code, 0) << outcome.output;
    EXPECT_GE(outcome.real_time, 50ms);
    std::int64_t now = 0;
    std::istringstream(outcome.output) >> now;
    EXPECT_GE(now, start.time_since_epoch() / 1ns);
    EXPECT_LE(now, end.time_since_epoch() / 1ns);
}

INSTANTIATE_TEST_SUITE_P(Page, WithoutPage, testing::Values("missing", "garbage", "empty"),
                         name_of);

} // namespace
