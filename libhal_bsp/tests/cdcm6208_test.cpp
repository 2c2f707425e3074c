// The CDCM6208 driver against a chip of plain registers, and its dividers against exact integer
// arithmetic.
#include "clock/cdcm6208_divider.h"
#include "tests/support/fake_clock_chip.h"
#include "tests/support/log_tap.h"

#include <hal_bsp/hal_bsp.h>

#include <cmath>
#include <gmock/gmock.h>
#include <limits>

using hal::cdcm6208::Divider;
using hal_test::FakeClockChip;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

using Limits = std::numeric_limits<double>;

constexpr uint16_t kStatus = 21;
const std::array<uint8_t, 2> kLocked{0x00, 0x04};
const std::array<uint8_t, 2> kAllButLocked{0xFF, 0xFB};

class Cdcm6208 : public testing::Test {
  protected:
    void SetUp() override {
        log_set_quiet(true);
        chip().reset();
        cdcm6208_user_cfg = FakeClockChip::callbacks();
        log_lines();
    }
    static FakeClockChip& chip() { return FakeClockChip::instance(); }
    static std::vector<std::string> log_lines() {
        return hal_test::LogTap::instance().take_lines();
    }
    static const uint16_t* image() { return cdcm6208_reg_list[1]; }

    static std::string transfer(const char* format, unsigned reg, unsigned value = 0) {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), format, reg, value);
        return text.data();
    }
    using Events = std::vector<std::string>;
    static void add_image_writes(Events& events) {
        for (unsigned reg = 0; reg < 21; ++reg) {
            events.push_back(transfer("1/A8 %04X=%04X", reg, image()[reg]));
        }
    }
    static void add_image_reads(Events& events) {
        for (unsigned reg = 0; reg < 21; ++reg) {
            events.push_back(transfer("1/A8 %04X?", reg));
        }
    }
    static void add_soft_reset(Events& events) {
        events.insert(events.end(), {"1/A8 0003?", "1/A8 0003=00B0", "delay 20", "1/A8 0003=00F0"});
    }
    static Events bring_up() {
        Events events{"gpio 1=0", "delay 50", "gpio 1=1"};
        add_image_writes(events);
        add_image_reads(events);
        return events;
    }
};

TEST_F(Cdcm6208, RegistersAreSentMostSignificantByteFirst) {
    EXPECT_EQ(cdcm_6208_writebytedata(1, 0x0012, 0xABCD), 9);
    uint16_t value = 0;
    EXPECT_EQ(cdcm_6208_readbytedata(1, 0x0012, &value), 1);
    EXPECT_EQ(value, 0xABCD);
    EXPECT_THAT(chip().take(), ElementsAre("1/A8 0012=ABCD", "1/A8 0012?"));

    chip().make_unreadable(0x12);
    chip().fail_writes();
    value = 77;
    EXPECT_EQ(cdcm_6208_writebytedata(1, 0x0012, 1), 0);
    EXPECT_EQ(cdcm_6208_readbytedata(1, 0x0012, &value), 0);
    EXPECT_EQ(value, 77);
}

TEST_F(Cdcm6208, UnlockedChipIsWrittenVerifiedAndResetOnce) {
    chip().set(kStatus, kAllButLocked, 2);
    EXPECT_EQ(cdcm6208_out_config(1, image()), 1);
    Events expected = bring_up();
    add_soft_reset(expected);
    expected.emplace_back("1/A8 0015?");
    EXPECT_THAT(chip().take(), ElementsAreArray(expected));
    EXPECT_THAT(chip().take_prints(), ElementsAre("Debug: CDCM6208 pll unlock\n"));
}

TEST_F(Cdcm6208, LockedChipIsWrittenAndResetAgain) {
    chip().set(kStatus, kLocked, 2);
    EXPECT_EQ(cdcm6208_out_config(1, image()), 1);
    Events expected = bring_up();
    add_soft_reset(expected);
    expected.emplace_back("1/A8 0015?");
    add_image_writes(expected);
    add_soft_reset(expected);
    EXPECT_THAT(chip().take(), ElementsAreArray(expected));
    EXPECT_THAT(chip().take_prints(), ElementsAre("Debug: CDCM6208 pll lock\n"));
}

TEST_F(Cdcm6208, FirstRegisterThatReadsBackOtherwiseEndsTheBringUp) {
    chip().stick(5, {0x12, 0x34});
    chip().stick(7, {0x12, 0x34});
    EXPECT_EQ(cdcm6208_out_config(1, image()), 0);
    EXPECT_THAT(chip().take(), ElementsAreArray(bring_up()));
    EXPECT_THAT(chip().take_prints(), ElementsAre("ERROR: reg=0x0005, set=0x0023, get=0x1234\n"));

    chip().reset();
    chip().make_unreadable(0);
    EXPECT_EQ(cdcm6208_out_config(1, image()), 0);
    EXPECT_THAT(chip().take_prints(), ElementsAre("ERROR: reg=0x0000, set=0x01b9, get=0x0000\n"));
}

TEST_F(Cdcm6208, RegisterThatCannotBeReadIsNotLost) {
    chip().make_unreadable(3);
    cdcm6208softreset(1);
    EXPECT_THAT(chip().take(), ElementsAre("1/A8 0003?"));

    std::array<uint16_t, 22> regs;
    regs.fill(77);
    chip().set(0, std::array<uint8_t, 2>{1, 2});
    cdcm6208_read_register(1, regs.data());
    EXPECT_EQ(regs[0], 0x0102);
    EXPECT_EQ(regs[3], 77);
    EXPECT_EQ(regs[20], 0);
    EXPECT_EQ(regs[21], 77);
}

TEST_F(Cdcm6208, DividerRegistersAreWrittenInTheChipsOrder) {
    EXPECT_EQ(cdcm_6208_out_freq_config(0, 4, image(), 25000000), 0);
    EXPECT_THAT(chip().take(), ElementsAre("0/A8 0009=0443", "0/A8 000A=0045", "0/A8 000B=5555",
                                           "0/A8 0009=0643", "0/A8 0015?"));
    EXPECT_THAT(log_lines(), ElementsAre("INFO FrcaDIV = 8.000\t", "INFO CDCM6208 pll unlock\n"));
    chip().set(kStatus, kLocked, 2);
    for (const auto& [channel, c, h, l] :
         {std::tuple(5U, "0C", "0D", "0E"), {6U, "0F", "10", "11"}, {7U, "12", "13", "14"}}) {
        const auto write = [](const char* reg, const char* value) {
            return std::string("1/A8 00") + reg + "=" + value;
        };
        EXPECT_EQ(cdcm_6208_out_freq_config(1, channel, image(), 100000000), 0);
        EXPECT_THAT(chip().take(), ElementsAre(write(c, "0443"), write(l, "5555"), write(h, "0005"),
                                               write(c, "0643"), "1/A8 0015?"));
        EXPECT_THAT(log_lines(), ElementsAre("INFO FrcaDIV = 2.000\t", "INFO CDCM6208 pll lock\n"));
    }
}

TEST_F(Cdcm6208, OtherChannelsOnlyHaveTheirLockReported) {
    for (const uint32_t channel : {0U, 3U, 8U, 0xFFFFFFFFU}) {
        EXPECT_EQ(cdcm_6208_out_freq_config(0, channel, image(), 25000000), 0);
        EXPECT_THAT(chip().take(), ElementsAre("0/A8 0015?"));
        EXPECT_THAT(log_lines(), testing::Contains("INFO CDCM6208 pll unlock\n"));
    }
}

TEST_F(Cdcm6208, UnreachableFrequenciesAreRefused) {
    for (const double frequency :
         {0.0, -0.0, -25e6, 1.0, 16.9e6, 401e6, 1e300, Limits::max(), Limits::min(),
          Limits::denorm_min(), Limits::infinity(), -Limits::infinity(), Limits::quiet_NaN(),
          // Its divider would be that of 25 MHz if it were counted modulo 2^32.
          400e6 * 1048576 / (4294967296.0 + 16777216)}) {
        EXPECT_EQ(cdcm_6208_out_freq_config(0, 4, image(), frequency), -22) << frequency;
        EXPECT_THAT(log_lines(), ElementsAre("ERROR CDCM6208 set channal freq fail!\n"));
    }
    EXPECT_THAT(chip().take(), IsEmpty());
}

TEST_F(Cdcm6208, BadDevicesAndNullPointersDoNothing) {
    for (const uint32_t dev : {2U, 3U, 0xFFFFFFFFU}) {
        uint16_t value = 77;
        EXPECT_EQ(cdcm6208_gpio_init(dev), -22);
        EXPECT_EQ(cdcm_6208_writebytedata(dev, 1, 1), 0);
        EXPECT_EQ(cdcm_6208_readbytedata(dev, 1, &value), 0);
        EXPECT_EQ(cdcm6208_out_config(dev, image()), 0);
        EXPECT_EQ(cdcm_6208_out_freq_config(dev, 4, image(), 25000000), -22);
        cdcm6208softreset(dev);
        std::array<uint16_t, 21> regs{};
        cdcm6208_read_register(dev, regs.data());
        EXPECT_EQ(value, 77);
        EXPECT_THAT(regs, testing::Each(0));
    }
    EXPECT_EQ(cdcm_6208_readbytedata(0, 1, nullptr), 0);
    EXPECT_EQ(cdcm6208_out_config(0, nullptr), 0);
    EXPECT_EQ(cdcm_6208_out_freq_config(0, 4, nullptr, 25000000), -22);
    cdcm6208_read_register(0, nullptr);
    EXPECT_THAT(chip().take(), IsEmpty());
}

TEST_F(Cdcm6208, EmptyCallbacksFailCleanly) {
    EXPECT_EQ(cdcm6208_gpio_init(0), 42) << "the second result counts";
    cdcm6208_user_cfg = {};
    uint16_t value = 77;
    EXPECT_EQ(cdcm6208_gpio_init(0), -22);
    EXPECT_EQ(cdcm_6208_writebytedata(0, 1, 1), 0);
    EXPECT_EQ(cdcm_6208_readbytedata(0, 1, &value), 0);
    EXPECT_EQ(cdcm6208_out_config(0, image()), 0);
    EXPECT_EQ(cdcm_6208_out_freq_config(0, 4, image(), 25000000), 0);
    cdcm6208_user_cfg = FakeClockChip::callbacks();
    cdcm6208_user_cfg.print = nullptr;
    cdcm6208_user_cfg.delay_ms = nullptr;
    EXPECT_EQ(cdcm6208_out_config(0, image()), 1);
}

// ---- dividers ----

// The same choice from whole numbers: every integer frequency has an exact quotient.
std::optional<Divider> reference(uint64_t frequency) {
    const auto total = static_cast<uint32_t>((uint64_t{400000000} << 20) / frequency);
    const auto fits = [](const Divider& divider) {
        const uint64_t sixteenths = uint64_t{divider.value} * 16;
        for (const auto& [low, high] : {std::pair(16, 31), {32, 62}, {64, 94}, {96, 126}}) {
            if (sixteenths > uint64_t(low) << 20 && sixteenths < uint64_t(high) << 20) {
                return true;
            }
        }
        return false;
    };
    std::optional<Divider> best;
    long least = 5000;
    for (const Divider& each : {Divider{2, total / 2}, Divider{3, total / 3}}) {
        const long distance = std::labs(2047 - static_cast<long>(each.value % 4096));
        if (fits(each) && distance < least) {
            best = each;
            least = distance;
        }
    }
    return best;
}

TEST(Cdcm6208Divider, IsTheStatedChoiceOverTheWholeRange) {
    int by_two = 0;
    int by_three = 0;
    int none = 0;
    for (uint64_t frequency = 15000000; frequency <= 210000000; frequency += 251) {
        const auto divider = hal::cdcm6208::divider_for(static_cast<double>(frequency));
        ASSERT_EQ(divider, reference(frequency)) << frequency;
        ++(!divider ? none : divider->prescaler == 2 ? by_two : by_three);
        if (divider) {
            const double produced = 400e6 / divider->prescaler / (divider->value / 1048576.0);
            ASSERT_LT(std::fabs(produced / static_cast<double>(frequency) - 1), 1e-6) << frequency;
        }
    }
    EXPECT_GT(by_two, 100000);
    EXPECT_GT(by_three, 100000);
    EXPECT_GT(none, 10000);
}

TEST(Cdcm6208Divider, BoundsOfTheRangesAreOutside) {
    for (const auto& [low, high] : {std::pair(1048576U, 2031616U),
                                    {2097152U, 4063232U},
                                    {4194304U, 6160384U},
                                    {6291456U, 8257536U}}) {
        EXPECT_FALSE(hal::cdcm6208::usable(low));
        EXPECT_TRUE(hal::cdcm6208::usable(low + 1));
        EXPECT_TRUE(hal::cdcm6208::usable(high - 1));
        EXPECT_FALSE(hal::cdcm6208::usable(high));
    }
    EXPECT_FALSE(hal::cdcm6208::usable(0));
    EXPECT_FALSE(hal::cdcm6208::usable(0xFFFFFFFF));
}

TEST(Cdcm6208Divider, EqualDistancesTakePrescalerTwo) {
    int ties = 0;
    for (uint32_t total = 3145734; total < 12320768; ++total) {
        const Divider two{2, total / 2};
        const Divider three{3, total / 3};
        if (hal::cdcm6208::usable(two.value) && hal::cdcm6208::usable(three.value) &&
            hal::cdcm6208::off_centre(two.value) == hal::cdcm6208::off_centre(three.value)) {
            ++ties;
            EXPECT_EQ(hal::cdcm6208::divider_for(400e6 * 1048576 / (total + 0.5)), two);
        }
    }
    EXPECT_GT(ties, 100);
}

TEST(Cdcm6208Divider, RegistersHoldTheWholeDivider) {
    for (const uint32_t prescaler : {2U, 3U}) {
        for (uint32_t value = 1048577; value < 8257536; value += 97) {
            const auto regs = hal::cdcm6208::registers_of({prescaler, value});
            ASSERT_EQ(regs.control, prescaler == 2 ? 0x0243 : 0x0643);
            ASSERT_EQ((uint32_t{regs.high} << 16 | regs.low) + 0x100000, value);
        }
    }
}

} // namespace
