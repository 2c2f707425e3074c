// Commands that print events as they come.

#include "tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace halctl_tests::watch {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

// `opened NODE` waits until somebody has it open.
CommandResult on_watched_board(const std::string& script) {
    return on_board("opened() { until [ \"$(vboard ctl node opens $1)\" = 1 ]; do :; done; }\n" +
                    script);
}

std::vector<json> objects(const std::string& text) {
    std::istringstream lines(text);
    std::vector<json> all;
    for (std::string line; std::getline(lines, line);) {
        all.push_back(json::parse(line));
    }
    return all;
}

TEST(GpioWatch, PrintsOnlyTheLinesAskedFor) {
    const CommandResult result =
        on_board("for line in 7 8 9; do halctl gpio config $line --trigger rising; done\n"
                 "halctl gpio watch 8 9 --json --count 2 --timeout 20 & listening\n"
                 "for line in 7 8 9; do drive $line 1; done; wait $!");
    EXPECT_EQ(result.status, 0) << result.err;
    const std::vector<json> edges = objects(result.out);
    ASSERT_EQ(edges.size(), 2U);
    EXPECT_GT(edges[0].at("time").get<double>(), 1e9);
    EXPECT_EQ(edges[0].at("line"), 8);
    EXPECT_EQ(edges[1].at("line"), 9);
    EXPECT_EQ(edges[1].at("value"), 1);
}

TEST(GpioWatch, EndsWellBySignalAndTime) {
    const CommandResult result =
        on_board("for signal in INT TERM; do\n"
                 "halctl gpio watch & listening; kill -$signal $!; wait $!; echo $?; done\n"
                 "halctl gpio watch --timeout 0.05; echo $?");
    EXPECT_EQ(result.out, "0\n0\n0\n");
    EXPECT_THAT(result.err, IsEmpty());
}

TEST(FpgaWatch, EachInterruptIsPrinted) {
    const CommandResult result = on_watched_board(
        "halctl fpga watch --count 3 --timeout 20 & opened /dev/fpgavm\n"
        "vboard ctl fpga interrupt 2 >/dev/null; vboard ctl fpga interrupt >/dev/null\n"
        "wait $!; echo status $?");
    const std::string stamp = "[0-9:]+\\.[0-9]+  interrupt ";
    EXPECT_THAT(result.out, MatchesRegex(stamp + "1\n" + stamp + "2\n" + stamp + "3\nstatus 0\n"));
    EXPECT_THAT(result.err, IsEmpty());
}

TEST(SysgpioWatch, EachChangeIsPrinted) {
    const CommandResult result =
        on_board("reads() { vboard ctl trace read 0 read | grep -o gpio14/value | wc -l; }\n"
                 "after() { until [ $(reads) -ge $1 ]; do :; done; }\n"
                 "level() { vboard ctl sysgpio drive 14 $1 >/dev/null; }\n"
                 "halctl sysgpio watch 14 --count 2 --timeout 20 --json &\n"
                 "after 1; level 1; after 2; level 0; wait $!");
    EXPECT_EQ(result.status, 0) << result.err;
    const std::vector<json> changes = objects(result.out);
    ASSERT_EQ(changes.size(), 2U);
    EXPECT_EQ(changes[0].at("value"), 1);
    EXPECT_EQ(changes[1].at("value"), 0);
    EXPECT_EQ(changes[1].at("line"), 14);
}

TEST(KeysWatch, ProgramsGetTheDriversFields) {
    const CommandResult result =
        on_watched_board("halctl keys watch --count 2 --timeout 20 --json & opened /dev/keypad\n"
                         "vboard ctl keypad press 7 >/dev/null; wait $!");
    const std::vector<json> keys = objects(result.out);
    ASSERT_EQ(keys.size(), 2U) << result.err;
    EXPECT_EQ(keys[0].at("key"), 7);
    EXPECT_EQ(keys[0].at("state"), 1);
    EXPECT_EQ(keys[1].at("state"), 0);
    EXPECT_EQ(keys[1].at("number"), 2);
}

TEST(Watches, DrawInPlaceOnATerminal) {
    const CommandResult tbar =
        on_watched_board("script -qefc 'halctl tbar watch 0 --count 1 --timeout 20' /dev/null & "
                         "opened /dev/tbar0; vboard ctl tbar move 0 512 >/dev/null; wait $!");
    EXPECT_EQ(tbar.status, 0) << tbar.err;
    EXPECT_THAT(tbar.out, HasSubstr("\r[####################--------------------] 512\033[K\r\n"));
    const CommandResult temperature =
        on_board("script -qefc 'halctl temp watch --interval 0.02 --timeout 0.05' /dev/null");
    EXPECT_THAT(temperature.out, testing::ContainsRegex("\r[0-9.]+ °C\033\\[K.*\r\n$"));
}

} // namespace
} // namespace halctl_tests::watch
