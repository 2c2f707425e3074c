// The clock chips of the board, brought up over the library's own I2C and GPIO functions: what
// goes over their buses, and what is measured at their outputs.

#include "tests/support/buses.h"
#include "tests/support/captured.h"
#include "tests/support/on_board.h"

#include <clock_glue.h>
#include <hal_bsp/hal_bsp.h>

#include <algorithm>
#include <array>
#include <limits>

namespace hal_test::clock_chips {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::IsSupersetOf;
using Story = std::vector<std::string>;
using Limits = std::numeric_limits<double>;

constexpr double kMillionth = 1e-6;
constexpr std::uint8_t kGenerator = 0xD4;

vb::Client* remarks = nullptr; // for the delays to be in order with all else
bool turn_last_bit = false;    // of what is read in blocks
clock_user_cfg plain_idt;

void note_delay(std::uint32_t ms) {
    remarks->ask("trace.note", {{"text", "delay " + std::to_string(ms)}});
}

std::uint8_t read_idt(std::uint32_t dev, std::uint16_t addr8, std::uint8_t* reg,
                      std::uint16_t reg_len, std::uint8_t* data, std::uint16_t data_len) {
    const std::uint8_t result = plain_idt.i2c_read(dev, addr8, reg, reg_len, data, data_len);
    data[data_len - 1] ^= turn_last_bit && data_len > 1 ? 1 : 0;
    return result;
}

std::string hex(unsigned value, int digits) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%0*x", digits, value);
    return text.data();
}

void add(Story& story, const Story& more) {
    story.insert(story.end(), more.begin(), more.end());
}

class Clock : public OnBoard {
  protected:
    void SetUp() override {
        open_buses();
        OnBoard::SetUp();
        clock_glue_install();
        plain_idt = idt6965_user_cfg;
        idt6965_user_cfg.i2c_read = read_idt;
        cdcm6208_user_cfg.delay_ms = idt6965_user_cfg.delay_ms = note_delay;
        remarks = &board();
        turn_last_bit = false;
        for (const int reset_line : {472, 474}) {
            ask("sysgpio.drive", {{"line", reset_line}, {"level", 1}});
        }
        lock_within(0, 1'000'000);
        lock_within(1, 1'000'000);
        forget_trace();
    }
    // What has happened since the last call: "BUS w BYTES" and "BUS r BYTES", "power LINE=LEVEL",
    // "delay MS".
    Story story() {
        Story all;
        for (const Json& event : events(Json::object())) {
            const auto kind = event.at("kind").get<std::string>();
            if (kind == "i2c") {
                all.push_back(event["bus"].dump() + (event["direction"] == "read" ? " r " : " w ") +
                              event.value("bytes", event.value("error", "")));
            } else if (kind == "line" && event["bank"] == "sysgpio") {
                all.push_back("power " + event["line"].dump() + "=" + event["level"].dump());
            } else if (kind == "note") {
                all.push_back(event["text"].get<std::string>());
            }
        }
        forget_trace();
        return all;
    }
    double hertz(const char* chip, unsigned device, unsigned output) {
        return ask(std::string(chip) + ".frequency", {{"device", device}, {"output", output}})
            .get<double>();
    }
    void lock_within(unsigned device, int ms) {
        ask("cdcm6208.lock_ms", {{"device", device}, {"ms", ms}});
    }
    void fail_transfers(int bus, const std::string& when) {
        add_fault("/dev/i2c-" + std::to_string(bus) + ":ioctl=I2C_RDWR:EIO:" + when);
    }
};

// ---- synthesizers ----

const std::uint16_t* image_of(unsigned device) {
    return cdcm6208_reg_list[device];
}

Story image_writes(const std::string& bus, unsigned device) {
    Story all;
    for (unsigned reg = 0; reg < 21; ++reg) {
        all.push_back(bus + " w " + hex(reg, 4) + hex(image_of(device)[reg], 4));
    }
    return all;
}

Story soft_reset(const std::string& bus) {
    return {bus + " w 0003", bus + " r 00f0", bus + " w 000300b0", "delay 20", bus + " w 000300f0"};
}

// Up to the reading back.
Story bring_up(const std::string& bus, unsigned device, const std::string& line) {
    Story all{"power " + line + "=0", "delay 50", "power " + line + "=1"};
    add(all, image_writes(bus, device));
    for (unsigned reg = 0; reg < 21; ++reg) {
        add(all, {bus + " w " + hex(reg, 4), bus + " r " + hex(image_of(device)[reg], 4)});
    }
    return all;
}

TEST_F(Clock, ASynthesizerIsPoweredWrittenVerifiedAndResetTwiceIfItLocks) {
    for (const auto& [device, bus, line] : {std::tuple(0U, "2", "471"), {1U, "5", "473"}}) {
        for (const bool locks : {false, true}) {
            lock_within(device, locks ? 0 : 1'000'000);
            forget_trace();
            const Captured errors(stderr);
            EXPECT_EQ(cdcm6208_out_config(device, image_of(device)), 1);
            Story expected = bring_up(bus, device, line);
            add(expected, soft_reset(bus));
            add(expected,
                {std::string(bus) + " w 0015", bus + std::string(locks ? " r 0004" : " r 0000")});
            if (locks) {
                add(expected, image_writes(bus, device));
                add(expected, soft_reset(bus));
            }
            EXPECT_THAT(story(), ElementsAreArray(expected));
            EXPECT_EQ(errors.text(),
                      locks ? "Debug: CDCM6208 pll lock\n" : "Debug: CDCM6208 pll unlock\n");
        }
    }
}

TEST_F(Clock, TheFirstRegisterThatReadsBackOtherwiseEndsTheBringUp) {
    const Captured errors(stderr);
    fail_transfers(2, "after=26:once"); // 21 written, 5 read
    EXPECT_EQ(cdcm6208_out_config(0, image_of(0)), 0);
    fail_transfers(2, "after=2:once"); // register 2 is not written
    EXPECT_EQ(cdcm6208_out_config(0, image_of(0)), 0);
    EXPECT_EQ(errors.text(), "ERROR: reg=0x0005, set=0x0023, get=0x0000\n"
                             "ERROR: reg=0x0002, set=0x0017, get=0x0000\n");
    EXPECT_EQ(story().back(), "2 r " + hex(image_of(0)[20], 4)) << "no soft reset";
    ask("sysgpio.drive", {{"line", 472}, {"level", 0}});
    EXPECT_EQ(cdcm6208_out_config(0, image_of(0)), 0) << "held in reset it does not answer";
}

TEST_F(Clock, ASynthesizersRegistersAreWordsMostSignificantByteFirst) {
    EXPECT_EQ(cdcm_6208_writebytedata(1, 0x0012, 0xABCD), 1);
    std::uint16_t value = 0;
    EXPECT_EQ(cdcm_6208_readbytedata(1, 0x0012, &value), 1);
    EXPECT_EQ(value, 0xABCD);
    EXPECT_THAT(story(), ElementsAre("5 w 0012abcd", "5 w 0012", "5 r abcd"));
    fail_transfers(5, "times=3");
    EXPECT_EQ(cdcm_6208_writebytedata(1, 0x0012, 1), 0);
    EXPECT_EQ(cdcm_6208_readbytedata(1, 0x0012, &value), 0);
    EXPECT_EQ(value, 0xABCD);
    cdcm6208softreset(1);
    EXPECT_THAT(story(), IsEmpty()) << "what cannot be read is not reset";
}

TEST_F(Clock, ASynthesizersOutputsGiveWhatWasAskedFor) {
    ASSERT_EQ(cdcm6208_out_config(0, image_of(0)), 1);
    ASSERT_EQ(cdcm6208_out_config(1, image_of(1)), 1);
    for (const double wanted : {25e6, 27e6, 36e6, 74.25e6 / 1.001, 122.88e6, 148.5e6, 199e6}) {
        for (const unsigned output : {4U, 5U, 6U, 7U}) {
            const unsigned device = output % 2;
            ASSERT_EQ(cdcm_6208_out_freq_config(device, output, image_of(device), wanted), 0);
            EXPECT_NEAR(hertz("cdcm6208", device, output) / wanted, 1, kMillionth) << wanted;
        }
    }
    forget_trace();
    EXPECT_EQ(cdcm_6208_out_freq_config(0, 4, image_of(0), 25e6), 0);
    EXPECT_THAT(logged("INFO"), ElementsAre("FrcaDIV = 8.000\t", "CDCM6208 pll unlock\n"));
    EXPECT_THAT(story(), ElementsAre("2 w 00090443", "2 w 000a0045", "2 w 000b5555", "2 w 00090643",
                                     "2 w 0015", "2 r 0000"));
    lock_within(1, 0);
    cdcm6208softreset(1);
    for (const auto& [output, control, high, low] :
         {std::tuple(5U, "0c", "0d", "0e"), {6U, "0f", "10", "11"}, {7U, "12", "13", "14"}}) {
        forget_trace();
        EXPECT_EQ(cdcm_6208_out_freq_config(1, output, image_of(1), 100e6), 0);
        EXPECT_THAT(logged("INFO"), ElementsAre("FrcaDIV = 2.000\t", "CDCM6208 pll lock\n"));
        const auto write = [](const char* reg, const char* value) {
            return std::string("5 w 00") + reg + value;
        };
        EXPECT_THAT(story(),
                    ElementsAre(write(control, "0443"), write(low, "5555"), write(high, "0005"),
                                write(control, "0643"), "5 w 0015", "5 r 0004"));
    }
    for (const std::uint32_t output : {0U, 3U, 8U, 0xFFFFFFFFU}) { // only the lock is told
        EXPECT_EQ(cdcm_6208_out_freq_config(0, output, image_of(0), 25e6), 0);
        EXPECT_THAT(story(), ElementsAre("2 w 0015", "2 r 0000"));
    }
    for (const double frequency :
         {0.0, -0.0, -25e6, 1.0, 16.9e6, 401e6, 1e300, Limits::max(), Limits::min(),
          Limits::denorm_min(), Limits::infinity(), -Limits::infinity(), Limits::quiet_NaN(),
          // Its divider would be that of 25 MHz if it were counted modulo 2^32.
          400e6 * 1048576 / (4294967296.0 + 16777216)}) {
        forget_trace();
        EXPECT_EQ(cdcm_6208_out_freq_config(0, 4, image_of(0), frequency), HAL_CLOCK_INVALID)
            << frequency;
        EXPECT_THAT(logged("ERROR"), ElementsAre("CDCM6208 set channal freq fail!\n"));
        EXPECT_THAT(story(), IsEmpty());
    }
}

TEST_F(Clock, WhatIsMissingLeavesTheSynthesizersAlone) {
    std::uint16_t value = 77;
    for (const std::uint32_t dev : {2U, 3U, 0xFFFFFFFFU}) {
        EXPECT_EQ(cdcm6208_gpio_init(dev), HAL_CLOCK_INVALID);
        EXPECT_EQ(cdcm_6208_writebytedata(dev, 1, 1), 0);
        EXPECT_EQ(cdcm_6208_readbytedata(dev, 1, &value), 0);
        EXPECT_EQ(cdcm6208_out_config(dev, image_of(0)), 0);
        EXPECT_EQ(cdcm_6208_out_freq_config(dev, 4, image_of(0), 25e6), HAL_CLOCK_INVALID);
        cdcm6208softreset(dev);
        std::array<std::uint16_t, 21> regs{};
        cdcm6208_read_register(dev, regs.data());
        EXPECT_THAT(regs, testing::Each(0));
    }
    EXPECT_EQ(cdcm_6208_readbytedata(0, 1, nullptr), 0);
    EXPECT_EQ(cdcm6208_out_config(0, nullptr), 0);
    EXPECT_EQ(cdcm_6208_out_freq_config(0, 4, nullptr, 25e6), HAL_CLOCK_INVALID);
    cdcm6208_read_register(0, nullptr);
    cdcm6208_user_cfg.gpio_set = [](std::uint32_t, std::uint32_t level) {
        return level == 1 ? 42 : 7;
    };
    EXPECT_EQ(cdcm6208_gpio_init(0), 42) << "the second result counts";
    EXPECT_THAT(story(), ElementsAre("delay 50"));

    cdcm6208_user_cfg = {};
    EXPECT_EQ(cdcm6208_gpio_init(0), HAL_CLOCK_INVALID);
    EXPECT_EQ(cdcm_6208_writebytedata(0, 1, 1), 0);
    EXPECT_EQ(cdcm_6208_readbytedata(0, 1, &value), 0);
    EXPECT_EQ(cdcm6208_out_config(0, image_of(0)), 0);
    EXPECT_EQ(cdcm_6208_out_freq_config(0, 4, image_of(0), 25e6), 0);
    EXPECT_EQ(value, 77);
    clock_glue_install();
    cdcm6208_user_cfg.print = nullptr;
    cdcm6208_user_cfg.delay_ms = nullptr;
    EXPECT_EQ(cdcm6208_out_config(0, image_of(0)), 1);
}

// ---- generators ----

// A divider block as it is sent: fraction and integer in hexadecimal, the rest is 0.
std::string block(const std::string& fraction, const std::string& integer) {
    return fraction + "00000000000000" + integer + "00";
}

void write_registers(std::uint8_t bus, std::uint8_t reg, const std::vector<std::uint8_t>& bytes) {
    EXPECT_EQ(i2c_writenumbytes(bus, kGenerator, &reg, 1, bytes.data(),
                                static_cast<std::uint16_t>(bytes.size())),
              0);
}

// The two registers of switches, read.
Story switches(const std::string& bus, const std::string& first, const std::string& second) {
    return {bus + " w 68", bus + " r " + first, bus + " w 69", bus + " r " + second};
}

// One port switched: what stood in the two registers, what stands there then, its own register.
void add_switching(Story& story, std::array<const char*, 2> before,
                   std::array<const char*, 2> after, const char* own) {
    add(story, switches("3", before[0], before[1]));
    add(story, {std::string("3 w 68") + after[0], std::string("3 w 69") + after[1]});
    add(story, switches("3", after[0], after[1]));
    story.push_back(std::string("3 w ") + own);
}

// What bringing up device 1 sends, all outputs being on before: second reference, 35 MHz.
Story until_pll() {
    const std::string pll = "60cc010200008c0640000000";
    Story all{"delay 10"};
    add_switching(all, {"ff", "ff"}, {"bf", "bf"}, "6100");
    add_switching(all, {"bf", "bf"}, {"9f", "9f"}, "6300");
    add_switching(all, {"9f", "9f"}, {"8f", "8f"}, "6500");
    add_switching(all, {"8f", "8f"}, {"87", "87"}, "6700");
    add(all,
        {"3 w 1c05", "3 w 10" + pll, "3 w 69fc", "3 w 1c1f", "3 w 1c9f", "3 w 10", "3 r " + pll});
    return all;
}

TEST_F(Clock, AGeneratorsBringUpIsTheWholeSequence) {
    write_registers(3, 0x68, {0xFF});
    write_registers(3, 0x69, {0xFF});
    forget_trace();
    EXPECT_EQ(idt6965_init(1), 1);
    Story expected = until_pll();
    for (const char* const sent :
         {"2181", "3181", "4181", "5181", "607b", "627b", "647b", "667b"}) {
        expected.push_back(std::string("3 w ") + sent);
    }
    for (const char* const base : {"22", "32", "42", "52"}) {
        expected.push_back(std::string("3 w ") + base + block("02db6db4", "0230"));
    }
    add_switching(expected, {"87", "fc"}, {"c7", "fc"}, "6101");
    add_switching(expected, {"c7", "fc"}, {"e7", "fc"}, "6301");
    add_switching(expected, {"e7", "fc"}, {"f7", "fc"}, "6501");
    add_switching(expected, {"f7", "fc"}, {"ff", "fc"}, "6701");
    EXPECT_THAT(story(), ElementsAreArray(expected));
    EXPECT_EQ(idt6965_init(0), 1);
    EXPECT_THAT(story(), IsSupersetOf({std::string("6 w 10a0cc010000008c0640000000"),
                                       "6 w 52" + block("00000000", "0320")}));
    EXPECT_EQ(idt6965_init(2), 1);
    for (const unsigned device : {0U, 1U, 2U}) {
        for (unsigned port = 1; port <= 4; ++port) {
            const auto wanted = static_cast<double>(idt6965_devlist[device].out_freq[port - 1]);
            EXPECT_NEAR(hertz("idt6965", device, port) / wanted, 1, kMillionth);
        }
    }
    idt6965_user_cfg.gpio_set = [](std::uint32_t dev, std::uint32_t level) {
        remarks->ask("trace.note", {{"text", "on " + std::to_string(dev * 10 + level)}});
        return 0;
    };
    forget_trace();
    EXPECT_EQ(idt6965_init(1), 1);
    EXPECT_EQ(story().front(), "on 11") << "before all else";
    idt6965_user_cfg.gpio_set = nullptr;
}

TEST_F(Clock, AGeneratorWhosePllDoesNotVerifyStaysOff) {
    for (const bool unreadable : {false, true}) {
        write_registers(3, 0x68, {0xFF});
        write_registers(3, 0x69, {0xFF});
        forget_trace();
        turn_last_bit = !unreadable;
        if (unreadable) { // four ports with seven transfers each, five for the PLL
            fail_transfers(3, "after=33:once");
        }
        EXPECT_EQ(idt6965_init(1), 0);
        Story expected = until_pll();
        expected.resize(expected.size() - (unreadable ? 2 : 0));
        EXPECT_THAT(story(), ElementsAreArray(expected));
        for (unsigned port = 1; port <= 4; ++port) {
            EXPECT_THROW(hertz("idt6965", 1, port), vb::ClientError);
        }
    }
}

TEST_F(Clock, AGeneratorsFrequenciesThatFitAreWrittenToTheirPort) {
    ASSERT_EQ(idt6965_init(1), 1);
    forget_trace();
    EXPECT_EQ(idt6965_out_freq_config(1, 1, 25'000'000), 1);
    EXPECT_EQ(idt6965_out_freq_config(1, 2, 35'000'000), 1);
    EXPECT_EQ(idt6965_out_freq_config(1, 3, 0), 1);
    EXPECT_EQ(idt6965_out_freq_config(1, 4, 0xFFFFFFFF), 1); // divider 0.29
    EXPECT_EQ(idt6965_out_freq_config(1, 4, 1'250'000'000 / 4096 + 1), 1);
    EXPECT_THAT(story(),
                ElementsAre("3 w 22" + block("00000000", "0320"),
                            "3 w 32" + block("02db6db4", "0230"),
                            "3 w 42" + block("00000000", "0000"),
                            "3 w 52" + block("012a05f0", "0000"), testing::EndsWith("fff000")));
    EXPECT_EQ(idt6965_out_freq_config(1, 1, 1'250'000'000 / 4096), 0);
    EXPECT_EQ(idt6965_out_freq_config(1, 1, 1), 0);
    EXPECT_NEAR(hertz("idt6965", 1, 1), 25e6, 25) << "it stays";
    fail_transfers(3, "once");
    EXPECT_EQ(idt6965_out_freq_config(1, 1, 25'000'000), 1) << "the bus is not looked at";
}

TEST_F(Clock, AGeneratorsOutputsAreSwitchedOneByOneOrTogether) {
    ASSERT_EQ(idt6965_init(2), 1);
    forget_trace();
    EXPECT_EQ(idt6965_port_ctrl(2, 3, 0), 1);
    EXPECT_THROW(hertz("idt6965", 2, 3), vb::ClientError);
    EXPECT_GT(hertz("idt6965", 2, 2), 0) << "the others stay on";
    EXPECT_EQ(idt6965_port_ctrl(2, 3, 1), 1);
    EXPECT_GT(hertz("idt6965", 2, 3), 0);
    write_registers(4, 0x68, {0x01});
    write_registers(4, 0x69, {0x02});
    for (const std::uint32_t on : {1U, 2U}) { // all but 1 is off
        forget_trace();
        const std::string all = on == 1 ? "8" : "0";
        const std::string before = on == 1 ? "0" : "8";
        EXPECT_EQ(idt6965_port_ctrl(2, 0, on), 1);
        Story expected = switches("4", before + "1", before + "2");
        add(expected, {"4 w 68" + all + "1", "4 w 69" + all + "2"});
        add(expected, switches("4", all + "1", all + "2"));
        add(expected, {"4 w 69", "4 r " + all + "2", "4 w 69" + all + "2"});
        EXPECT_THAT(story(), ElementsAreArray(expected));
    }
    fail_transfers(4, "after=1:once"); // what cannot be read is left alone
    EXPECT_EQ(idt6965_port_ctrl(2, 2, 1), 1);
    EXPECT_THAT(story(), ElementsAre("4 w 68", "4 r 01", "4 w 6821", "4 w 68", "4 r 21", "4 w 69",
                                     "4 r 02", "4 w 6301"));
    for (const auto& [port, mode, sent] : {std::tuple(1U, 3U, "4 w 607b"),
                                           {2U, 0U, "4 w 621b"},
                                           {3U, 7U, "4 w 64fb"},
                                           {4U, 0xFFFFFFF9U, "4 w 663b"}}) {
        EXPECT_EQ(idt6965_set_out_mode(2, port, mode), 1);
        EXPECT_THAT(story(), ElementsAre(sent));
    }
}

TEST_F(Clock, ATrimMovesTheDividerByOneStep) {
    struct Case {
        std::uint8_t dir;
        std::vector<std::uint8_t> before;
        std::string after;
    };
    const Case cases[] = {
        {1, {0, 0, 0, 0, 9, 9, 9, 9, 9, 9, 9, 3, 0x20, 9}, block("00000004", "0320")},
        {1, {3, 255, 255, 0xFC, 0, 0, 0, 0, 0, 0, 0, 3, 0x20, 0}, block("00000000", "0330")},
        {1, {3, 255, 255, 0xFC, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xF0, 0}, block("00000000", "0000")},
        {0, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0x20, 0}, block("03fffffc", "0310")},
        {0, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, block("03fffffc", "fff0")},
        {0, {0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x10, 0}, block("0000fffc", "0010")},
        {2, {2, 0xDB, 0x6D, 0xB4, 9, 9, 9, 9, 9, 9, 9, 2, 0x30, 9}, block("02db6db4", "0230")},
    };
    for (const Case& each : cases) {
        write_registers(6, 0x42, each.before);
        forget_trace();
        EXPECT_EQ(idt6965_change_out_freq(0, 3, each.dir), 1);
        EXPECT_THAT(story(), ElementsAre("6 w 42", testing::StartsWith("6 r "),
                                         "6 w 42" + each.after, "6 w 42", "6 r " + each.after));
    }
    turn_last_bit = true;
    EXPECT_EQ(idt6965_change_out_freq(0, 3, 1), 0) << "it reads back otherwise";
    turn_last_bit = false;

    ASSERT_EQ(idt6965_init(0), 1);
    const double start = hertz("idt6965", 0, 2);
    const double step = 1.25e9 / (1 << 24) / (50.0 * 50.0);
    EXPECT_EQ(idt6965_change_out_freq(0, 2, 1), 1);
    EXPECT_NEAR(start - hertz("idt6965", 0, 2), step, step / 1000) << "a larger divider";
    EXPECT_EQ(hertz("idt6965", 0, 1), start) << "the others stay";
    std::vector<int> results;
    sweep(
        "/dev/i2c-6", "EIO", [&] { results.push_back(idt6965_change_out_freq(0, 2, 1)); },
        [](bool) {});
    EXPECT_THAT(results, ElementsAre(1, 1, 0, 1, 1, 0, 1, 1, 0, 1))
        << "time-out, retries and transfer of reading, writing, reading back";
}

TEST_F(Clock, WhatIsMissingLeavesTheGeneratorsAlone) {
    for (const auto& [dev, port] :
         {std::pair(4U, 1U), {0xFFFFFFFFU, 1U}, {0U, 0U}, {0U, 5U}, {0U, 0xFFFFFFFFU}}) {
        EXPECT_EQ(idt6965_out_freq_config(dev, port, 25'000'000), 0);
        EXPECT_EQ(idt6965_set_out_mode(dev, port, 3), 0);
        if (port != 0) { // all together
            EXPECT_EQ(idt6965_port_ctrl(dev, port, 1), 0);
        }
        EXPECT_EQ(idt6965_change_out_freq(dev, port, 1), 0);
        if (dev != 0) {
            EXPECT_EQ(idt6965_init(dev), 0);
        }
    }
    EXPECT_THAT(story(), IsEmpty());
    idt6965_user_cfg = {};
    EXPECT_EQ(idt6965_init(0), 0);
    EXPECT_EQ(idt6965_out_freq_config(0, 1, 25'000'000), 1);
    EXPECT_EQ(idt6965_port_ctrl(0, 1, 1), 1);
    EXPECT_EQ(idt6965_change_out_freq(0, 1, 1), 0);
    EXPECT_THAT(story(), IsEmpty());
}

// ---- registry ----

TEST_F(Clock, TheRegistryLeadsToEveryChip) {
    for (const clock_config_entry& entry : clock_config) {
        const bool cdcm = entry.type == HAL_CLOCK_CDCM6208;
        const unsigned device = cdcm ? entry.cdcm_index : entry.idt_index;
        const char* bus = cdcm ? entry.cdcm_bus_id[device] : entry.idt_bus_id[device];
        forget_trace();
        EXPECT_EQ(cdcm ? cdcm6208_out_config(device, entry.cdcm_reg_list[device])
                       : idt6965_init(device),
                  1);
        EXPECT_FALSE(events({{"kind", "i2c"}, {"bus", std::stoi(bus)}}).empty());
    }
}

} // namespace
} // namespace hal_test::clock_chips
