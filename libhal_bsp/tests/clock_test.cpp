// The clock chips of the board, brought up over the library's own I2C and GPIO functions, and
// measured at their outputs.

#include "client/board_fixture.h"
#include "tests/support/captured.h"

#include <clock_glue.h>
#include <hal_bsp/hal_bsp.h>

#include <algorithm>
#include <array>
#include <gmock/gmock.h>

namespace {

using hal_test::Captured;
using testing::ElementsAre;
using vb::Json;

constexpr double kMillionth = 1e-6;

class Clock : public vb::BoardTest {
  protected:
    // The glue opens buses, which stay open for the life of the process: once for all, before
    // descriptors are counted.
    void SetUp() override {
        log_set_quiet(true);
        clock_glue_install();
        for (const std::uint8_t bus : std::array<std::uint8_t, 5>{
                 2, 3, 4, 5, 6}) { // a write opens its bus whatever it lacks
            i2c_writenumbytes(bus, 0, nullptr, 0, nullptr, 0);
        }
        BoardTest::SetUp();
    }
    // How many messages with these bytes the chips of a bus were written.
    std::size_t written(int bus, const char* bytes) {
        return events({{"kind", "i2c"}, {"bus", bus}, {"direction", "write"}, {"bytes", bytes}})
            .size();
    }
    double hertz(const char* chip, unsigned device, unsigned output) {
        return board()
            .ask(std::string(chip) + ".frequency", {{"device", device}, {"output", output}})
            .get<double>();
    }
    void lock_within(unsigned device, int ms) {
        board().ask("cdcm6208.lock_ms", {{"device", device}, {"ms", ms}});
    }
    static int bring_up(unsigned device) {
        return cdcm6208_out_config(device, cdcm6208_reg_list[device]);
    }
};

constexpr char kControl[] = "000300f0";
constexpr char kControlInReset[] = "000300b0";

// ---- synthesizers ----

TEST_F(Clock, ASynthesizerIsPoweredWrittenVerifiedAndResetOnceUnlessItLocks) {
    const int buses[] = {2, 5};
    const int power_lines[] = {471, 473};
    for (const unsigned device : {0U, 1U}) {
        lock_within(device, 1'000'000);
        const Captured errors(stderr);
        EXPECT_EQ(bring_up(device), 1);
        EXPECT_EQ(errors.text(), "Debug: CDCM6208 pll unlock\n");
        EXPECT_EQ(written(buses[device], kControl), 2U) << "image and soft reset";
        EXPECT_EQ(written(buses[device], kControlInReset), 1U);
        std::vector<int> levels;
        for (const Json& event :
             events({{"kind", "line"}, {"bank", "sysgpio"}, {"line", power_lines[device]}})) {
            levels.push_back(event["level"].get<int>());
        }
        EXPECT_THAT(levels, ElementsAre(0, 1));
        const Json shown = board().ask("cdcm6208.show", {{"device", device}});
        EXPECT_EQ(shown.at("powered"), true);
        std::array<std::uint16_t, 21> regs{};
        cdcm6208_read_register(device, regs.data());
        EXPECT_TRUE(std::equal(regs.begin(), regs.end(), cdcm6208_reg_list[device]));
    }
}

TEST_F(Clock, ASynthesizerThatLocksIsWrittenAndResetAgain) {
    lock_within(0, 0);
    const Captured errors(stderr);
    EXPECT_EQ(bring_up(0), 1);
    EXPECT_EQ(errors.text(), "Debug: CDCM6208 pll lock\n");
    EXPECT_EQ(written(2, kControl), 4U);
    EXPECT_EQ(written(2, kControlInReset), 2U);
    EXPECT_EQ(board().ask("cdcm6208.show", {{"device", 0}}).at("locked"), true);
}

TEST_F(Clock, ARegisterThatReadsBackOtherwiseEndsTheBringUp) {
    const Captured errors(stderr);
    add_fault("/dev/i2c-2:ioctl=I2C_RDWR:EIO:after=26:once"); // 21 written, 5 read
    EXPECT_EQ(bring_up(0), 0);
    add_fault("/dev/i2c-2:ioctl=I2C_RDWR:EIO:after=2:once"); // register 2 is not written
    EXPECT_EQ(bring_up(0), 0);
    EXPECT_EQ(errors.text(), "ERROR: reg=0x0005, set=0x0023, get=0x0000\n"
                             "ERROR: reg=0x0002, set=0x0017, get=0x0000\n");
    EXPECT_EQ(written(2, kControlInReset), 0U) << "no soft reset";
    board().ask("sysgpio.drive", {{"line", 472}, {"level", 0}});
    EXPECT_EQ(bring_up(0), 0) << "held in reset it does not answer";
}

TEST_F(Clock, ASynthesizersOutputsGiveWhatWasAskedFor) {
    ASSERT_EQ(bring_up(0), 1);
    ASSERT_EQ(bring_up(1), 1);
    for (const double wanted : {25e6, 27e6, 33e6, 36e6, 74.25e6, 74.25e6 / 1.001, 100e6, 122.88e6,
                                148.5e6, 148.5e6 / 1.001, 199e6}) {
        for (const unsigned output : {4U, 5U, 6U, 7U}) {
            const unsigned device = output % 2;
            ASSERT_EQ(cdcm_6208_out_freq_config(device, output, cdcm6208_reg_list[device], wanted),
                      0);
            EXPECT_NEAR(hertz("cdcm6208", device, output) / wanted, 1, kMillionth) << wanted;
        }
    }
    forget_trace();
    EXPECT_EQ(cdcm_6208_out_freq_config(0, 4, cdcm6208_reg_list[0], 401e6), HAL_CLOCK_INVALID);
    EXPECT_EQ(cdcm_6208_out_freq_config(0, 4, cdcm6208_reg_list[0], 0), HAL_CLOCK_INVALID);
    expect_none({{"kind", "i2c"}});
    lock_within(0, 0);
    cdcm6208softreset(0);
    EXPECT_EQ(cdcm_6208_out_freq_config(0, 3, cdcm6208_reg_list[0], 25e6), 0);
    EXPECT_THAT(logged("INFO"), testing::Contains("CDCM6208 pll lock\n"));
}

// ---- generators ----

TEST_F(Clock, AGeneratorGivesItsFrequenciesAndCanBeSwitched) {
    for (const unsigned device : {0U, 1U, 2U}) {
        ASSERT_EQ(idt6965_init(device), 1);
        for (unsigned port = 1; port <= 4; ++port) {
            const auto wanted = static_cast<double>(idt6965_devlist[device].out_freq[port - 1]);
            EXPECT_NEAR(hertz("idt6965", device, port) / wanted, 1, kMillionth);
        }
    }
    EXPECT_EQ(idt6965_out_freq_config(1, 3, 148'500'000), 1);
    EXPECT_NEAR(hertz("idt6965", 1, 3) / 148.5e6, 1, kMillionth);
    EXPECT_EQ(idt6965_out_freq_config(1, 3, 305'000), 0) << "the divider does not fit";
    EXPECT_NEAR(hertz("idt6965", 1, 3) / 148.5e6, 1, kMillionth);
    EXPECT_EQ(idt6965_port_ctrl(1, 3, 0), 1);
    EXPECT_THROW(hertz("idt6965", 1, 3), vb::ClientError);
    EXPECT_GT(hertz("idt6965", 1, 2), 0) << "the others stay on";
    EXPECT_EQ(idt6965_port_ctrl(1, 3, 1), 1);
    EXPECT_GT(hertz("idt6965", 1, 3), 0);
    EXPECT_EQ(idt6965_set_out_mode(1, 3, 5), 1);
    EXPECT_EQ(board().ask("idt6965.show", {{"device", 1}}).at("outputs").at(2).at("mode"), 5);
}

TEST_F(Clock, AGeneratorWhosePllDoesNotVerifyStaysOff) {
    // Four ports switched off with seven transfers each, five for the PLL, then its read-back.
    ASSERT_EQ(idt6965_init(0), 1);
    add_fault("/dev/i2c-6:ioctl=I2C_RDWR:EIO:after=33:once");
    EXPECT_EQ(idt6965_init(0), 0);
    for (unsigned port = 1; port <= 4; ++port) {
        EXPECT_THROW(hertz("idt6965", 0, port), vb::ClientError);
    }
}

TEST_F(Clock, ATrimMovesTheFrequencyByTheFinestStep) {
    ASSERT_EQ(idt6965_init(0), 1);
    const double start = hertz("idt6965", 0, 2);
    const double step = 1.25e9 / (1 << 24) / (50.0 * 50.0);
    EXPECT_EQ(idt6965_change_out_freq(0, 2, 1), 1);
    EXPECT_NEAR(start - hertz("idt6965", 0, 2), step, step / 1000) << "a larger divider";
    EXPECT_EQ(idt6965_change_out_freq(0, 2, 0), 1);
    EXPECT_EQ(hertz("idt6965", 0, 2), start);
    EXPECT_EQ(idt6965_change_out_freq(0, 2, 0), 1);
    EXPECT_NEAR(hertz("idt6965", 0, 2) - start, step, step / 1000) << "borrows from the integer";
    EXPECT_EQ(hertz("idt6965", 0, 1), start) << "the others stay";

    std::vector<int> results;
    sweep(
        "/dev/i2c-6", "EIO", [&] { results.push_back(idt6965_change_out_freq(0, 2, 1)); },
        [](bool) {});
    EXPECT_THAT(results, ElementsAre(1, 1, 0, 1, 1, 0, 1, 1, 0, 1))
        << "time-out, retries and transfer of reading, writing, reading back";
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
        EXPECT_FALSE(events({{"kind", "i2c"}, {"bus", std::stoi(bus)}}).empty());
    }
}

} // namespace
