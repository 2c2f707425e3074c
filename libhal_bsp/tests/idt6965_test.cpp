// The IDT6965 driver against a chip of plain registers, its dividers against exact integer
// arithmetic, and the clock registry.
#include "clock/idt6965_registers.h"
#include "tests/support/fake_clock_chip.h"

#include <hal_bsp/hal_bsp.h>

#include <gmock/gmock.h>

using hal::idt6965::Divider;
using hal_test::FakeClockChip;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

constexpr uint32_t kVco = 1250000000;

using Events = std::vector<std::string>;

// A divider block as it is sent: fraction and integer in hexadecimal, the rest is 0.
std::string block(const std::string& fraction, const std::string& integer) {
    return fraction + "00000000000000" + integer + "00";
}

class Idt6965 : public testing::Test {
  protected:
    void SetUp() override {
        chip().reset();
        idt6965_user_cfg = FakeClockChip::callbacks();
        idt6965_user_cfg.print = nullptr; // not needed
    }
    static FakeClockChip& chip() { return FakeClockChip::instance(); }

    // Switching one port, as what is sent to 0x68, 0x69 and the port's own register.
    static void add_switching(Events& events, std::initializer_list<const char*> sent) {
        events.insert(events.end(), {"1/D4 68?", "1/D4 69?"});
        for (const char* const each : sent) {
            events.push_back(std::string("1/D4 ") + each);
        }
        events.insert(events.end() - 1, {"1/D4 68?", "1/D4 69?"});
    }

    // What bringing up device 1 sends, all outputs being on before: second reference, 35 MHz.
    static Events until_pll() {
        Events events{"gpio 1=1", "delay 10"};
        add_switching(events, {"68=BF", "69=BF", "61=00"});
        add_switching(events, {"68=9F", "69=9F", "63=00"});
        add_switching(events, {"68=8F", "69=8F", "65=00"});
        add_switching(events, {"68=87", "69=87", "67=00"});
        events.insert(events.end(), {"1/D4 1C=05", "1/D4 10=60CC010200008C0640000000", "1/D4 69=FC",
                                     "1/D4 1C=1F", "1/D4 1C=9F", "1/D4 10?"});
        return events;
    }
    static Events whole() {
        Events events = until_pll();
        for (const char* const sent :
             {"21=81", "31=81", "41=81", "51=81", "60=7B", "62=7B", "64=7B", "66=7B"}) {
            events.push_back(std::string("1/D4 ") + sent);
        }
        for (const char* const base : {"22=", "32=", "42=", "52="}) {
            events.push_back(std::string("1/D4 ") + base + block("02DB6DB4", "0230"));
        }
        add_switching(events, {"68=C7", "69=FC", "61=01"});
        add_switching(events, {"68=E7", "69=FC", "63=01"});
        add_switching(events, {"68=F7", "69=FC", "65=01"});
        add_switching(events, {"68=FF", "69=FC", "67=01"});
        return events;
    }
};

TEST_F(Idt6965, BringUpIsTheWholeSequence) {
    chip().set(0x68, std::array<uint8_t, 2>{0xFF, 0xFF});
    EXPECT_EQ(idt6965_init(1), 1);
    EXPECT_THAT(chip().take(), ElementsAreArray(whole()));

    EXPECT_EQ(idt6965_init(0), 1);
    EXPECT_THAT(chip().take(),
                testing::IsSupersetOf({std::string("0/D4 10=A0CC010000008C0640000000"),
                                       "0/D4 52=" + block("00000000", "0320")}));
}

TEST_F(Idt6965, PllThatDoesNotVerifyLeavesTheOutputsOff) {
    chip().set(0x68, std::array<uint8_t, 2>{0xFF, 0xFF});
    chip().stick(0x10, {0x60, 0xCC, 1, 2, 0, 0, 0x8C, 6, 0x40, 0, 0, 1});
    EXPECT_EQ(idt6965_init(1), 0);
    EXPECT_THAT(chip().take(), ElementsAreArray(until_pll()));
    chip().reset();
    chip().make_unreadable(0x10);
    EXPECT_EQ(idt6965_init(1), 0);
}

TEST_F(Idt6965, FrequenciesThatFitAreWrittenToTheirPort) {
    EXPECT_EQ(idt6965_out_freq_config(0, 1, 25000000), 1);
    EXPECT_EQ(idt6965_out_freq_config(0, 2, 35000000), 1);
    EXPECT_EQ(idt6965_out_freq_config(0, 3, 0), 1);
    EXPECT_EQ(idt6965_out_freq_config(0, 4, 0xFFFFFFFF), 1); // divider 0.29
    EXPECT_EQ(idt6965_out_freq_config(0, 4, kVco / 4096 + 1), 1);
    EXPECT_THAT(chip().take(),
                ElementsAre("0/D4 22=" + block("00000000", "0320"),
                            "0/D4 32=" + block("02DB6DB4", "0230"),
                            "0/D4 42=" + block("00000000", "0000"),
                            "0/D4 52=" + block("012A05F0", "0000"), testing::EndsWith("FFF000")));
    EXPECT_EQ(idt6965_out_freq_config(0, 1, kVco / 4096), 0);
    EXPECT_EQ(idt6965_out_freq_config(0, 1, 1), 0);
    EXPECT_EQ(idt6965_out_freq_config(0, 0, 25000000), 0);
    EXPECT_EQ(idt6965_out_freq_config(0, 5, 25000000), 0);
    EXPECT_THAT(chip().take(), IsEmpty());
    chip().fail_writes();
    EXPECT_EQ(idt6965_out_freq_config(0, 1, 25000000), 1) << "what the bus does is not looked at";
}

TEST_F(Idt6965, ModeIsKeptToItsByte) {
    for (const auto& [port, mode, sent] : {std::tuple(1U, 3U, "2/D4 60=7B"),
                                           {2U, 0U, "2/D4 62=1B"},
                                           {3U, 7U, "2/D4 64=FB"},
                                           {4U, 0xFFFFFFF9U, "2/D4 66=3B"}}) {
        EXPECT_EQ(idt6965_set_out_mode(2, port, mode), 1);
        EXPECT_THAT(chip().take(), ElementsAre(sent));
    }
    EXPECT_EQ(idt6965_set_out_mode(2, 0, 3), 0);
    EXPECT_EQ(idt6965_set_out_mode(2, 5, 3), 0);
    EXPECT_THAT(chip().take(), IsEmpty());
}

TEST_F(Idt6965, PortZeroSwitchesAllTogether) {
    chip().set(0x68, std::array<uint8_t, 2>{0x01, 0x02});
    EXPECT_EQ(idt6965_port_ctrl(0, 0, 1), 1);
    EXPECT_THAT(chip().take(), ElementsAre("0/D4 68?", "0/D4 69?", "0/D4 68=81", "0/D4 69=82",
                                           "0/D4 68?", "0/D4 69?", "0/D4 69?", "0/D4 69=82"));
    EXPECT_EQ(idt6965_port_ctrl(0, 0, 2), 1);
    EXPECT_THAT(chip().take(), ElementsAre("0/D4 68?", "0/D4 69?", "0/D4 68=01", "0/D4 69=02",
                                           "0/D4 68?", "0/D4 69?", "0/D4 69?", "0/D4 69=02"));
    EXPECT_EQ(idt6965_port_ctrl(0, 5, 1), 0);
    EXPECT_EQ(idt6965_port_ctrl(0, 0xFFFFFFFF, 1), 0);
    EXPECT_THAT(chip().take(), IsEmpty());
}

TEST_F(Idt6965, SwitchesThatCannotBeReadAreLeftAlone) {
    chip().make_unreadable(0x69);
    EXPECT_EQ(idt6965_port_ctrl(0, 2, 1), 1);
    EXPECT_THAT(chip().take(), ElementsAre("0/D4 68?", "0/D4 69?", "0/D4 68=20", "0/D4 68?",
                                           "0/D4 69?", "0/D4 63=01"));
}

TEST_F(Idt6965, TrimMovesTheDividerByOneStep) {
    struct Case {
        uint8_t dir;
        std::vector<uint8_t> before;
        std::string after;
    };
    const std::vector<Case> cases{
        {1, {0, 0, 0, 0, 9, 9, 9, 9, 9, 9, 9, 3, 0x20, 9}, block("00000004", "0320")},
        {1, {3, 255, 255, 0xFC, 0, 0, 0, 0, 0, 0, 0, 3, 0x20, 0}, block("00000000", "0330")},
        {1, {3, 255, 255, 0xFC, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xF0, 0}, block("00000000", "0000")},
        {0, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0x20, 0}, block("03FFFFFC", "0310")},
        {0, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, block("03FFFFFC", "FFF0")},
        {0, {0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x10, 0}, block("0000FFFC", "0010")},
        {2, {2, 0xDB, 0x6D, 0xB4, 9, 9, 9, 9, 9, 9, 9, 2, 0x30, 9}, block("02DB6DB4", "0230")},
    };
    for (const Case& each : cases) {
        chip().set(0x42, each.before);
        EXPECT_EQ(idt6965_change_out_freq(0, 3, each.dir), 1);
        EXPECT_THAT(chip().take(), ElementsAre("0/D4 42?", "0/D4 42=" + each.after, "0/D4 42?"));
    }
    EXPECT_EQ(idt6965_change_out_freq(0, 0, 1), 0);
    EXPECT_EQ(idt6965_change_out_freq(0, 5, 1), 0);
    EXPECT_THAT(chip().take(), IsEmpty());
}

TEST_F(Idt6965, BadDevicesAndEmptyCallbacksDoNothing) {
    for (const uint32_t dev : {4U, 0xFFFFFFFFU}) {
        EXPECT_EQ(idt6965_init(dev), 0);
        EXPECT_EQ(idt6965_out_freq_config(dev, 1, 25000000), 0);
        EXPECT_EQ(idt6965_set_out_mode(dev, 1, 3), 0);
        EXPECT_EQ(idt6965_port_ctrl(dev, 1, 1), 0);
        EXPECT_EQ(idt6965_change_out_freq(dev, 1, 1), 0);
    }
    EXPECT_THAT(chip().take(), IsEmpty());
    idt6965_user_cfg = {};
    EXPECT_EQ(idt6965_init(0), 0);
    EXPECT_EQ(idt6965_out_freq_config(0, 1, 25000000), 1);
    EXPECT_EQ(idt6965_port_ctrl(0, 1, 1), 1);
    EXPECT_EQ(idt6965_change_out_freq(0, 1, 1), 0);
}

// ---- dividers and PLL settings ----

void expect_exact(uint32_t vco, uint32_t frequency) {
    const uint64_t exact = (uint64_t{vco} << 24) / frequency; // integer and fraction in one
    const auto divider = hal::idt6965::divider_for(vco, frequency);
    if (exact >> 36 != 0) {
        ASSERT_EQ(divider, std::nullopt) << frequency;
        return;
    }
    const Divider expected{static_cast<uint32_t>(exact >> 24),
                           static_cast<uint32_t>(exact & 0xFFFFFF)};
    ASSERT_EQ(divider, expected) << vco << ' ' << frequency;
}

TEST(Idt6965Divider, IsExactOverTheWholeRange) {
    for (const uint32_t vco : {kVco, 1300000000U, 1350000000U, 1400000000U, 1450000000U}) {
        for (uint64_t frequency = 1; frequency <= 0xFFFFFFFF; frequency += 9973) {
            expect_exact(vco, static_cast<uint32_t>(frequency));
        }
        for (uint32_t n = 1; n <= 5000; ++n) { // where the integer part changes
            for (const uint32_t frequency : {vco / n - 1, vco / n, vco / n + 1}) {
                expect_exact(vco, frequency);
            }
        }
        expect_exact(vco, 0xFFFFFFFF);
    }
}

TEST(Idt6965Divider, RegistersHoldItAndStepsMoveItByOne) {
    constexpr uint64_t kAll = uint64_t{1} << 36;
    const auto divider_of = [](uint64_t value) {
        return Divider{static_cast<uint32_t>(value >> 24), static_cast<uint32_t>(value & 0xFFFFFF)};
    };
    for (uint64_t value = 0; value < kAll; value += 1000003) {
        const Divider divider = divider_of(value);
        ASSERT_EQ(hal::idt6965::from_block(hal::idt6965::to_block(divider)), divider);
        ASSERT_EQ(hal::idt6965::step(divider, 1), divider_of((value + 1) % kAll));
        ASSERT_EQ(hal::idt6965::step(divider, 0), divider_of((value + kAll - 1) % kAll));
        ASSERT_EQ(hal::idt6965::step(divider, 255), divider);
    }
}

TEST(Idt6965Pll, FeedbackMakesTheStatedFrequency) {
    for (uint32_t sel = 0; sel < 5; ++sel) {
        const auto setting = hal::idt6965::pll_setting(1, sel);
        ASSERT_TRUE(setting);
        const uint32_t feedback = uint32_t{setting->block[7]} << 4 | setting->block[8] >> 4;
        EXPECT_EQ(feedback, 100 + 4 * sel);
        EXPECT_EQ(feedback * uint64_t{12500000}, setting->vco_hz);
    }
    EXPECT_FALSE(hal::idt6965::pll_setting(0, 5));
    EXPECT_FALSE(hal::idt6965::pll_setting(0, 0xFFFFFFFF));
}

// ---- registry ----

void expect_entry(const clock_config_entry& entry, bool cdcm, int index) {
    EXPECT_EQ(entry.cdcm_index, cdcm ? index : 0);
    EXPECT_EQ(entry.idt_index, cdcm ? 0 : index);
    EXPECT_EQ(entry.cdcm_bus_id, cdcm ? cdcm6208_bus_id : nullptr);
    EXPECT_EQ(entry.cdcm_reg_list, cdcm ? cdcm6208_reg_list : nullptr);
    EXPECT_EQ(entry.cdcm_gpio_pdn, cdcm ? cdcm6208_gpio_PDN : nullptr);
    EXPECT_EQ(entry.cdcm_gpio_reset, cdcm ? cdcm6208_gpio_reset : nullptr);
    EXPECT_EQ(entry.idt_bus_id, cdcm ? nullptr : idt6965_bus_id);
}

TEST(ClockRegistry, CountsEachKindAndLeavesOthersAlone) {
    const auto original = std::to_array(clock_config);
    clock_config[1].type = 2;
    clock_config[2].type = 2;
    clock_config_register();
    const std::array others{clock_config[1], clock_config[2]};
    for (const clock_config_entry& entry : others) {
        EXPECT_EQ(entry.cdcm_bus_id, nullptr);
        EXPECT_EQ(entry.idt_bus_id, nullptr);
    }
    expect_entry(clock_config[0], true, 0);
    expect_entry(clock_config[3], false, 0);
    expect_entry(clock_config[4], false, 1);

    std::ranges::copy(original, clock_config);
    for (int time = 0; time < 2; ++time) {
        clock_config_register();
        expect_entry(clock_config[0], true, 0);
        expect_entry(clock_config[1], true, 1);
        expect_entry(clock_config[2], false, 0);
        expect_entry(clock_config[3], false, 1);
        expect_entry(clock_config[4], false, 2);
    }
}

TEST(ClockBoardData, IsThatOfTheBoard) {
    clock_config_register();
    EXPECT_STREQ(cdcm6208_bus_id[0], "2");
    EXPECT_STREQ(cdcm6208_bus_id[1], "5");
    EXPECT_STREQ(idt6965_bus_id[2], "4");
    EXPECT_EQ(clock_config[0].cdcm_gpio_pdn[clock_config[1].cdcm_index], 473);
    const std::array<uint16_t, 23> image{0x01B9, 0,      0x0017, 0x00F0, 0x20EF, 0x0023,
                                         0x0002, 0x0023, 0x0002, 0x02C3, 0x0010, 0x5300,
                                         0x02C3, 0x0010, 0x5B00, 0x02C3, 0x0010, 0x5300,
                                         0x02C3, 0x0010, 0x5300, 0,      0};
    EXPECT_THAT(cdcm6208_reg_list[0], ElementsAreArray(image));
    EXPECT_THAT(cdcm6208_reg_list[1], ElementsAreArray(image));
}

} // namespace
