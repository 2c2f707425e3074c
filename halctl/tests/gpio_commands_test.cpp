// halctl gpio on a board.

#include "tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace halctl_tests {
namespace {

using nlohmann::json;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(GpioCommands, LinesAreConfiguredDrivenReadAndReleased) {
    const CommandResult result =
        on_board("halctl gpio config 7 --in --trigger both --name button && drive 7 1 && "
                 "halctl gpio get 7 && halctl gpio config 8 --out --name lamp --param 0 && "
                 "halctl gpio set 8 1 && vboard ctl gpio show 8 && halctl gpio release 8 && "
                 "halctl gpio get 8");
    std::istringstream lines(result.out);
    std::string value;
    std::string lamp;
    std::getline(lines, value);
    std::getline(lines, lamp);
    EXPECT_EQ(value, "1");
    EXPECT_EQ(json::parse(lamp), json({{"line", 8},
                                       {"configured", true},
                                       {"label", "lamp"},
                                       {"direction", "out"},
                                       {"trigger", 0},
                                       {"interrupt", false},
                                       {"param", 0},
                                       {"level", 1}}));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "halctl: gpio get 8: No such device or address (is the line configured?)\n");
}

TEST(GpioCommands, EveryOneAnswersInJson) {
    const CommandResult result =
        on_board("halctl gpio config 8 --out --name lamp --param 1 --json && "
                 "halctl gpio set 8 0 --json && halctl gpio get 8 --json && "
                 "halctl gpio release 8 --json");
    EXPECT_EQ(result.out,
              "{\"line\":8,\"direction\":\"out\",\"trigger\":\"none\",\"name\":\"lamp\","
              "\"param\":1}\n"
              "{\"line\":8,\"value\":0}\n{\"line\":8,\"value\":0}\n{\"line\":8}\n");
    EXPECT_THAT(result.err, IsEmpty());
}

TEST(GpioCommands, AFailedOpenIsToldFromARefusalEvenWhenItHappensOnce) {
    const CommandResult result =
        on_board("halctl gpio config 3; "
                 "for words in 'get 3' 'set 3 1' 'config 3' 'release 3' 'watch'; do "
                 "vboard ctl fault add /dev/drvgpio:open:EACCES:once >/dev/null; "
                 "halctl gpio $words; echo $?; done; "
                 "halctl gpio get 3; echo $?; halctl gpio set 3 1; echo $?");
    EXPECT_EQ(result.out, "69\n69\n69\n69\n69\n0\n0\n1\n");
    EXPECT_EQ(result.err, "halctl: gpio get 3: cannot open /dev/drvgpio: Permission denied\n"
                          "halctl: gpio set 3: cannot open /dev/drvgpio: Permission denied\n"
                          "halctl: gpio config 3: cannot open /dev/drvgpio: Permission denied\n"
                          "halctl: gpio release 3: cannot open /dev/drvgpio: Permission denied\n"
                          "halctl: gpio watch: cannot open /dev/drvgpio: Permission denied\n"
                          "halctl: gpio set 3: Operation not permitted (is the line an output?)\n");
}

TEST(GpioCommands, AFaultOfTheCommandLineStrikesTheFirstCallOnly) {
    const CommandResult result = run({"vboard", "run", "--fault", "/dev/drvgpio:open:EACCES:once",
                                      "--", "halctl", "gpio", "get", "3"});
    EXPECT_EQ(result.status, 69);
    EXPECT_EQ(result.err, "halctl: gpio get 3: cannot open /dev/drvgpio: Permission denied\n");
}

TEST(GpioCommands, WhatTheLibraryLogsIsShownWhenWanted) {
    const CommandResult quiet =
        on_board("halctl gpio config 5 --name 1234567890123456789012345678901");
    EXPECT_EQ(quiet.err, "halctl: warning: gpio name id too long, use default name!!\n");
    const CommandResult verbose = on_board("halctl gpio watch --timeout 0.01 --verbose");
    EXPECT_THAT(verbose.err, HasSubstr("INFO  hal_gpio:"));
    EXPECT_EQ(verbose.status, 0);
}

TEST(GpioCommands, AnEdgeDrivenFromOutsideReachesAWatch) {
    const CommandResult result = on_board("halctl gpio config 7 --in --trigger both --name button\n"
                                          "halctl gpio watch --count 2 --timeout 20 & listening\n"
                                          "drive 7 1; drive 7 0; wait $!; echo status $?");
    EXPECT_THAT(result.out, ContainsRegex("^[0-9:]+\\.[0-9]+  line 7  1\n"
                                          "[0-9:]+\\.[0-9]+  line 7  0\nstatus 0\n$"));
    EXPECT_THAT(result.err, IsEmpty());
}

TEST(GpioCommands, AWatchPrintsOnlyTheLinesAskedFor) {
    const CommandResult result =
        on_board("for line in 7 8 9; do halctl gpio config $line --trigger rising; done\n"
                 "halctl gpio watch 8 9 --json --count 2 --timeout 20 & listening\n"
                 "for line in 7 8 9; do drive $line 1; done; wait $!");
    EXPECT_EQ(result.status, 0) << result.err;
    std::istringstream lines(result.out);
    for (const int number : {8, 9}) {
        std::string line;
        std::getline(lines, line);
        const json edge = json::parse(line);
        EXPECT_EQ(edge.size(), 3U);
        EXPECT_GT(edge.at("time").get<double>(), 1e9);
        EXPECT_EQ(edge.at("line"), number);
        EXPECT_EQ(edge.at("value"), 1);
    }
}

TEST(GpioCommands, AWatchEndsWellBySignalAndTimeButNotWithoutItsCount) {
    const CommandResult result =
        on_board("for signal in INT TERM; do\n"
                 "halctl gpio watch & listening; kill -$signal $!; wait $!; echo $?; done\n"
                 "halctl gpio watch --timeout 0.05; echo $?\n"
                 "halctl gpio watch --timeout 0.05 --count 1; echo $?");
    EXPECT_EQ(result.out, "0\n0\n0\n1\n");
    EXPECT_EQ(result.err, "halctl: gpio watch: 0 of 1 events came within 0.05 s\n");
}

} // namespace
} // namespace halctl_tests
