// The clock chips of the board, brought up over the library's own I2C and GPIO functions: what
// goes over their buses, and what is measured at their outputs.

#include "tests/support/buses.h"
#include "tests/support/captured.h"
#include "tests/support/on_board.h"

#include <clock_glue.h>
#include <hal_bsp/hal_bsp.h>

#include <array>
#include <limits>

namespace hal_test::clock_chips {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using Limits = std::numeric_limits<double>;

constexpr double kMillionth = 1e-6;
constexpr std::uint8_t kGenerator = 0xD4;

vb::Client* remarks = nullptr; // for what callbacks hear to be in order with all else
bool turn_last_bit = false;    // of what is read in blocks
clock_user_cfg plain_idt;

void note(const std::string& text) {
    remarks->ask("trace.note", {{"text", text}});
}

void note_delay(std::uint32_t ms) {
    note("delay" + std::to_string(ms));
}

std::uint8_t read_idt(std::uint32_t dev, std::uint16_t addr8, std::uint8_t* reg,
                      std::uint16_t reg_len, std::uint8_t* data, std::uint16_t data_len) {
    const std::uint8_t result = plain_idt.i2c_read(dev, addr8, reg, reg_len, data, data_len);
    data[data_len - 1] ^= turn_last_bit && data_len > 1 ? 1 : 0;
    return result;
}

class Clock : public OnBoard {
  protected:
    void SetUp() override {
        open_buses();
        OnBoard::SetUp();
        clock_glue_install();
        plain_idt = idt6965_user_cfg;
        idt6965_user_cfg.i2c_read = read_idt;
        idt6965_user_cfg.gpio_set = nullptr;
        cdcm6208_user_cfg.delay_ms = idt6965_user_cfg.delay_ms = note_delay;
        remarks = &board();
        turn_last_bit = false;
        for (const int device : {0, 1}) {
            ask("sysgpio.drive", {{"line", 472 + 2 * device}, {"level", 1}}); // not in reset
            lock_within(device, 1'000'000);
        }
        forget_trace();
    }
    // What has happened since the last call: "busN" where another one begins, "wBYTES" and
    // "rBYTES" for what went over it, "LINE=LEVEL", and the remarks.
    std::string story() {
        std::string all;
        std::string bus;
        for (const Json& event : events(Json::object())) {
            const auto kind = event.at("kind").get<std::string>();
            if (kind == "i2c") {
                if (std::exchange(bus, event["bus"].dump()) != bus) {
                    all += "bus" + bus + " ";
                }
                all += (event["direction"] == "read" ? "r" : "w") + event.value("bytes", "") + " ";
            } else if (kind == "line" && event["bank"] == "sysgpio") {
                all += event["line"].dump() + "=" + event["level"].dump() + " ";
            } else if (kind == "note") {
                all += event["text"].get<std::string>() + " ";
            }
        }
        forget_trace();
        return all;
    }
    double hertz(const char* chip, unsigned device, unsigned output) {
        return ask(std::string(chip) + ".frequency", {{"device", device}, {"output", output}})
            .get<double>();
    }
    void lock_within(int device, int ms) {
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

std::string hex(unsigned value) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04x", value);
    return text.data();
}

// The whole image, with something between register and value, and after it.
std::string image(unsigned device, const std::string& between) {
    std::string all;
    for (unsigned reg = 0; reg < 21; ++reg) {
        all += "w" + hex(reg) + between + hex(image_of(device)[reg]) + " ";
    }
    return all;
}

TEST_F(Clock, ASynthesizerIsPoweredWrittenVerifiedAndResetTwiceIfItLocks) {
    const std::string reset = "w0003 r00f0 w000300b0 delay20 w000300f0 ";
    for (const auto& [device, bus, power] :
         {std::tuple(0U, "bus2 ", "471="), {1U, "bus5 ", "473="}}) {
        const std::string bring_up = power + std::string("0 delay50 ") + power + "1 " + bus +
                                     image(device, "") + image(device, " r") + reset + "w0015 ";
        const Captured errors(stderr);
        EXPECT_EQ(cdcm6208_out_config(device, image_of(device)), 1);
        EXPECT_EQ(story(), bring_up + "r0000 ");
        lock_within(static_cast<int>(device), 0);
        forget_trace();
        EXPECT_EQ(cdcm6208_out_config(device, image_of(device)), 1);
        EXPECT_EQ(story(),
                  std::string(bring_up).append("r0004 ").append(image(device, "")) + reset);
        EXPECT_EQ(errors.text(), "Debug: CDCM6208 pll unlock\nDebug: CDCM6208 pll lock\n");
    }
}

TEST_F(Clock, TheFirstRegisterThatReadsBackOtherwiseEndsTheBringUp) {
    const Captured errors(stderr);
    fail_transfers(2, "after=26:times=2"); // 21 written, 5 read
    EXPECT_EQ(cdcm6208_out_config(0, image_of(0)), 0);
    fail_transfers(2, "after=2:once"); // register 2 is not written
    EXPECT_EQ(cdcm6208_out_config(0, image_of(0)), 0);
    EXPECT_EQ(errors.text(), "ERROR: reg=0x0005, set=0x0023, get=0x0000\n"
                             "ERROR: reg=0x0002, set=0x0017, get=0x0000\n");
    EXPECT_THAT(story(), EndsWith("w0014 r5300 ")) << "no soft reset";
    ask("sysgpio.drive", {{"line", 472}, {"level", 0}});
    EXPECT_EQ(cdcm6208_out_config(0, image_of(0)), 0) << "held in reset it does not answer";
}

TEST_F(Clock, ASynthesizersRegistersAreWordsMostSignificantByteFirst) {
    EXPECT_EQ(cdcm_6208_writebytedata(1, 0x0012, 0xABCD), 1);
    std::uint16_t value = 0;
    EXPECT_EQ(cdcm_6208_readbytedata(1, 0x0012, &value), 1);
    EXPECT_EQ(value, 0xABCD);
    EXPECT_EQ(story(), "bus5 w0012abcd w0012 rabcd ");
    fail_transfers(5, "times=3");
    EXPECT_EQ(cdcm_6208_writebytedata(1, 0x0012, 1), 0);
    EXPECT_EQ(cdcm_6208_readbytedata(1, 0x0012, &value), 0);
    EXPECT_EQ(value, 0xABCD);
    cdcm6208softreset(1);
    EXPECT_EQ(story(), "bus5 w00030000 delay20 w00030000 ") << "what cannot be read counts 0";
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
    lock_within(1, 0);
    cdcm6208softreset(1);
    for (const auto& [device, output, sent] :
         {std::tuple(0U, 4U, "bus2 w00090443 w000a0005 w000b5555 w00090643 w0015 r0000 "),
          {1U, 5U, "bus5 w000c0443 w000e5555 w000d0005 w000c0643 w0015 r0004 "},
          {1U, 6U, "bus5 w000f0443 w00115555 w00100005 w000f0643 w0015 r0004 "},
          {1U, 7U, "bus5 w00120443 w00145555 w00130005 w00120643 w0015 r0004 "},
          {0U, 3U, "bus2 w0015 r0000 "}, // of others only the lock is told
          {0U, 8U, "bus2 w0015 r0000 "},
          {1U, 0xFFFFFFFFU, "bus5 w0015 r0004 "}}) {
        forget_trace();
        EXPECT_EQ(cdcm_6208_out_freq_config(device, output, image_of(device), 100e6), 0);
        EXPECT_THAT(logged("INFO"),
                    ElementsAre("FrcaDIV = 2.000\t",
                                device == 0 ? "CDCM6208 pll unlock\n" : "CDCM6208 pll lock\n"));
        EXPECT_EQ(story(), sent);
    }
    for (const double frequency :
         {0.0, -0.0, -25e6, 1.0, 16.9e6, 401e6, 1e300, Limits::max(), Limits::min(),
          Limits::denorm_min(), Limits::infinity(), -Limits::infinity(), Limits::quiet_NaN(),
          // Its divider would be that of 25 MHz if it were counted modulo 2^32.
          400e6 * 1048576 / (4294967296.0 + 16777216)}) {
        forget_trace();
        EXPECT_EQ(cdcm_6208_out_freq_config(0, 4, image_of(0), frequency), HAL_CLOCK_INVALID);
        EXPECT_THAT(logged("ERROR"), ElementsAre("CDCM6208 set channal freq fail!\n"));
        EXPECT_EQ(story(), "") << frequency;
    }
}

TEST_F(Clock, WhatIsMissingLeavesTheSynthesizersAlone) {
    std::uint16_t value = 77;
    for (const std::uint32_t dev : {2U, 0xFFFFFFFFU}) {
        EXPECT_EQ(cdcm6208_gpio_init(dev), HAL_CLOCK_INVALID);
        EXPECT_EQ(cdcm_6208_writebytedata(dev, 1, 1), 0);
        EXPECT_EQ(cdcm_6208_readbytedata(dev, 1, &value), 0);
        EXPECT_EQ(cdcm6208_out_config(dev, image_of(0)), 0);
        EXPECT_EQ(cdcm_6208_out_freq_config(dev, 4, image_of(0), 25e6), HAL_CLOCK_INVALID);
        cdcm6208softreset(dev);
    }
    EXPECT_EQ(cdcm_6208_readbytedata(0, 1, nullptr), 0);
    EXPECT_EQ(cdcm6208_out_config(0, nullptr), 0);
    EXPECT_EQ(cdcm_6208_out_freq_config(0, 4, nullptr, 25e6), HAL_CLOCK_INVALID);
    cdcm6208_read_register(0, nullptr);
    cdcm6208_user_cfg.gpio_set = [](std::uint32_t, std::uint32_t level) {
        return level == 1 ? 42 : 7;
    };
    EXPECT_EQ(cdcm6208_gpio_init(0), 42) << "the second result counts";
    cdcm6208_user_cfg = {};
    EXPECT_EQ(cdcm6208_gpio_init(0), HAL_CLOCK_INVALID);
    EXPECT_EQ(cdcm_6208_writebytedata(0, 1, 1), 0);
    EXPECT_EQ(cdcm_6208_readbytedata(0, 1, &value), 0);
    EXPECT_EQ(cdcm6208_out_config(0, image_of(0)), 0);
    EXPECT_EQ(cdcm_6208_out_freq_config(0, 4, image_of(0), 25e6), 0);
    EXPECT_EQ(value, 77);
    EXPECT_EQ(story(), "delay20 delay20 delay50 ");
    clock_glue_install();
    cdcm6208_user_cfg.print = nullptr;
    cdcm6208_user_cfg.delay_ms = nullptr;
    EXPECT_EQ(cdcm6208_out_config(0, image_of(0)), 1);
}

// ---- generators ----

// A divider block as it is sent: fraction and integer in hexadecimal, the rest is 0.
std::string block(const std::string& fraction, const std::string& integer) {
    return fraction + "00000000000000" + integer + "00 ";
}

void write_registers(std::uint8_t bus, std::uint8_t reg, const std::vector<std::uint8_t>& bytes) {
    EXPECT_EQ(i2c_writenumbytes(bus, kGenerator, &reg, 1, bytes.data(),
                                static_cast<std::uint16_t>(bytes.size())),
              0);
}

// What bringing up device 1 sends, all outputs being on before: second reference, 35 MHz.
const std::string kUntilPll = "delay10 bus3 "
                              "w68 rff w69 rff w68bf w69bf w68 rbf w69 rbf w6100 "
                              "w68 rbf w69 rbf w689f w699f w68 r9f w69 r9f w6300 "
                              "w68 r9f w69 r9f w688f w698f w68 r8f w69 r8f w6500 "
                              "w68 r8f w69 r8f w6887 w6987 w68 r87 w69 r87 w6700 "
                              "w1c05 w1060cc010200008c0640000000 w69fc w1c1f w1c9f ";
const std::string kPllRead = "w10 r60cc010200008c0640000000 ";
const std::string kOn35 = block("02db6db4", "0230");
const std::string kAfterPll = "w2181 w3181 w4181 w5181 w607b w627b w647b w667b w22" + kOn35 +
                              "w32" + kOn35 + "w42" + kOn35 + "w52" + kOn35 +
                              "w68 r87 w69 rfc w68c7 w69fc w68 rc7 w69 rfc w6101 "
                              "w68 rc7 w69 rfc w68e7 w69fc w68 re7 w69 rfc w6301 "
                              "w68 re7 w69 rfc w68f7 w69fc w68 rf7 w69 rfc w6501 "
                              "w68 rf7 w69 rfc w68ff w69fc w68 rff w69 rfc w6701 ";

TEST_F(Clock, AGeneratorsBringUpIsTheWholeSequence) {
    write_registers(3, 0x68, {0xFF});
    write_registers(3, 0x69, {0xFF});
    forget_trace();
    EXPECT_EQ(idt6965_init(1), 1);
    EXPECT_EQ(story(), kUntilPll + kPllRead + kAfterPll);
    EXPECT_EQ(idt6965_init(0), 1);
    EXPECT_THAT(story(), testing::AllOf(HasSubstr("w10a0cc010000008c0640000000 "),
                                        HasSubstr("w52" + block("00000000", "0320"))));
    idt6965_user_cfg.gpio_set = [](std::uint32_t dev, std::uint32_t level) {
        note("on" + std::to_string(dev * 10 + level));
        return 0;
    };
    EXPECT_EQ(idt6965_init(2), 1);
    EXPECT_THAT(story(), StartsWith("on21 delay10 bus4 "));
    for (const unsigned device : {0U, 1U, 2U}) {
        for (unsigned port = 1; port <= 4; ++port) {
            const auto wanted = static_cast<double>(idt6965_devlist[device].out_freq[port - 1]);
            EXPECT_NEAR(hertz("idt6965", device, port) / wanted, 1, kMillionth);
        }
    }
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
        EXPECT_EQ(story(), kUntilPll + (unreadable ? "" : kPllRead));
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
    EXPECT_EQ(story(), "bus3 w22" + block("00000000", "0320") + "w32" + kOn35 + "w42" +
                           block("00000000", "0000") + "w52" + block("012a05f0", "0000"));
    EXPECT_EQ(idt6965_out_freq_config(1, 4, 1'250'000'000 / 4096 + 1), 1);
    EXPECT_THAT(story(), EndsWith("fff000 "));
    EXPECT_EQ(idt6965_out_freq_config(1, 1, 1'250'000'000 / 4096), 0);
    EXPECT_EQ(idt6965_out_freq_config(1, 1, 1), 0);
    EXPECT_NEAR(hertz("idt6965", 1, 1), 25e6, 25) << "it stays";
    fail_transfers(3, "once");
    EXPECT_EQ(idt6965_out_freq_config(1, 1, 25'000'000), 1) << "the bus is not looked at";
}

TEST_F(Clock, AGeneratorsOutputsAreSwitchedOneByOneOrTogether) {
    ASSERT_EQ(idt6965_init(2), 1);
    EXPECT_EQ(idt6965_port_ctrl(2, 3, 0), 1);
    EXPECT_THROW(hertz("idt6965", 2, 3), vb::ClientError);
    EXPECT_GT(hertz("idt6965", 2, 2), 0) << "the others stay on";
    EXPECT_EQ(idt6965_port_ctrl(2, 3, 1), 1);
    EXPECT_GT(hertz("idt6965", 2, 3), 0);
    write_registers(4, 0x68, {0x01});
    write_registers(4, 0x69, {0x02});
    forget_trace();
    EXPECT_EQ(idt6965_port_ctrl(2, 0, 1), 1);
    EXPECT_EQ(idt6965_port_ctrl(2, 0, 2), 1); // all but 1 is off
    EXPECT_EQ(story(), "bus4 w68 r01 w69 r02 w6881 w6982 w68 r81 w69 r82 w69 r82 w6982 "
                       "w68 r81 w69 r82 w6801 w6902 w68 r01 w69 r02 w69 r02 w6902 ");
    fail_transfers(4, "after=1:once"); // what cannot be read counts 0
    EXPECT_EQ(idt6965_port_ctrl(2, 2, 1), 1);
    EXPECT_EQ(story(), "bus4 w68 r01 w6821 w6920 w68 r21 w69 r20 w6301 ");
    for (const auto& [port, mode] : {std::pair(1U, 3U), {2U, 0U}, {3U, 7U}, {4U, 0xFFFFFFF9U}}) {
        EXPECT_EQ(idt6965_set_out_mode(2, port, mode), 1);
    }
    EXPECT_EQ(story(), "bus4 w607b w621b w64fb w663b ");
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
        const std::string all = story();
        EXPECT_THAT(all, StartsWith("bus6 w42 r"));
        EXPECT_THAT(all, EndsWith(" w42" + each.after + "w42 r" + each.after));
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
    EXPECT_THAT(results, ElementsAre(1, 1, 1, 1, 1, 0, 1, 1, 0, 1))
        << "time-out, retries and transfer of reading, writing, reading back; an old divider that "
           "cannot be read counts 0";
}

TEST_F(Clock, WhatIsMissingLeavesTheGeneratorsAlone) {
    for (const auto& [dev, port] :
         {std::pair(4U, 1U), {0xFFFFFFFFU, 1U}, {0U, 0U}, {0U, 5U}, {0U, 0xFFFFFFFFU}}) {
        EXPECT_EQ(idt6965_out_freq_config(dev, port, 25'000'000), 0);
        EXPECT_EQ(idt6965_set_out_mode(dev, port, 3), 0);
        EXPECT_EQ(port == 0 ? 0 : idt6965_port_ctrl(dev, port, 1), 0);
        EXPECT_EQ(idt6965_change_out_freq(dev, port, 1), 0);
        EXPECT_EQ(dev == 0 ? 0 : idt6965_init(dev), 0);
    }
    idt6965_user_cfg = {};
    EXPECT_EQ(idt6965_init(0), 0);
    EXPECT_EQ(idt6965_out_freq_config(0, 1, 25'000'000), 1);
    EXPECT_EQ(idt6965_port_ctrl(0, 1, 1), 1);
    EXPECT_EQ(idt6965_change_out_freq(0, 1, 1), 0);
    EXPECT_EQ(story(), "");
}

// ---- registry ----

TEST_F(Clock, TheRegistryLeadsToEveryChip) {
    for (const clock_config_entry& entry : clock_config) {
        const bool cdcm = entry.type == HAL_CLOCK_CDCM6208;
        const unsigned device = cdcm ? entry.cdcm_index : entry.idt_index;
        const char* bus = cdcm ? entry.cdcm_bus_id[device] : entry.idt_bus_id[device];
        EXPECT_EQ(cdcm ? cdcm6208_out_config(device, entry.cdcm_reg_list[device])
                       : idt6965_init(device),
                  1);
        EXPECT_THAT(story(), HasSubstr("bus" + std::string(bus).substr(0, 1) + " "));
    }
}

} // namespace
} // namespace hal_test::clock_chips
