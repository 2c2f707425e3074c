// halctl genlock and ptp.

#include "tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace halctl_tests::genlock {
namespace {

using nlohmann::json;
using testing::ContainsRegex;
using testing::HasSubstr;

TEST(GenlockCommands, ASimulationLocksWhereTheClockReachesFarEnough) {
    const CommandResult good = run({"halctl", "genlock", "simulate", "--rate", "59.94", "--raster",
                                    "1650x750", "--steps", "400", "--every", "400", "--json"});
    ASSERT_EQ(good.status, 0) << good.err;
    const json last = json::parse(good.out.substr(good.out.find('\n') + 1));
    EXPECT_EQ(last.at("step"), 400);
    EXPECT_EQ(last.at("state"), "lock");
    EXPECT_NEAR(last.at("clock_hz").get<double>() / (59.94 * 1650 * 750), 1 - 20e-6, 2e-6);
    const CommandResult beyond = run({"halctl", "genlock", "simulate", "--offset", "700"});
    EXPECT_EQ(beyond.status, 1);
    EXPECT_THAT(beyond.err, HasSubstr("not locked after 600 steps"));
}

TEST(GenlockCommands, StatusTellsClockAndFrames) {
    const CommandResult result = run({"vboard", "run", "--speed", "100", "--", "sh", "-c",
                                      "sleep 1; halctl genlock status --json"});
    const json status = json::parse(result.out);
    EXPECT_EQ(status.at("clock_hz"), 148500000);
    EXPECT_NEAR(status.at("frame_hz").get<double>(), 60, 1e-4);
}

TEST(PtpCommands, TheDaemonsRunInTheirRoleAndAreGoneAfterwards) {
    // A stand-in's shell may still be making a child, which is called as itself for a moment.
    const CommandResult result = on_board(
        "daemons() { ps -eo comm=,args= | grep -E '^(ptp4l|phc2sys) '; }\n"
        "both() { until all=$(daemons); [ \"$(echo \"$all\" | sort -u -k1,1 | wc -l)\" = 2 ] &&"
        " [ \"$(echo \"$all\" | wc -l)\" = 2 ]; do :; done; echo \"$all\"; echo .; }\n"
        "halctl ptp on --slave eth1 --json; both; halctl ptp on --master eth0; both; "
        "halctl ptp off; daemons; echo .");
    EXPECT_THAT(result.out, ContainsRegex("^.\"role\":\"slave\",\"interface\":\"eth1\".\n"
                                          "phc2sys +[^\n]*/phc2sys -a -r\n"
                                          "ptp4l +[^\n]*/ptp4l -i eth1 -s\n\\.\n"
                                          "phc2sys +[^\n]*/phc2sys -a -rr\n"
                                          "ptp4l +[^\n]*/ptp4l -i eth0\n\\.\n\\.\n$"))
        << result.err;
}

} // namespace
} // namespace halctl_tests::genlock
