// The bridge disk as Debian's sg3-utils see it, on boards that find it in time, late or never.

#include "tests/run_on_board.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vb::bridge_disk_test {
namespace {

using testing::HasSubstr;

constexpr char kFirst[] = "PATH=$PATH:/sbin:/usr/sbin\n";
constexpr char kRead[] = "sg_raw -r 2560 /dev/sda 28 0 0 0 0 0 0 0 5 0";
constexpr char kBoot[] = "for line in 494 492 493; do vboard ctl gpio drive $line 1; done\n"
                         "until vboard ctl mcu show | grep -q running; do :; done\n";

CommandResult sh(const std::string& script) {
    return sh_on_board(kFirst + script);
}

TEST(BridgeDisk, IsADiskForSg3Utils) {
    const CommandResult asked = sh("sg_inq /dev/sda && sg_inq -p sn /dev/sda && sg_turs /dev/sda "
                                   "&& sg_readcap /dev/sda && sg_readcap --16 /dev/sda");
    EXPECT_EQ(asked.status, 0) << asked.err;
    EXPECT_THAT(asked.out, HasSubstr("Vendor identification: ATA     \n"));
    EXPECT_THAT(asked.out, HasSubstr("Product identification: WCH SD to SATA T\n"));
    EXPECT_THAT(asked.out, HasSubstr("Product revision level: .0  \n"));
    EXPECT_THAT(asked.out, HasSubstr("Unit serial number: 00000000000000000001"));
    EXPECT_THAT(asked.out, HasSubstr("Number of logical blocks=2048"));
}

TEST(BridgeDisk, HasThePagesThatLibataMakes) {
    const CommandResult asked = sh("sg_vpd -H -p 0x00 /dev/sda; sg_vpd -H -p 0x83 /dev/sda\n"
                                   "sg_modes -a -H /dev/sda; sg_modes -6 -a -H /dev/sda\n"
                                   "sg_modes -c 1 -p 8 -H /dev/sda\n");
    EXPECT_THAT(asked.out, HasSubstr("00 00 00 08 00 80 83 89  b0 b1 b2 b9"));
    EXPECT_THAT(asked.out, HasSubstr("00 83 00 60 02 00 00 14  30 30 30 30"));
    EXPECT_THAT(asked.out, HasSubstr("00     00 3a 00 00 00 00 00 08  00 00 00 00 00 00 02 00\n"
                                     " 10     01 0a 80 00 00 00 00 00  00 00 00 00 08 12 04 00\n"));
    EXPECT_THAT(asked.out, HasSubstr("00     37 00 00 08 "));
}

TEST(BridgeDisk, HandsPacketsOverToSgRaw) {
    const CommandResult asked =
        sh(std::string(kRead) + "; echo \"off: $?\"\n" + kBoot +
           "vboard ctl mcu send 0xE1001005 01\n" + kRead + " | head -n 5\n" +
           "{ printf '\\125\\273\\0\\0\\0\\1\\0\\0\\030\\0\\140\\1'; head -c 10 /dev/zero\n"
           "  printf '\\3\\020\\0\\341\\0\\0\\2\\0\\1\\0'; head -c 2528 /dev/zero; } |\n"
           "sg_raw -s 2560 /dev/sda 2a 0 0 0 0 0 0 0 5 0\n"
           "vboard ctl mcu show\n");
    EXPECT_THAT(asked.out, HasSubstr("off: 2\n"));
    EXPECT_THAT(asked.err + asked.out, HasSubstr("Sense key: Not Ready"));
    EXPECT_THAT(asked.err + asked.out, HasSubstr("bb 55 00 00 00 01 01 00  17 00 60 01"));
    EXPECT_THAT(asked.out, HasSubstr("\"attached\":true"));
}

TEST(BridgeDisk, IsFoundInTimeLateOrNever) {
    const TemporaryFolder folder;
    const auto on_board_with = [&](const std::string& settings, const std::string& script) {
        const std::string file = folder / "board.json";
        std::ofstream(file) << R"({"models": [{"model": "gpio"}, {"model": "sysfs_gpio"},)"
                            << R"({"model": "mcu_bridge", "host": "", )" << settings << "}]}";
        return on_board({"--board", file, "--speed", "20", "--", "sh", "-c", script});
    };
    const std::string there = "test -d /sys/devices/platform/soc/10390000.sata/ata1/host0/target0*";
    EXPECT_EQ(on_board_with(R"("disk": "sdb")", "test -f /dev/sdb && " + there).status, 0);
    EXPECT_EQ(on_board_with(R"("appear_ms": 20000)",
                            there + " && exit 1; until " + there + "; do :; done")
                  .status,
              0);
    EXPECT_EQ(on_board_with(R"("appears": false)", "sleep 5; " + there).status, 1);
    EXPECT_EQ(on_board_with(R"("vbus": "sysgpio:512")", "true").status, 64);
}

// A command is not ended by signals, but a program is.
TEST(BridgeDisk, LetsAProgramDieInACommand) {
    const CommandResult asked = sh(std::string(kBoot) + "vboard ctl mcu hang 1\ntimeout 1 " +
                                   kRead + "; echo \"ended $?\"");
    EXPECT_THAT(asked.out, HasSubstr("ended 124"));
}

TEST(SocRegisters, AreReadAndWrittenByBspmm) {
    const CommandResult asked = sh("bspmm 0x10FF0100 0x1200 && bspmm 0x10FF0100; bspmm 0x10FF0104\n"
                                   "bspmm 0x10FF0101; echo $?; bspmm 1 2 3; echo $?");
    EXPECT_EQ(asked.out, "0x10FF0100: 0x00001200\n0x10FF0104: 0x00000000\n1\n64\n");
}

} // namespace
} // namespace vb::bridge_disk_test
