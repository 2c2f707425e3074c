// What commands say and how they end when something is in the way. That they work when nothing is
// shows in the documents, whose test compares what they print.

#include "tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace halctl_tests::failures {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

struct Failure {
    const char* before; // what is done to the board first
    const char* line;
    int status;
    const char* said; // the end of what is said
};

constexpr char kMisc[] = "vboard ctl node vanish /dev/block/by-name/misc";
constexpr char kFiles[] = "head -c 100 /dev/zero > payload; halctl image pack payload image\n"
                          "head -c 9000000 /dev/zero > zeros; halctl image pack zeros big\n"
                          "vboard ctl node vanish /dev/block/by-name/oem_b";

constexpr Failure kFailures[] = {
    // the driver refuses
    {"", "gpio get 8", 1, "gpio get 8: No such device or address (is the line configured?)"},
    {"halctl gpio config 3", "gpio set 3 1", 1, "Operation not permitted (is the line an output?)"},
    {"", "i2c read 2 0x11 00", 1, "i2c read 2 0x11: No such device or address"},
    {"", "i2c write 2 0x11 00 00", 1, "i2c write 2 0x11: No such device or address"},
    {"", "fpga write 0xffffffff 0102", 1, "fpga write 0xffffffff: Invalid argument"},
    {"vboard ctl i2c mute 3 0x6a 1", "clock init 3", 1, "the chip does not do as it is told"},
    {"", "clock trim 0 1 up", 1, "this kind of chip cannot do that"},
    {"", "clock set 0 3 25000000", 1, "only outputs 4 to 7 can be set"},
    {"", "clock set 2 5 25000000", 1, "output 5 cannot give 25000000 Hz"},
    {"", "led set 64 on", 1, "led set 64: Invalid argument"},
    {"", "oled display on --index 9", 1, "(is there such a panel, and room at that place?)"},
    {"", "vendor read 9", 1, "No such file or directory (there is no such item)"},
    {"vboard ctl fault add '/sys/class/gpio/gpio12/direction:write:EIO'", "sysgpio set 12 1", 1,
     "sysgpio set 12: Input/output error"},
    {"vboard ctl fault add '/dev/vgen:ioctl=GEN_GET_CLKRATE:EIO:once'", "genlock status", 1,
     "genlock status: Input/output error"},
    // what it goes to is missing
    {"vboard ctl node vanish /dev/i2c-2", "i2c read 2 0x54 0000", 69,
     "cannot open /dev/i2c-2 or /dev/i2c/2: No such file or directory"},
    {"", "i2c scan 77", 69,
     "i2c scan 77: cannot open /dev/i2c-77 or /dev/i2c/77: No such file or directory"},
    {"vboard ctl node vanish /dev/fpgavm", "fpga watch", 69,
     "fpga watch: cannot open /dev/fpgavm: No such file or directory"},
    {"vboard ctl node vanish /dev/keypad", "keys watch", 69,
     "keys watch: cannot open /dev/keypad: No such file or directory"},
    {"", "tbar get 9", 69, "tbar get 9: cannot open /dev/tbar9: No such file or directory"},
    {"", "sysgpio get 512", 69,
     "sysgpio get 512: cannot open /sys/class/gpio/gpio512/value: No such file or directory"},
    {"", "link get eth7", 69,
     "link eth7: the name is no adapter of this board, or part of several "
     "names"},
    {kMisc, "slot show", 69, "cannot open /dev/block/by-name/misc: No such file or directory"},
    {kMisc, "slot switch", 69, "cannot open /dev/block/by-name/misc: No such file or directory"},
    {kMisc, "slot retry a 1", 69, "cannot open /dev/block/by-name/misc: No such file or directory"},
    // a board that has no record yet
    {"", "slot now", 0, "warning: the record was not valid; it has been set to the defaults"},
    // images
    {kFiles, "image pack no-such x", 69, "cannot open no-such: No such file or directory"},
    {kFiles, "image check no-such", 69, "cannot open no-such: No such file or directory"},
    {kFiles, "image check payload", 1, "image check: there is no OEM image"},
    {kFiles, "image check image --length 60", 1, "the digest in the header is not the payload's"},
    {kFiles, "image write payload system", 1, "image write: there is no OEM image"},
    {kFiles, "image write image vbmeta", 1,
     "the slot that does not run has no partition \"vbmeta\""},
    {kFiles, "image write big custom", 1, "custom_b cannot be written, or is too small"},
    {kFiles, "image write image oem", 69,
     "cannot open /dev/block/by-name/oem_b: No such file or directory"},
    {kFiles, "md5 no-such", 69, "md5: cannot open no-such: No such file or directory"},
    {kFiles, "md5 /dev", 69, "md5: cannot open /dev: Is a directory"},
    {kFiles, "md5 payload --offset 99 --size 2", 1, "payload has 100 bytes: not 2 from 99 on"},
    {kFiles, "md5 payload --offset 101", 1, "payload has 100 bytes: not 0 from 101 on"},
    {kFiles, "md5 payload --size 9223372036854775807", 1, "not 9223372036854775807 from 0 on"},
    // sticks and the sensor link
    {"head -c 4097 /dev/zero >long", "sensor send @long", 1, "long has more than 4096 bytes"},
    {"", "sensor send @/dev", 69, "sensor send: cannot open /dev: Is a directory"},
    {"vboard ctl fault add '/dev/sensor_usb:ioctl=CMD_SUSB_ELEAR_DATA_FLAG:EIO:once'",
     "sensor flags 0100", 1, "sensor flags: Input/output error"},
    {"vboard ctl node vanish /dev/sensor_usb", "sensor watch", 69,
     "sensor watch: cannot open /dev/sensor_usb: No such file or directory"},
    // settings
    {"vboard ctl fault add /dev/block/by-name/env:write:EIO", "env set x 1 --timeout 0.1", 1,
     "/usr/bin/fw_setenv was started, but 0.1 seconds later it is not done"},
    {"", "env set x $(printf %0120d 1)", 1,
     "the command would be longer than 127 characters: not run"},
    {"", "config get nothing", 1, "/usr/bin/sysconfig prints no value"},
    {"", "config set x -- -v", 1, "/usr/bin/sysconfig would take \"-v\" for an option"},
    // a watch that gets less than it wants
    {"", "gpio watch --timeout 0.05 --count 1", 1, "gpio watch: 0 of 1 events came within 0.05 s"},
    {"", "oled text é", 1, "The content you have entered does not conform to the limits!"},
};

TEST(Failures, AreToldWithTheirCauseAndNothingElse) {
    for (const Failure& each : kFailures) {
        SCOPED_TRACE(each.line);
        const CommandResult result =
            on_board(std::string("cd /dev/shm; { ") + (*each.before == 0 ? ":" : each.before) +
                     "\n} >/dev/null; halctl " + each.line);
        EXPECT_EQ(result.status, each.status);
        EXPECT_EQ(result.out.find("halctl"), std::string::npos);
        EXPECT_THAT(result.err, EndsWith(each.said + std::string("\n")));
        EXPECT_THAT(result.err, MatchesRegex("(halctl: warning: .*\n)*halctl: .*\n"));
    }
}

TEST(Failures, ARefusedOpenIsToldFromARefusalEvenWhenItHappensOnce) {
    const CommandResult result =
        on_board("halctl gpio config 3; "
                 "for words in 'get 3' 'set 3 1' 'config 3' 'release 3' 'watch'; do "
                 "vboard ctl fault add /dev/drvgpio:open:EACCES:once >/dev/null; "
                 "halctl gpio $words; echo $?; done; halctl gpio get 3");
    EXPECT_EQ(result.out, "69\n69\n69\n69\n69\n0\n");
    EXPECT_EQ(result.err, "halctl: gpio get 3: cannot open /dev/drvgpio: Permission denied\n"
                          "halctl: gpio set 3: cannot open /dev/drvgpio: Permission denied\n"
                          "halctl: gpio config 3: cannot open /dev/drvgpio: Permission denied\n"
                          "halctl: gpio release 3: cannot open /dev/drvgpio: Permission denied\n"
                          "halctl: gpio watch: cannot open /dev/drvgpio: Permission denied\n");
}

TEST(Failures, WarningsAreShownAndTheRestOfTheLogIsWhenWanted) {
    const CommandResult quiet =
        on_board("halctl gpio config 5 --name 1234567890123456789012345678901");
    EXPECT_EQ(quiet.err, "halctl: warning: gpio name id too long, use default name!!\n");
    const CommandResult verbose = on_board("halctl gpio watch --timeout 0.01 --verbose");
    EXPECT_THAT(verbose.err, HasSubstr("INFO  hal_gpio:"));
    EXPECT_THAT(on_board("halctl --verbose fpga read 0x10000 1").err,
                HasSubstr("SPIDEV_IOCTL read error\n"));
}

TEST(I2cScan, TakesEveryWordOfAnAdapterForSilence) {
    for (const char* error : {"ETIMEDOUT", "EIO", "EREMOTEIO"}) {
        const CommandResult result =
            run({"vboard", "run", "--fault",
                 std::string("/dev/i2c-2:ioctl=I2C_RDWR:") + error + ":after=3", "--", "halctl",
                 "i2c", "scan", "2"});
        EXPECT_EQ(result.status, 0) << error;
        EXPECT_EQ(result.out, "nobody answers\n") << error;
    }
}

TEST(I2cScan, TriesTheSecondPatternOfABusNode) {
    const auto file = std::filesystem::path(testing::TempDir()) / "second_pattern.json";
    std::ofstream(file) << R"({"name": "second", "models": [
        {"model": "i2c_adapter", "bus": 3, "pattern": "second"},
        {"model": "idt6965", "device": 0, "bus": 3, "address": "0x6A"}]})";
    const CommandResult second =
        run({"vboard", "run", "--board", file.string(), "--", "halctl", "i2c", "scan", "3"});
    EXPECT_EQ(second.out, "0x6a\n") << second.err;
    std::filesystem::remove(file);
}

// The settings of the kernel that a gentle backup changes are put back, and the half bar goes.
TEST(ImageBackup, ASignalEndsItInGoodOrder) {
    for (const char* signal : {"INT", "TERM"}) {
        const CommandResult result = on_board(
            std::string("cd /proc/sys/vm; cat dirty_ratio dirty_background_ratio\n"
                        "halctl image backup boot --delay 60000 &\n"
                        "until [ $(cat dirty_ratio) = 1 ]; do :; done\n"
                        "until [ $(vboard ctl node opens /dev/block/by-name/boot_b) = 1 ]; do :; "
                        "done\nkill -") +
            signal + " $!; wait $!; echo $?; cat dirty_ratio dirty_background_ratio");
        EXPECT_EQ(result.out,
                  std::string("20\n10\n") + (*signal == 'I' ? "130" : "143") + "\n20\n10\n");
        EXPECT_THAT(result.err, StartsWith("halctl: image backup: interrupted\n"));
    }
}

} // namespace
} // namespace halctl_tests::failures
