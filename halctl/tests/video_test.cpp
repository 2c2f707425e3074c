// Video chips as an application and halctl see them, and EDIDs of all kinds.

#include "tools.h"

#include <edid.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

namespace halctl_tests::video {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

TEST(VideoInputs, ServesTheOtherInputsWhenOneFails) {
    const CommandResult result = on_board("vboard ctl i2c mute 54 0x58 1; video_inputs; echo $?");
    EXPECT_THAT(result.out, HasSubstr("\ngsv20xx_dev_init: 4\n"
                                      "  0 on bus 51, mode 2: up, has taken 4 values, served\n"
                                      "  1 on bus 52, mode 2: up, has taken 4 values, served\n"
                                      "  2 on bus 54, mode 2: not up: left alone\n"
                                      "  3 on bus 55, mode 0: up, has taken 4 values, served\n"));
    EXPECT_THAT(result.out, HasSubstr("\n  0 on bus 53, mode 1: up, has taken 6 values, served\n"));
    EXPECT_THAT(result.out, HasSubstr("  name     ZEDA HDMI2.0\n"));
    EXPECT_THAT(result.out, testing::EndsWith("\n1\n"));
}

TEST(HalctlVideo, SaysWhichChipLibraryIsMissing) {
    if (HAL_SANITIZED != 0) {
        GTEST_SKIP() << "built with a sanitizer, halctl has its own folder before all others";
    }
    // What is found for the name of one is another.
    const CommandResult result = on_board(
        "mkdir /dev/shm/p; ln -s " BUILD "/chips/libgsv20xx.so.1 /dev/shm/p/libit6264.so.1\n"
        "export LD_LIBRARY_PATH=/dev/shm/p; halctl video init it6264; echo $?\n"
        "halctl video init gsv20xx; echo $?; halctl video list; halctl doctor | grep missing");
    EXPECT_THAT(result.out, HasSubstr("69\n")) << result.err;
    EXPECT_THAT(result.err,
                HasSubstr("video init it6264: no chip library: neither libit6264.so.1"));
    EXPECT_THAT(result.out,
                HasSubstr("gsv20xx 3  bus 55  address 0x58  reset line 422  up, served\n0\n"));
    EXPECT_THAT(result.out,
                HasSubstr("it6264  0  bus 4   address 0x4c  reset line 323  no chip library\n"));
    EXPECT_THAT(result.out, HasSubstr("missing  function it6615_6264_IcRegister: "));
    EXPECT_THAT(result.out, Not(HasSubstr("missing  function gsv20xx")));
}

// The board's EDID, as another implementation of the standards reads it, and as ours.
TEST(HalctlVideo, TellsTheEdidOfTheInput) {
    const CommandResult result = on_board(
        "cd /dev/shm; halctl video edid --raw >raw; edid-decode raw; halctl video edid raw\n"
        "halctl video edid raw --json; wc -c <raw");
    for (const char* said :
         {"Manufacturer: ZED\n", "Display Product Name: 'ZEDA HDMI2.0'\n", "Checksum: 0xb8\n",
          "Checksum: 0x28\n",
          "\nmaker    ZED, product 0, serial number 0x01010101, week 2 of 2021\n",
          "\ntiming   1920x1080 60.00 Hz, 148.50 MHz (2200x1125 in all), 698x392 mm\n",
          "\naudio    One Bit Audio, 6 channels, 44.1 kHz\n", R"("vics":[95],)",
          R"("faults":[],"data":"00ffffff)", "\n256\n"}) {
        EXPECT_THAT(result.out, HasSubstr(said)) << result.err;
    }
}

// --- other EDIDs ---

std::vector<std::uint8_t> board_edid() {
    static const std::vector<std::uint8_t> bytes = [] {
        const std::string text = on_board("halctl video edid --raw").out;
        return std::vector<std::uint8_t>(text.begin(), text.end());
    }();
    return bytes;
}

TEST(Edid, SaysWhatIsWrongWithBytesAndReadsTheRest) {
    std::vector<std::uint8_t> bytes = board_edid();
    bytes.resize(140);
    edid::Display display = edid::decode(bytes);
    EXPECT_EQ(display.name, "ZEDA HDMI2.0");
    EXPECT_THAT(display.faults, ElementsAre("140 bytes, where there should be 256",
                                            "block 1: its checksum is wrong"));
    bytes = board_edid();
    bytes[0] = 1;
    bytes[132] = 0x5F; // a video block of 31 bytes, into those behind it
    bytes[130] = 30;
    display = edid::decode(bytes);
    EXPECT_THAT(display.faults,
                ElementsAre("block 0: its checksum is wrong", "it does not begin as an EDID does",
                            "block 1: its checksum is wrong",
                            "block 1: the data at byte 4 go beyond their end"));
    EXPECT_THAT(display.vics, testing::IsEmpty());
    EXPECT_THAT(edid::decode({}).faults, testing::Not(testing::IsEmpty()));
}

// A sanitizer, or the library's own checks, see what goes beyond its place.
TEST(Edid, TakesAnyBytes) {
    std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same each time
    for (int round = 0; round < 2000; ++round) {
        std::vector<std::uint8_t> bytes = board_edid();
        for (int i = 0; i < 1 + round % 40; ++i) {
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
        }
        bytes.resize(round % 3 == 0 ? random() % 257 : 256);
        bytes.shrink_to_fit();
        EXPECT_GE(edid::lines_of(edid::decode(bytes)).size(), 4U);
    }
}

} // namespace
} // namespace halctl_tests::video
