// Delays, time stamps and path tests, with the clock and the sleep in the test's hands.
#include "tests/support/log_tap.h"

#include <hal_bsp/hal_bsp.h>

#include <climits>
#include <filesystem>
#include <gmock/gmock.h>
#include <limits>
#include <unistd.h>

namespace hal_test::timing {
namespace {

timeval now{};
useconds_t slept = 0;
int sleep_result = 0;

constexpr auto kMost = std::numeric_limits<time_t>::max();
constexpr auto kLeast = std::numeric_limits<time_t>::min();

} // namespace
} // namespace hal_test::timing

extern "C" {
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
int gettimeofday(timeval* time, void*) noexcept {
    *time = hal_test::timing::now;
    return 0;
}
int usleep(useconds_t time) {
    hal_test::timing::slept = time;
    return hal_test::timing::sleep_result;
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
}

namespace hal_test::timing {
namespace {

TEST(Timing, DelayCountsItsMicrosecondsIn32Bits) {
    const std::vector<std::pair<uint32_t, useconds_t>> cases{
        {0, 0}, {1, 1000}, {4294967, 4294967000}, {4294968, 704}, {UINT_MAX, 4294966296}};
    for (const auto& [ms, microseconds] : cases) {
        slept = 1;
        EXPECT_EQ(systick_delayms(ms), 0);
        EXPECT_EQ(slept, microseconds) << ms;
    }
    sleep_result = -1;
    EXPECT_EQ(systick_delayms(1), -1);
    sleep_result = 0;
}

TEST(Timing, SystemTimeWrapsAndDifferencesSurviveIt) {
    now = {4294, 967295};
    const uint32_t before = tim_get_systime();
    EXPECT_EQ(before, UINT_MAX);
    now = {4294, 967296};
    EXPECT_EQ(tim_get_systime(), 0U);
    now = {4295, 0};
    EXPECT_EQ(tim_get_systime() - before, 32705U);
    now = {1700000000, 123456};
    EXPECT_EQ(tim_get_systime(), static_cast<uint32_t>(1700000000123456ULL));
}

TEST(Timing, IntervalIsTakenIn32Bits) {
    EXPECT_EQ(calc_time_interval({5, 900000}, {7, 100000}), 1200000);
    EXPECT_EQ(calc_time_interval({7, 100000}, {5, 900000}), -1200000);
    EXPECT_EQ(calc_time_interval({0, 0}, {2147, 483647}), INT_MAX);
    EXPECT_EQ(calc_time_interval({0, 0}, {2147, 483648}), INT_MIN);
    EXPECT_EQ(calc_time_interval({0, 0}, {4294, 967297}), 1);
    EXPECT_EQ(calc_time_interval({kLeast, kLeast}, {kMost, kMost}), -1000001);
    EXPECT_EQ(calc_time_interval({kMost, 0}, {kLeast, 0}), 1000000);
}

TEST(Timing, TimeIsLoggedInMilliseconds) {
    log_set_quiet(true);
    hal_test::LogTap::instance().take();
    now = {1700000000, 123999};
    pri_time();
    EXPECT_THAT(hal_test::LogTap::instance().take_lines(),
                testing::ElementsAre("INFO 1700000000123\n"));
}

TEST(Timing, PathsExistOrDoNot) {
    const std::string absent = std::filesystem::temp_directory_path() / "no.such.path";
    for (const auto test : {is_dir_exist, dir_exist}) {
        EXPECT_EQ(test("/"), 1);
        EXPECT_EQ(test("/proc/self/status"), 1);
        EXPECT_EQ(test(absent.c_str()), 0);
        EXPECT_EQ(test(""), 0);
        EXPECT_EQ(test(nullptr), 0);
    }
}

TEST(Timing, InputFrequencyIsNotTouched) {
    uint32_t frequency = 77;
    EXPECT_EQ(operation_video_get_inputfreq(1, &frequency), 0);
    EXPECT_EQ(operation_video_get_inputfreq(1, nullptr), 0);
    EXPECT_EQ(frequency, 77U);
}

} // namespace
} // namespace hal_test::timing
