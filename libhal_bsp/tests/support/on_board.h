// The fixture of the library's tests on a board, and what they wait with.
#pragma once

#include "client/board_fixture.h"

#include <hal_bsp/log.h>

#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <iostream>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace hal_test {

using vb::Json;

// Whether a condition comes true before real time runs out, whatever the board's clock does.
template <typename Condition>
[[nodiscard]] bool comes_true(Condition condition, time_t patience = 20) {
    timespec now{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    for (const time_t end = now.tv_sec + patience; !condition();) {
        if (now.tv_sec > end) {
            return false;
        }
        const timespec pause{0, 200'000};
        syscall(SYS_nanosleep, &pause, nullptr);
        syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    }
    return true;
}

// What a callback was told.
template <typename Event>
class Heard {
  public:
    Heard() = default;
    ~Heard() { clear(); } // after the last that a detached thread has added
    Heard(const Heard&) = delete;
    Heard& operator=(const Heard&) = delete;

    void add(Event event) {
        const std::lock_guard guard(mutex_);
        events_.push_back(std::move(event));
    }
    std::vector<Event> all() {
        const std::lock_guard guard(mutex_);
        return events_;
    }
    // Waits until there is so much; returns all.
    std::vector<Event> wait_for(std::size_t count) {
        EXPECT_TRUE(comes_true([&] { return all().size() >= count; })) << count << " in all";
        return all();
    }
    void clear() {
        const std::lock_guard guard(mutex_);
        std::vector<Event>().swap(events_);
    }

  private:
    std::mutex mutex_;
    std::vector<Event> events_;
};

// The tests of a program may share one board: each leaves it without faults, at its own speed.
class OnBoard : public vb::BoardTest {
  protected:
    void SetUp() override {
        BoardTest::SetUp();
        log_set_quiet(true);
    }
    void TearDown() override {
        clear_faults();
        set_speed(1);
        BoardTest::TearDown();
    }
    Json ask(const std::string& verb, Json arguments = Json::object()) {
        return board().ask(verb, std::move(arguments));
    }
    // For what a process has only once, such as threads and descriptors that stay for good.
    template <typename Body>
    void in_a_new_process(Body body) {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        EXPECT_EXIT(
            {
                body();
                print_failures(); // to stderr: the new process's listeners are silent
                std::exit(HasFailure() ? 1 : 0);
            },
            testing::ExitedWithCode(0), "");
    }
    static void print_failures() {
        const auto& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
        for (int i = 0; i < result.total_part_count(); ++i) {
            const testing::TestPartResult& part = result.GetTestPartResult(i);
            std::cerr << part.file_name() << ':' << part.line_number() << ": " << part.message();
        }
    }
    // A moment after it was stopped a thread is gone.
    static void expect_threads(std::size_t wanted) {
        EXPECT_TRUE(comes_true([&] { return threads() == wanted; })) << threads();
    }
};

} // namespace hal_test
