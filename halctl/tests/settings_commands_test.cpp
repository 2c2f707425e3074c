// halctl env, config and vendor on a board, and what of them outlives a board.

#include "tools.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace halctl_tests {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

TEST(SettingsCommands, ReadAndWriteTheStores) {
    const CommandResult result = on_board(
        "fw_setenv bootdelay 3; halctl env get bootdelay; halctl env set bootdelay 4 --json\n"
        "fw_printenv -n bootdelay; halctl env set bootdelay; halctl env get bootdelay; echo $?\n"
        "halctl config set hostname desk; halctl config get hostname --json\n"
        "halctl vendor write 7 c0ffee; halctl vendor read 7 4; halctl vendor read 7 3 --json");
    EXPECT_EQ(result.out, "3\n{\"name\":\"bootdelay\",\"value\":\"4\"}\n4\n1\n"
                          "{\"name\":\"hostname\",\"value\":\"desk\"}\n"
                          "c0ffee00\n{\"id\":7,\"data\":\"c0ffee\"}\n");
    EXPECT_EQ(result.err, "halctl: env get bootdelay: it is not set\n");
}

TEST(SettingsCommands, NothingOfAValueIsRunByAShell) {
    for (const char* group : {"env", "config"}) {
        const CommandResult result = on_board(
            "cd /dev/shm; v='$(touch a); `touch b` & \"c\" > d \\ '\\''*'\\'' ~ 输入'\n"
            "halctl " +
            std::string(group) + " set x \"$v\" && halctl " + group + " get x; ls; halctl " +
            group + " set 'x;touch a' 1; echo $?; halctl " + group + " set x -v; echo $?; ls");
        EXPECT_EQ(result.out, "$(touch a); `touch b` & \"c\" > d \\ '*' ~ 输入\n64\n64\n")
            << group << result.err;
        EXPECT_THAT(result.err, HasSubstr("\"x;touch a\" is no name of a setting"));
    }
}

TEST(SettingsCommands, FailuresAreTold) {
    const CommandResult result = on_board(
        "vboard ctl fault add /dev/block/by-name/env:write:EIO >/dev/null\n"
        "halctl env set x 1 --timeout 0.1 2>&1 | grep halctl\n"
        "halctl env set x $(printf %0120d 1) 2>&1; halctl config get nothing 2>&1\n"
        "halctl vendor read 9 2>&1; vboard ctl node vanish /dev/vendor_storage\n"
        "halctl vendor read 9 2>&1; echo $?; halctl vendor read 65536 2>/dev/null; echo $?");
    EXPECT_EQ(result.out,
              "halctl: env set x: /usr/bin/fw_setenv was started, but 0.1 seconds later it is not "
              "done\n"
              "halctl: env set x: the command would be longer than 127 characters: not run\n"
              "vboard: there is no setting \"nothing\"\n"
              "halctl: config get nothing: /usr/bin/sysconfig prints no value\n"
              "halctl: vendor read 9: No such file or directory (there is no such item)\n"
              "halctl: vendor read 9: cannot open /dev/vendor_storage: No such file or directory\n"
              "69\n64\n");
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
} // namespace halctl_tests
