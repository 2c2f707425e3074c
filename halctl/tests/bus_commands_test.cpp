// halctl i2c, sysgpio, fpga and clock on a board.

#include "tools.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace halctl_tests {
namespace {

using nlohmann::json;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

CommandResult on_faulty_board(const std::string& fault, const std::string& script) {
    return run({"vboard", "run", "--fault", fault, "--", "sh", "-c", script});
}

// Waits until somebody has a node open.
std::string until_open(const std::string& node) {
    return "until [ \"$(vboard ctl node opens " + node + ")\" = 1 ]; do :; done\n";
}

std::vector<json> objects(const std::string& text) {
    std::istringstream lines(text);
    std::vector<json> all;
    for (std::string line; std::getline(lines, line);) {
        all.push_back(json::parse(line));
    }
    return all;
}

// The kinds of exit codes that every group has: nothing wrong, a refusal, a bad command line, a
// node that is missing.
struct Ends {
    const char* name;
    const char* node;
    const char* good;
    const char* refused;
    const char* bad;
};

class BusCommandEnds : public testing::TestWithParam<Ends> {};

TEST_P(BusCommandEnds, ExitCodesTellTheKindsOfFailureApart) {
    const Ends& ends = GetParam();
    const std::string tell = "; echo $?\n";
    const CommandResult result =
        on_board(std::string(ends.good) + " >/dev/null" + tell + ends.refused + tell + ends.bad +
                 tell + "vboard ctl node vanish " + ends.node + " >/dev/null\n" + ends.good + tell);
    EXPECT_EQ(result.out, "0\n1\n64\n69\n") << result.err;
    EXPECT_THAT(result.err, HasSubstr("cannot open"));
    EXPECT_THAT(result.err, HasSubstr("No such file or directory"));
}

INSTANTIATE_TEST_SUITE_P(
    Each, BusCommandEnds,
    testing::Values(
        Ends{"i2c_read", "/dev/i2c-2", "halctl i2c read 2 0x54 0000 2", "halctl i2c read 2 0x11 00",
             "halctl i2c read 2 0x54 012"},
        Ends{"i2c_write", "/dev/i2c-2", "halctl i2c write 2 0x54 0004 1234",
             "halctl i2c write 2 0x11 00 00", "halctl i2c write 2 0x80 00 00"},
        Ends{"fpga_read", "/dev/fpga", "halctl fpga read 0x100", "halctl fpga read 0x10000 1",
             "halctl fpga read 0 0"},
        Ends{"fpga_write", "/dev/fpga", "halctl fpga write 0x100 01",
             "halctl fpga write 0xffffffff 0102", "halctl fpga write 0 xy"},
        Ends{"fpga_watch", "/dev/fpgavm", "halctl fpga watch --timeout 0.01",
             "halctl fpga watch --timeout 0.01 --count 1", "halctl fpga watch --count 0"},
        Ends{"clock_init", "/dev/i2c-3", "halctl clock init 3",
             "eval 'vboard ctl i2c mute 3 0x6a 1 >/dev/null; halctl clock init 3; r=$?; "
             "vboard ctl i2c mute 3 0x6a 0 >/dev/null; (exit $r)'",
             "halctl clock init 5"},
        Ends{"oled_text", "/dev/x9oled", "halctl oled text 输入", "halctl oled text é",
             "halctl oled text 1234567890abcdefg"},
        Ends{"oled_display", "/dev/x9oled", "halctl oled display off",
             "halctl oled display on --index 9", "halctl oled display dim"},
        Ends{"clock_trim", "/dev/i2c-6", "halctl clock trim 2 1 up", "halctl clock trim 0 1 up",
             "halctl clock trim 2 1 sideways"}),
    [](const auto& each) { return each.param.name; });

TEST(I2cCommands, RegistersAreWrittenReadAndFound) {
    const CommandResult result =
        on_board("halctl i2c write 2 0x54 0004 1234 && halctl i2c read 2 0x54 0004 2 && "
                 "halctl i2c read 2 0x54 0004 2 --json && halctl i2c write 6 0x6a 10 0a --json && "
                 "halctl i2c scan 2 && halctl i2c scan 6 --json && halctl i2c scan 51");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "1234\n"
                          "{\"bus\":2,\"address\":84,\"register\":\"0004\",\"data\":\"1234\"}\n"
                          "{\"bus\":6,\"address\":106,\"register\":\"10\",\"data\":\"0a\"}\n"
                          "0x54\n{\"bus\":6,\"addresses\":[106]}\nnobody answers\n");
}

TEST(I2cCommands, AMissingBusNamesBothPatternsAndTheSecondIsTried) {
    const CommandResult missing = on_board("halctl i2c scan 77");
    EXPECT_EQ(missing.status, 69);
    EXPECT_THAT(missing.err, EndsWith("halctl: i2c scan 77: cannot open /dev/i2c-77 or "
                                      "/dev/i2c/77: No such file or directory\n"));
    EXPECT_THAT(missing.out, IsEmpty());
    const CommandResult refused =
        on_faulty_board("/dev/i2c-2:open:EACCES", "halctl i2c read 2 0x54 0000");
    EXPECT_EQ(refused.status, 69);
    EXPECT_THAT(refused.err, HasSubstr("Run as root?\n"));

    const auto file = std::filesystem::path(testing::TempDir()) / "second_pattern.json";
    std::ofstream(file) << R"({"name": "second", "models": [
        {"model": "i2c_adapter", "bus": 3, "pattern": "second"},
        {"model": "idt6965", "device": 0, "bus": 3, "address": "0x6A"}]})";
    const CommandResult second =
        run({"vboard", "run", "--board", file.string(), "--", "halctl", "i2c", "scan", "3"});
    EXPECT_EQ(second.out, "0x6a\n") << second.err;
    EXPECT_THAT(second.err, IsEmpty());
    std::filesystem::remove(file);
}

TEST(FpgaCommands, BytesGoInAndComeBackAndARefusalLeavesTheOutputClean) {
    const CommandResult result =
        on_board("halctl fpga write 0x100 deadbeef && vboard ctl fpga peek 0x100 4 && "
                 "halctl fpga read 0x101 3 && halctl fpga read 0x100 --json && "
                 "halctl fpga write 0 01 --json");
    EXPECT_EQ(result.out, "\"deadbeef\"\nadbeef\n{\"address\":256,\"data\":\"deadbeef\"}\n"
                          "{\"address\":0,\"data\":\"01\"}\n")
        << result.err;
    const CommandResult refused = on_board("halctl fpga read 0x10000 1 --json");
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.out, IsEmpty());
    EXPECT_EQ(refused.err, "SPIDEV_IOCTL read error\n"
                           "halctl: fpga read 0x10000: Invalid argument\n");
    const CommandResult missing =
        on_faulty_board("/dev/fpga:open:ENOENT", "halctl fpga write 0 01");
    EXPECT_EQ(missing.status, 69);
    EXPECT_THAT(missing.err, HasSubstr("halctl: fpga write 0x0: cannot open /dev/fpga: "
                                       "No such file or directory\n"));
}

TEST(FpgaCommands, EachInterruptReachesAWatch) {
    const CommandResult result =
        on_board("halctl fpga watch --count 3 --timeout 20 & " + until_open("/dev/fpgavm") +
                 "vboard ctl fpga interrupt 2 >/dev/null; vboard ctl fpga interrupt >/dev/null\n"
                 "wait $!; echo status $?\n"
                 "halctl fpga watch --json --count 1 --timeout 20 & " +
                 until_open("/dev/fpgavm") + "vboard ctl fpga interrupt >/dev/null; wait $!");
    const std::size_t rest = result.out.find("{");
    ASSERT_NE(rest, std::string::npos) << result.err;
    const std::string stamp = "[0-9:]+\\.[0-9]+  interrupt ";
    EXPECT_THAT(result.out.substr(0, rest),
                MatchesRegex(stamp + "1\n" + stamp + "2\n" + stamp + "3\nstatus 0\n"));
    const json event = json::parse(result.out.substr(rest));
    EXPECT_EQ(event.at("number"), 1);
    EXPECT_GT(event.at("time").get<double>(), 1e9);
    EXPECT_THAT(result.err, IsEmpty());
}

TEST(SysgpioCommands, LinesAreSetAndGot) {
    const CommandResult result =
        on_board("halctl sysgpio set 12 1 && halctl sysgpio set 13 1 --json && "
                 "vboard ctl sysgpio show 12 && halctl sysgpio get 12 && "
                 "halctl sysgpio get 471 --json");
    EXPECT_EQ(result.status, 0) << result.err;
    const std::vector<json> out = objects(result.out);
    ASSERT_EQ(out.size(), 4U);
    EXPECT_EQ(out[0], json({{"line", 13}, {"value", 1}}));
    EXPECT_EQ(out[1].at("level"), 1);
    EXPECT_EQ(out[2], 0) << "an input again";
    EXPECT_EQ(out[3], json({{"line", 471}, {"value", 1}}));
}

TEST(SysgpioCommands, EachChangeReachesAWatch) {
    const CommandResult result =
        on_board("reads() { vboard ctl trace read 0 read | grep -o gpio14/value | wc -l; }\n"
                 "after() { until [ $(reads) -ge $1 ]; do :; done; }\n"
                 "level() { vboard ctl sysgpio drive 14 $1 >/dev/null; }\n"
                 "halctl sysgpio watch 14 --count 2 --timeout 20 --json &\n"
                 "after 1; level 1; after 2; level 0; wait $!");
    EXPECT_EQ(result.status, 0) << result.err;
    const std::vector<json> changes = objects(result.out);
    ASSERT_EQ(changes.size(), 2U);
    EXPECT_EQ(changes[0].at("value"), 1);
    EXPECT_EQ(changes[1].at("value"), 0);
    EXPECT_EQ(changes[1].at("line"), 14);
}

TEST(SysgpioCommands, ExitCodesTellWhatWentWrong) {
    const CommandResult result =
        on_board("halctl sysgpio get 512; echo $?; halctl sysgpio set 512 1; echo $?\n"
                 "halctl sysgpio watch 512; echo $?\n"
                 "halctl sysgpio watch 12 --timeout 0.02; echo $?\n"
                 "halctl sysgpio watch 12 --timeout 0.02 --count 1; echo $?\n"
                 "halctl sysgpio set 12 2 2>/dev/null; echo $?\n"
                 "vboard ctl fault add '/sys/class/gpio/gpio12/direction:write:EIO' >/dev/null\n"
                 "halctl sysgpio set 12 1; echo $?");
    EXPECT_EQ(result.out, "69\n69\n69\n0\n1\n64\n1\n") << result.err;
    EXPECT_THAT(result.err, EndsWith("halctl: sysgpio set 12: Input/output error\n"));
}

TEST(ClockCommands, ChipsAreListedBroughtUpSetTrimmedAndSwitched) {
    const CommandResult list = on_board("halctl clock list && halctl clock list --json");
    EXPECT_THAT(list.out, StartsWith("0  cdcm6208  device 0  bus 2  address 0x54\n"
                                     "1  cdcm6208  device 1  bus 5  address 0x54\n"
                                     "2  idt6965   device 0  bus 6  address 0x6a\n"));
    EXPECT_THAT(list.out, EndsWith("{\"chip\":4,\"kind\":\"idt6965\",\"device\":2,\"bus\":4,"
                                   "\"address\":106}\n"));

    const CommandResult result =
        on_board("hertz() { vboard ctl $1 frequency $2 $3; }\n"
                 "halctl clock init 1 --json && halctl clock set 1 5 27000000 && "
                 "hertz cdcm6208 1 5 && halctl clock init 2 --json && "
                 "halctl clock set 2 3 50000000 --json && hertz idt6965 0 3 && "
                 "halctl clock trim 2 3 up --steps 5 --json && hertz idt6965 0 3 && "
                 "halctl clock trim 2 3 down --steps 10 && hertz idt6965 0 3 && "
                 "halctl clock enable 2 3 off --json && ! hertz idt6965 0 3 2>/dev/null && "
                 "halctl clock enable 2 3 on && hertz idt6965 0 3");
    EXPECT_EQ(result.status, 0) << result.err;
    const std::vector<json> out = objects(result.out);
    ASSERT_EQ(out.size(), 10U) << result.out;
    EXPECT_EQ(out[0], json({{"chip", 1}, {"kind", "cdcm6208"}}));
    EXPECT_NEAR(out[1].get<double>() / 27e6, 1, 1e-6);
    EXPECT_EQ(out[2], json({{"chip", 2}, {"kind", "idt6965"}}));
    EXPECT_EQ(out[3].at("output"), 3);
    EXPECT_EQ(out[4], 50e6);
    EXPECT_EQ(out[5].at("steps"), 5);
    const double step = 1.25e9 / (1 << 24) / (25.0 * 25.0);
    EXPECT_NEAR(out[6].get<double>() - 50e6, 5 * step, step / 100);
    EXPECT_NEAR(50e6 - out[7].get<double>(), 5 * step, step / 100);
    EXPECT_EQ(out[8].at("enabled"), false);
    EXPECT_EQ(out[9], out[7]) << "on again as it was";
}

TEST(ClockCommands, WhatAChipCannotDoIsSaid) {
    const CommandResult result =
        on_board("halctl clock set 0 4 401000000; echo $?; halctl clock set 0 3 25000000; echo $?\n"
                 "halctl clock enable 0 1 on; echo $?; halctl clock set 2 5 25000000; echo $?\n"
                 "vboard ctl i2c mute 2 0x54 1 >/dev/null; halctl clock init 0; echo $?\n");
    EXPECT_EQ(result.out, "1\n1\n1\n1\n1\n");
    EXPECT_THAT(result.err, HasSubstr("output 4 cannot give 401000000 Hz"));
    EXPECT_THAT(result.err, HasSubstr("only outputs 4 to 7 can be set"));
    EXPECT_THAT(result.err, HasSubstr("this kind of chip cannot do that"));
    EXPECT_THAT(result.err, HasSubstr("ERROR: reg=0x0000, set=0x01b9, get=0x0000\n"));
}

} // namespace
} // namespace halctl_tests
