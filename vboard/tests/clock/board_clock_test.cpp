#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <fstream>
#include <limits>
#include <random>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "clock/board_clock.h"

namespace vb::board_clock_test {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kYear = kSecond * 365 * 86'400;
constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

std::int64_t real_ns(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

ClockRate rate_of(double speed) {
    return {5 * kSecond, 7 * kSecond, 1'700'000'000 * kSecond,
            static_cast<std::uint64_t>(speed * static_cast<double>(kSpeedOne))};
}

class BoardClockTest : public testing::Test {
  protected:
    void TearDown() override { std::filesystem::remove(file_); }

    const std::filesystem::path file_ =
        std::filesystem::path(testing::TempDir()) / ("board_clock_" + std::to_string(::getpid()));
};

TEST_F(BoardClockTest, StartsEqualToRealTimeAtSpeedOne) {
    const std::int64_t before = real_ns(CLOCK_MONOTONIC);
    const BoardClock clock = BoardClock::create(file_);
    const std::int64_t now = clock.now_ns();
    EXPECT_LE(before, now);
    EXPECT_LE(now, real_ns(CLOCK_MONOTONIC));
    EXPECT_NEAR(static_cast<double>(clock.realtime_ns() - real_ns(CLOCK_REALTIME)), 0.0, 1e9);
    EXPECT_EQ(clock.speed(), 1.0);
}

TEST_F(BoardClockTest, OwnerAndReaderAdvanceBySpeedTimesRealTimeAndKnowTheDeadline) {
    BoardClock owner = BoardClock::create(file_);
    const auto reader = BoardClock::open(file_);
    ASSERT_TRUE(reader);
    owner.set_speed(300.0);
    EXPECT_EQ(reader->speed(), 300.0);
    const std::int64_t outer_start = real_ns(CLOCK_MONOTONIC);
    const std::int64_t start = owner.now_ns();
    const std::int64_t inner_start = real_ns(CLOCK_MONOTONIC);
    const std::int64_t deadline = reader->real_deadline_ns(start + kSecond);
    EXPECT_LE(deadline, inner_start + kSecond / 300 + 1);
    std::int64_t inner_end = inner_start;
    while (inner_end < deadline) {
        inner_end = real_ns(CLOCK_MONOTONIC);
    }
    const std::int64_t passed = reader->now_ns() - start;
    const std::int64_t outer_end = real_ns(CLOCK_MONOTONIC);
    EXPECT_GE(passed, kSecond);
    EXPECT_GE(passed, (inner_end - inner_start) * 300 - 1);
    EXPECT_LE(passed, (outer_end - outer_start) * 300 + 1);
    EXPECT_EQ(reader->real_duration_ns(3), 1);
    EXPECT_EQ(reader->board_duration_ns(2), 600);
}

TEST_F(BoardClockTest, NeverTurnsBackForAnyThreadWhileTheSpeedChanges) {
    BoardClock owner = BoardClock::create(file_);
    const auto reader = BoardClock::open(file_);
    std::atomic<bool> done{false};
    std::atomic<int> turned_back{0};
    const auto read = [&] {
        std::int64_t last = 0;
        std::int64_t last_realtime = 0;
        while (!done) {
            const std::int64_t now = reader->now_ns();
            const std::int64_t realtime = reader->realtime_ns();
            turned_back += now < last || realtime < last_realtime ? 1 : 0;
            last = now;
            last_realtime = realtime;
        }
    };
    std::thread first(read);
    std::thread second(read);
    const std::int64_t offset = owner.realtime_ns() - owner.now_ns();
    for (int i = 0; i < 5000; ++i) {
        owner.set_speed(i % 2 == 0 ? 100000.0 : 0.001);
    }
    done = true;
    first.join();
    second.join();
    EXPECT_EQ(turned_back, 0);
    // Wall time and monotonic time moved together.
    EXPECT_NEAR(static_cast<double>(owner.realtime_ns() - owner.now_ns()),
                static_cast<double>(offset), 1e6);
}

TEST_F(BoardClockTest, RefusesSpeedsOutOfRangeAndReadersThatSetIt) {
    BoardClock owner = BoardClock::create(file_);
    for (const double speed : {0.0, -1.0, 0.0009, 100001.0, std::nan(""), HUGE_VAL}) {
        EXPECT_THROW(owner.set_speed(speed), std::invalid_argument) << speed;
    }
    owner.set_speed(0.001);
    EXPECT_NEAR(owner.speed(), 0.001, 1e-9);
    owner.set_speed(100000.0);
    EXPECT_EQ(owner.speed(), 100000.0);
    EXPECT_THROW(BoardClock::open(file_)->set_speed(2.0), std::logic_error);
    EXPECT_EQ(owner.speed(), 100000.0);
}

TEST_F(BoardClockTest, TakesNoOtherFileForAPage) {
    EXPECT_FALSE(BoardClock::open(file_));
    std::ofstream(file_) << "short";
    EXPECT_FALSE(BoardClock::open(file_));
    std::ofstream(file_) << std::string(sizeof(ClockPage), 'x');
    EXPECT_FALSE(BoardClock::open(file_));
    EXPECT_THROW(BoardClock::create(file_), std::system_error);
}

TEST(ClockRateTest, ConversionsMeetExactlyAtAnySpeed) {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> exponent(-3.0, 5.0);
    std::uniform_int_distribution<std::int64_t> instant(-kYear, kYear);
    for (int i = 0; i < 20000; ++i) {
        const ClockRate rate = rate_of(std::pow(10.0, exponent(random)));
        const std::int64_t board = instant(random) >> (i % 50);
        const std::int64_t real = real_when_board(rate, board);
        if (real < kMost && real > kLeast) {
            ASSERT_GE(board_at(rate, real), board);
            ASSERT_LT(board_at(rate, real - 1), board);
        }
        // A wait of the real span, begun at any instant, is never short.
        const std::int64_t asked = std::abs(board);
        const std::int64_t start = instant(random) / 1000;
        const std::int64_t end = saturated(start + real_span(rate, asked));
        if (end < kMost) {
            ASSERT_GE(board_at(rate, end) - board_at(rate, start), asked);
        }
    }
}

TEST(ClockRateTest, KeepsExactOverYearsAndSaturatesBeyondTheEndOfTime) {
    const ClockRate rate = rate_of(10000.0);
    const std::int64_t real = 5 * kSecond + kSecond * 8 * 86'400 + 1; // 219 years of the board
    EXPECT_EQ(board_at(rate, real), 7 * kSecond + 80'000 * (86'400 * kSecond) + 10'000);
    EXPECT_EQ(board_at(rate, 100 * kYear), kMost);
    EXPECT_EQ(board_at(rate, -100 * kYear), kLeast);
    EXPECT_EQ(real_when_board(rate_of(0.001), 200 * kYear), kMost);
    EXPECT_EQ(real_when_board(rate, kMost) / kSecond, 5 + (kMost - 7 * kSecond) / 10000 / kSecond);
}

} // namespace
} // namespace vb::board_clock_test
