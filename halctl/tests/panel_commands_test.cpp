// halctl keys, led and tbar on a board.

#include "tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace halctl_tests {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

// `opened NODE` waits until somebody has it open.
CommandResult on_panel(const std::string& script) {
    return on_board("opened() { until [ \"$(vboard ctl node opens $1)\" = 1 ]; do :; done; }\n" +
                    script);
}

TEST(PanelCommands, KeysAreWatched) {
    const CommandResult result =
        on_panel("halctl keys watch --count 2 --timeout 20 --json & opened /dev/keypad\n"
                 "vboard ctl keypad press 7; wait $!");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, ContainsRegex("\"key\":7,\"state\":1,\"number\":1,\"stamp\":.*\n"
                                          ".*\"key\":7,\"state\":0,\"number\":2,"));
}

TEST(PanelCommands, LedsAreSetAndRefusalsTold) {
    const CommandResult result =
        on_panel("halctl led set 3 blink --on 200 --off 800 --brightness 9 --colour 00ff10 --json\n"
                 "vboard ctl led show 3; halctl led set 64 on; echo $?\n"
                 "vboard ctl node vanish /dev/led; halctl led set 3 off; echo $?\n"
                 "vboard ctl node vanish /dev/keypad; halctl keys watch; echo $?\n");
    EXPECT_THAT(result.out,
                ContainsRegex("^\\{\"led\":3,\"mode\":\"blink\",\"on_ms\":200,\"off_ms\":800,"
                              "\"brightness\":9,\"colour\":\"00ff10\"\\}\n"
                              ".*\"brightness\":9,\"colour\":\"00ff10\"\\}\n1\n69\n69\n$"));
    EXPECT_EQ(result.err, "halctl: led set 64: Invalid argument\n"
                          "halctl: led set 3: cannot open /dev/led: No such file or directory\n"
                          "open keypad error: No such file or directory\n"
                          "halctl: keys watch: cannot open /dev/keypad: No such file or "
                          "directory\n");
}

TEST(PanelCommands, ATbarIsReadLockedAndWatched) {
    const CommandResult result =
        on_panel("vboard ctl tbar move 1 512 >/dev/null; halctl tbar lock 1 1; halctl tbar read 1\n"
                 "halctl tbar lock 1 0 --json; halctl tbar read 1 --json\n"
                 "halctl tbar watch 0 --count 1 --timeout 20 & opened /dev/tbar0\n"
                 "vboard ctl tbar move 0 3 >/dev/null; wait $!\n"
                 "halctl tbar read 9; echo $?");
    EXPECT_THAT(result.out, ContainsRegex("^512  locked\n\\{\"tbar\":1,\"lock\":0\\}\n"
                                          "\\{\"tbar\":1,\"position\":512,\"moving\":false,"
                                          "\"locked\":false\\}\n[0-9:.]+  tbar 0  3\n69\n$"));
    EXPECT_EQ(result.err,
              "halctl: tbar read 9: cannot open /dev/tbar9: No such file or directory\n");
}

TEST(PanelCommands, OnATerminalATbarIsABarInPlace) {
    const CommandResult result =
        on_panel("script -qefc 'halctl tbar watch 0 --count 1 --timeout 20' /dev/null & "
                 "opened /dev/tbar0; vboard ctl tbar move 0 512 >/dev/null; wait $!");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out,
                HasSubstr("\r[####################--------------------] 512\033[K\r\n"));
}

} // namespace
} // namespace halctl_tests
