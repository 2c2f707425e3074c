// The examples on a board, and the demo as a whole.

#include "tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace halctl_tests {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(GpioButton, LetsTheLampFollowTheButtonAndTidiesUp) {
    const CommandResult result =
        on_board("gpio_button 7 8 2 >/dev/shm/out &\n"
                 "until vboard ctl gpio show 7 | grep -q '\"configured\":true'; do :; done\n"
                 "said() { until [ \"$(grep -c \"$1\" /dev/shm/out)\" = $2 ]; do :; done; }\n"
                 "level() { vboard ctl gpio show 8 | grep -o '\"level\":.'; }\n"
                 "drive 7 1; said pressed 1; level; drive 7 0; said released 1; level\n"
                 "drive 7 1; said pressed 2; drive 7 0\n"
                 "wait $!; echo $?; cat /dev/shm/out; vboard ctl gpio list");
    EXPECT_EQ(result.out, "\"level\":1\n\"level\":0\n0\n"
                          "button pressed, lamp on\nbutton released, lamp off\n"
                          "button pressed, lamp on\nbutton released, lamp off\n"
                          "{\"lines\":[],\"overflows\":0}\n");
    EXPECT_EQ(result.err, "");
}

TEST(GpioButton, EndsByASignalAndFailsWithoutABoard) {
    const CommandResult stopped =
        on_board("gpio_button & listening; kill -INT $!; wait $!; echo $?");
    EXPECT_EQ(stopped.out, "0\n") << stopped.err;
    const CommandResult alone =
        on_board("vboard ctl node vanish /dev/drvgpio; gpio_button; echo $?");
    EXPECT_EQ(alone.out, "1\n");
    EXPECT_THAT(alone.err, HasSubstr("open drvgpio error"));
}

TEST(Clocks, SetAllFiveChipsToWithinAMillionth) {
    const CommandResult result = on_board("clocks; echo $?");
    for (const char* chip :
         {"cdcm6208    0       7", "cdcm6208    1       7", "idt6965     0       4",
          "idt6965     1       4", "idt6965     2       4"}) {
        EXPECT_THAT(result.out, HasSubstr(chip));
    }
    EXPECT_THAT(result.out, HasSubstr("0 outputs off by a millionth or more\n0\n")) << result.err;
    EXPECT_THAT(result.out, Not(HasSubstr("no signal")));
    EXPECT_THAT(result.out, Not(HasSubstr("out of reach")));
}

TEST(Clocks, SayWhichChipIsMissing) {
    const CommandResult result = on_board("vboard ctl i2c mute 6 0x6a 1; clocks; echo $?");
    EXPECT_THAT(result.out, HasSubstr("\n1\n"));
    EXPECT_THAT(result.err, HasSubstr("idt6965 0 does not verify"));
}

TEST(GenlockExample, LocksOnBoardsOfItsOwnAndDrawsTheSameEachTime) {
    const std::string script =
        "cd $(mktemp -d) && genlock --rates 100 --steps 700 --out a && "
        "genlock --rates 100 --steps 700 --out b >b.txt && cmp a/100_2640x1125.png "
        "b/100_2640x1125.png && cmp a/100_1980x750.csv b/100_1980x750.csv && "
        "head -c 4 a/100_5280x2250.png | tail -c 3 && tail -n 1 a/100_5280x2250.svg\n"
        "genlock --rate 30 --steps 20 --out c; echo $?; rm -r \"$PWD\"";
    const CommandResult result = run({"sh", "-c", script});
    EXPECT_EQ(result.err, "");
    for (const char* row :
         {"\n100.00  2640x1125  +0.0      +25     +3998     132    260 ",
          "\n100.00  1980x750   +0.0 ", "\n100.00  5280x2250  +0.0 ", "PNG</svg>\n"}) {
        EXPECT_THAT(result.out, HasSubstr(row));
    }
    EXPECT_THAT(result.out, testing::EndsWith("NOT LOCKED\n1\n")) << "twenty steps are too few";
}

TEST(AbUpdate, TellsTheWholeStoryAndSurvivesPowerCuts) {
    const CommandResult story = run({"vboard", "run", "--", "ab_update", "--seed", "3"});
    EXPECT_EQ(story.status, 0) << story.err;
    EXPECT_THAT(story.out, HasSubstr("slot b runs system 2, confirmed\n"));
    EXPECT_THAT(story.out, HasSubstr("refused, slot a is untouched\n"));
    EXPECT_THAT(story.out, HasSubstr("slot b runs system 2 again, whole; slot a is torn\n"));
    EXPECT_THAT(story.out, HasSubstr("its 3 tries are used up: slot b runs system 2 again"));
    const CommandResult rounds = run({"vboard", "run", "--", "ab_update", "--rounds", "20"});
    EXPECT_EQ(rounds.status, 0) << rounds.err;
    EXPECT_THAT(rounds.out, HasSubstr("20 of 20 power cuts left a whole, verified system"));
    EXPECT_THAT(run({"ab_update"}).err, HasSubstr("ab_update: "));
}

TEST(Demo, ShowsButtonEdgeLampTraceAndClocks) {
    const CommandResult result = run({SOURCE "/examples/demo", BUILD});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("button pressed, lamp on\n"));
    EXPECT_THAT(result.out, HasSubstr("line=7 value=1 label=button"));
    EXPECT_THAT(result.out, HasSubstr("\"label\":\"lamp\",\"direction\":\"out\",\"trigger\":0,"
                                      "\"interrupt\":false,\"param\":0,\"level\":1}"));
    EXPECT_THAT(result.out, HasSubstr("CMD_GPIO_SETVAL line=8 value=1 -> 0\n"));
    EXPECT_THAT(result.out, HasSubstr("0 outputs off by a millionth or more\n"));
    EXPECT_THAT(result.out, HasSubstr("idt6965 frequency 0 1\n25000000.0\n"));
    EXPECT_THAT(result.out,
                HasSubstr("up --steps 3\n$ vboard ctl idt6965 frequency 0 1\n25000000.0894"));
}

} // namespace
} // namespace halctl_tests
