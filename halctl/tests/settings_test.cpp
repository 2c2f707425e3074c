// halctl env, config and vendor on a board, and what of them outlives a board.

#include "tools.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace halctl_tests::settings {
namespace {

namespace fs = std::filesystem;

TEST(SettingsCommands, NothingOfAValueIsRunByAShell) {
    for (const char* group : {"env", "config"}) {
        const CommandResult result =
            on_board("cd /dev/shm; v='$(touch a); `touch b` & \"c\" > d \\ '\\''*'\\'' ~ 输入'\n"
                     "halctl " +
                     std::string(group) + " set x \"$v\" && halctl " + group +
                     " get x; ls; halctl " + group + " set 'x;touch a' 1; echo $?; ls");
        EXPECT_EQ(result.out, "$(touch a); `touch b` & \"c\" > d \\ '*' ~ 输入\n64\n")
            << group << result.err;
    }
}

TEST(SettingsCommands, TheStoresOutliveTheBoard) {
    std::string state = fs::temp_directory_path() / "settings-test-XXXXXX";
    ASSERT_NE(mkdtemp(state.data()), nullptr);
    const auto on_kept_board = [&](const char* script) {
        return run({"vboard", "run", "--state", state, "--", "sh", "-c", script}).out;
    };
    constexpr char kShow[] = "fw_printenv -n bootdelay; sysconfig get language\n"
                             "vboard ctl vendor list";
    EXPECT_EQ(on_kept_board(kShow), "2\nen\n{}\n");
    EXPECT_EQ(on_kept_board("halctl env set bootdelay 9; sysconfig set language '\\\"'\n"
                            "halctl vendor write 1 00; halctl vendor write 2 ff"),
              "");
    EXPECT_EQ(on_kept_board(kShow), "9\n\\\"\n{\"1\":\"00\",\"2\":\"ff\"}\n");
    // An environment of which neither copy verifies is that of a new board again.
    on_kept_board("head -c 32768 /dev/zero > /dev/block/by-name/env");
    EXPECT_EQ(on_kept_board(kShow), "2\n\\\"\n{\"1\":\"00\",\"2\":\"ff\"}\n");
    fs::remove_all(state);
}

} // namespace
} // namespace halctl_tests::settings
