// The dividers of the clock chips against exact integer arithmetic, their register images, and the
// registry.

#include "clock/cdcm6208_divider.h"
#include "clock/idt6965_registers.h"

#include <hal_bsp/clock.h>

#include <gmock/gmock.h>

#include <cmath>

namespace hal_test::clock_registers {
namespace {

namespace synthesizer = hal::cdcm6208;
namespace generator = hal::idt6965;

// ---- synthesizers ----

// The same choice from whole numbers: every integer frequency has an exact quotient.
std::optional<synthesizer::Divider> reference(uint64_t frequency) {
    const auto total = static_cast<uint32_t>((uint64_t{400000000} << 20) / frequency);
    const auto fits = [](const synthesizer::Divider& divider) {
        const uint64_t sixteenths = uint64_t{divider.value} * 16;
        for (const auto& [low, high] : {std::pair(16, 31), {32, 62}, {64, 94}, {96, 126}}) {
            if (sixteenths > uint64_t(low) << 20 && sixteenths < uint64_t(high) << 20) {
                return true;
            }
        }
        return false;
    };
    std::optional<synthesizer::Divider> best;
    long least = 5000;
    for (const synthesizer::Divider& each :
         {synthesizer::Divider{2, total / 2}, synthesizer::Divider{3, total / 3}}) {
        const long distance = std::labs(2047 - static_cast<long>(each.value % 4096));
        if (fits(each) && distance < least) {
            best = each;
            least = distance;
        }
    }
    return best;
}

TEST(Cdcm6208Divider, IsTheStatedChoiceOverTheWholeRange) {
    std::array<int, 4> found{};
    for (uint64_t frequency = 15000000; frequency <= 210000000; frequency += 251) {
        const auto divider = synthesizer::divider_for(static_cast<double>(frequency));
        ASSERT_EQ(divider, reference(frequency)) << frequency;
        ++found[divider ? divider->prescaler : 0];
        if (divider) {
            const double produced = 400e6 / divider->prescaler / (divider->value / 1048576.0);
            ASSERT_LT(std::fabs(produced / static_cast<double>(frequency) - 1), 1e-6) << frequency;
        }
    }
    EXPECT_GT(found[2], 100000);
    EXPECT_GT(found[3], 100000);
    EXPECT_GT(found[0], 10000);
}

TEST(Cdcm6208Divider, BoundsOfTheRangesAreOutside) {
    for (const auto& [low, high] : {std::pair(1048576U, 2031616U),
                                    {2097152U, 4063232U},
                                    {4194304U, 6160384U},
                                    {6291456U, 8257536U}}) {
        EXPECT_TRUE(synthesizer::usable(low + 1) && synthesizer::usable(high - 1));
        EXPECT_FALSE(synthesizer::usable(low) || synthesizer::usable(high));
    }
}

TEST(Cdcm6208Divider, EqualDistancesTakePrescalerTwo) {
    int ties = 0;
    for (uint32_t total = 3145734; total < 12320768; ++total) {
        const synthesizer::Divider two{2, total / 2};
        const synthesizer::Divider three{3, total / 3};
        if (synthesizer::usable(two.value) && synthesizer::usable(three.value) &&
            synthesizer::off_centre(two.value) == synthesizer::off_centre(three.value)) {
            ++ties;
            EXPECT_EQ(synthesizer::divider_for(400e6 * 1048576 / (total + 0.5)), two);
        }
    }
    EXPECT_GT(ties, 100);
}

TEST(Cdcm6208Divider, RegistersHoldTheWholeDivider) {
    for (const uint32_t prescaler : {2U, 3U}) {
        for (uint32_t value = 1048577; value < 8257536; value += 97) {
            const auto regs = synthesizer::registers_of({prescaler, value});
            ASSERT_EQ(regs.control, prescaler == 2 ? 0x0243 : 0x0643);
            ASSERT_EQ((uint32_t{regs.high} << 16 | regs.low) + 0x100000, value);
        }
    }
}

// ---- generators ----

void expect_exact(uint32_t vco, uint32_t frequency) {
    const uint64_t exact = (uint64_t{vco} << 24) / frequency; // integer and fraction in one
    const generator::Divider expected{static_cast<uint32_t>(exact >> 24),
                                      static_cast<uint32_t>(exact & 0xFFFFFF)};
    ASSERT_EQ(generator::divider_for(vco, frequency),
              exact >> 36 != 0 ? std::nullopt : std::optional(expected))
        << vco << ' ' << frequency;
}

TEST(Idt6965Divider, IsExactOverTheWholeRange) {
    for (const uint32_t vco : {1250000000U, 1300000000U, 1350000000U, 1400000000U, 1450000000U}) {
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
        return generator::Divider{static_cast<uint32_t>(value >> 24),
                                  static_cast<uint32_t>(value & 0xFFFFFF)};
    };
    for (uint64_t value = 0; value < kAll; value += 1000003) {
        const generator::Divider divider = divider_of(value);
        ASSERT_EQ(generator::from_block(generator::to_block(divider)), divider);
        ASSERT_EQ(generator::step(divider, 1), divider_of((value + 1) % kAll));
        ASSERT_EQ(generator::step(divider, 0), divider_of((value + kAll - 1) % kAll));
        ASSERT_EQ(generator::step(divider, 255), divider);
    }
}

TEST(Idt6965Pll, FeedbackMakesTheStatedFrequency) {
    for (uint32_t sel = 0; sel < 5; ++sel) {
        const auto setting = generator::pll_setting(1, sel);
        ASSERT_TRUE(setting);
        const uint32_t feedback = uint32_t{setting->block[7]} << 4 | setting->block[8] >> 4;
        EXPECT_EQ(feedback, 100 + 4 * sel);
        EXPECT_EQ(feedback * uint64_t{12500000}, setting->vco_hz);
    }
    EXPECT_FALSE(generator::pll_setting(0, 5) || generator::pll_setting(0, 0xFFFFFFFF));
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
    for (clock_config_entry* other : {&clock_config[1], &clock_config[2]}) {
        *other = {};
        other->type = 2;
    }
    clock_config_register();
    for (const clock_config_entry& other : {clock_config[1], clock_config[2]}) {
        EXPECT_TRUE(other.cdcm_bus_id == nullptr && other.idt_bus_id == nullptr);
    }
    expect_entry(clock_config[0], true, 0);
    expect_entry(clock_config[3], false, 0);
    expect_entry(clock_config[4], false, 1);

    std::ranges::copy(original, clock_config);
    for (int time = 0; time < 2; ++time) {
        clock_config_register();
        for (int i = 0; i < HAL_CLOCK_CHIPS; ++i) {
            expect_entry(clock_config[i], i < 2, i < 2 ? i : i - 2);
        }
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
    EXPECT_THAT(cdcm6208_reg_list[0], testing::ElementsAreArray(image));
    EXPECT_THAT(cdcm6208_reg_list[1], testing::ElementsAreArray(image));
}

} // namespace
} // namespace hal_test::clock_registers
