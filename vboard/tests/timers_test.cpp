#include "core/timers.h"

#include <gtest/gtest.h>

#include <string>

namespace vb::timers_test {
namespace {

TEST(Timers, RunInTheOrderOfTheirTimesThenOfTheirSetting) {
    Timers timers;
    std::string ran;
    timers.at(30, [&] { ran += 'c'; });
    timers.at(10, [&] { ran += 'a'; });
    timers.at(10, [&] { ran += 'b'; });
    EXPECT_EQ(timers.next(), 10);
    timers.run_due(29);
    EXPECT_EQ(ran, "ab");
    timers.run_due(30);
    EXPECT_EQ(ran, "abc");
    EXPECT_FALSE(timers.next());
}

TEST(Timers, MaySetAndCancelOthersWhileTheyRun) {
    Timers timers;
    std::string ran;
    std::uint64_t doomed = 0;
    timers.at(1, [&] {
        ran += '1';
        timers.cancel(doomed);
        timers.at(2, [&] { ran += '2'; });
        timers.at(9, [&] { ran += '9'; });
    });
    doomed = timers.at(3, [&] { ran += '3'; });
    timers.run_due(5);
    EXPECT_EQ(ran, "12");
    EXPECT_EQ(timers.next(), 9);
}

} // namespace
} // namespace vb::timers_test
