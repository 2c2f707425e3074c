// halctl otg, mcu, hid and disk, as the host at the other end of the board's USB device port sees
// them.

#include "tools.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace halctl_tests::usb_port {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

// `typing` and `disk` wait for the host: until something is typed, until it knows a disk.
CommandResult on_usb_board(const std::string& script, const char* speed = "20") {
    const std::string helpers =
        "typing() { until vboard ctl host typed 2>/dev/null | grep -q xx; do :; done; }\n"
        "disk() { until vboard ctl host disk_info 2>/dev/null | grep -q 'known\":true'; do :; "
        "done; }\n";
    return run({"vboard", "run", "--speed", speed, "--", "sh", "-c", helpers + script});
}

// Whichever way it goes, the host sees the same.
class PortVia : public testing::TestWithParam<const char*> {
  protected:
    // Over the MCU reports have a quarter of a second of the board's to get to the host, which a
    // slow machine does not keep up with.
    static CommandResult on_usb_board(const std::string& script) {
        const std::string way = GetParam();
        return usb_port::on_usb_board("via='--via " + way + "'\n" + script,
                                      HAL_SLOW != 0 && way == "mcu" ? "4" : "20");
    }
};

INSTANTIATE_TEST_SUITE_P(Way, PortVia, testing::Values("soc", "mcu"),
                         [](const auto& way) { return std::string(way.param); });

TEST_P(PortVia, EveryCharacterOfAUsKeyboardArrives) {
    const CommandResult result = on_usb_board(
        "text=$(for i in $(seq 32 126); do printf \"\\\\$(printf %o $i)\"; done)\n"
        "halctl hid type $via \"$text\" || exit\n"
        "vboard ctl host typed | python3 -c 'import json, sys\n"
        "print(json.load(sys.stdin)[\"text\"] == \"\".join(map(chr, range(32, 127))))'");
    EXPECT_EQ(result.out, "True\n") << result.err;
}

TEST_P(PortVia, LongMovesAddUpToTheUnitAndADragEndsWhereItWasAsked) {
    const CommandResult result =
        on_usb_board("halctl hid move $via -- -1000 333; vboard ctl host pointer | tail -n 1\n"
                     "vboard ctl host forget; halctl hid touch $via 1 2 300 400 32767 0; vboard "
                     "ctl trace read 0 "
                     "usb_touch | grep -o '\"contacts\":[^]]*]' | tail -n 4");
    EXPECT_THAT(result.out, HasSubstr("\"x\":-1000,\"y\":333,")) << result.err;
    EXPECT_THAT(result.out, HasSubstr("\"x\":300,\"y\":400"));
    EXPECT_THAT(result.out, HasSubstr("\"tip\":false,\"x\":32767,\"y\":0"));
}

TEST(Hid, ASignalEndsItAndTheKeyIsLetGo) {
    const CommandResult result = on_usb_board(
        "long=$(head -c 100000 /dev/zero | tr '\\0' x); halctl otg up\n"
        "halctl hid type \"$long\" & typing; kill -INT $!; wait $!; echo $?\n"
        "vboard ctl host typed | grep -o '\"down\":.*'; halctl otg status | head -n 1");
    EXPECT_EQ(result.out, "130\n\"down\":[],\"locks\":0}\n"
                          "up on usb-device.0: configured, 0x1d6b:0x0104, hid.kbam0 hid.rm0 "
                          "hid.ts0\n")
        << result.err;
}

// Another program's gadget: its IDs stay, and a device that it left out is missed in words.
TEST(Hid, KeepsTheGadgetThatIsThere) {
    const CommandResult result = on_usb_board(
        "g=/sys/kernel/config/usb_gadget/g1; halctl otg up --vendor 0x1234; halctl otg down\n"
        "halctl hid type a; cat $g/idVendor\n"
        "cat $g/functions/hid.kbam0/report_desc | tail -c 78 > /dev/shm/mouse\n"
        "rm $g/configs/c.1/*.*; rmdir $g/functions/*; mkdir $g/functions/hid.kbam0\n"
        "cat /dev/shm/mouse > $g/functions/hid.kbam0/report_desc; echo 7 > "
        "$g/functions/hid.kbam0/report_length\n"
        "halctl hid type b; echo $?; halctl hid move --to 5 6; vboard ctl host pointer | head -n "
        "1");
    EXPECT_THAT(result.out, HasSubstr("0x1234\n1\n"));
    EXPECT_THAT(result.out, HasSubstr("\"x\":5,\"y\":6,"));
    EXPECT_EQ(result.err, "halctl: hid type: the gadget was made without such a device\n");
}

TEST(Mcu, IsResetBroughtUpAndTakenDown) {
    const CommandResult result = on_usb_board(
        "mcu() { vboard ctl mcu show | grep -oE '\"(state|attached|usb|vendor)\":[^,]*' |\n"
        "sed 's/.*://' | tr -d '\"' | paste -sd ' '; }\n"
        "halctl mcu down; echo $?; halctl mcu up --timeout 9 --vendor 0x1234; mcu; halctl mcu "
        "down; "
        "mcu\n"
        "halctl mcu recover; mcu; halctl mcu reset; mcu; halctl hid key mute --via mcu; echo $?\n"
        "vboard ctl mcu bridge gone; halctl mcu info; echo $?");
    EXPECT_EQ(result.out, "1\nrunning true configured 1234\nrunning false not attached 1234\n"
                          "running true configured 2323\nrunning false not attached 2323\n1\n69\n")
        << result.err;
    EXPECT_THAT(result.err, HasSubstr("SCSI status 2; does the MCU run? Try `halctl mcu up`\n"
                                      "halctl: hid key: the MCU passes no consumer keys on\n"
                                      "halctl: mcu info: cannot open /sys/devices/"));
}

TEST_P(PortVia, TheHostReadsAndWritesADisksImageUntilASignal) {
    std::string folder = fs::temp_directory_path() / "disk-test-XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    const CommandResult result = on_usb_board(
        "cd " + folder +
        "; head -c 1048576 /dev/urandom > image; cp image first; head -c 1024 image > more\n"
        "same() { until cmp -s \"$@\"; do :; done; }\n"
        "halctl disk serve $via image >out & disk\n"
        "vboard ctl host disk_read $PWD/copy >/dev/null; same copy first\n"
        "vboard ctl host disk_write $PWD/more 2047 >/dev/null 2>&1\n"
        "vboard ctl host disk_write $PWD/more 2046 >/dev/null; same -i 1047552:0 image more\n"
        "kill -TERM $!; wait $!; echo $?; cat out; halctl otg status | head -n 1\n"
        "halctl disk serve $via image --read-only >out & disk\n"
        "vboard ctl host unplug; vboard ctl host plug; until [ $(wc -l <out) = 2 ]; do :; done\n"
        "disk; vboard ctl host disk_read $PWD/again >/dev/null; same again image\n"
        "kill -TERM $!; wait $!; echo $?; tail -n 2 out\n"
        "head -c 513 image > odd; halctl disk serve odd; echo $?");
    EXPECT_THAT(result.out, HasSubstr("0\nserving image\n")) << result.err;
    EXPECT_THAT(result.out, HasSubstr("1048576 bytes read, 1024 bytes written\ndown\n0\n"));
    EXPECT_THAT(result.out, HasSubstr(" commands, 1048576 bytes read, 0 bytes written\n1\n"));
    EXPECT_EQ(result.err, "halctl: disk serve: \"odd\": its size is no number of sectors\n");
    fs::remove_all(folder);
}

} // namespace
} // namespace halctl_tests::usb_port
