// The genlock controller step by step, and the judgement on time stamps, without a device.

#include "hal/hal_sync.h"
#include "tests/support/log_tap.h"

#include <hal_bsp/hal_bsp.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <gmock/gmock.h>
#include <limits>
#include <optional>
#include <random>
#include <tuple>

namespace hal_test::genlock {
namespace {

using testing::ContainsRegex;
using testing::ElementsAre;

constexpr std::uint64_t kPeriod = 16666666; // at 60 Hz

// What the generator answers to a request for its time stamps.
gen_timestamp device;
int device_error = 0;

} // namespace
} // namespace hal_test::genlock

// Stands before the C library's, for the library too.
extern "C" int ioctl(int, unsigned long, ...) noexcept;
int ioctl(int, unsigned long request, ...) noexcept {
    using namespace hal_test::genlock;
    if (device_error != 0 || request != HAL_GEN_GET_TIMESTAMP) {
        errno = device_error;
        return -1;
    }
    va_list arguments;
    va_start(arguments, request);
    std::memcpy(va_arg(arguments, void*), &device, sizeof device);
    va_end(arguments);
    return 0;
}

namespace hal_test::genlock {
namespace {

// What the shell was given, each with a semicolon behind it, and what it answers: one result for
// each command, the last for all that follow.
std::string commands;
std::vector<int> shell_results;

} // namespace
} // namespace hal_test::genlock

extern "C" int system(const char* command) {
    using namespace hal_test::genlock;
    commands += std::string(command) + ";";
    const auto count = static_cast<std::size_t>(std::count(commands.begin(), commands.end(), ';'));
    return shell_results[std::min(count, shell_results.size()) - 1];
}

namespace hal_test::genlock {
namespace {

class Genlock : public testing::Test {
  protected:
    void SetUp() override {
        log_set_quiet(true);
        LogTap::instance().take();
        p_.refvs_x100 = p_.outvs_x100 = 6000;
        p_.h_total = 2200;
        p_.v_total = 1125;
        ASSERT_EQ(genlock_switch_on(&p_), 0);
    }
    static std::vector<std::string> lines() { return LogTap::instance().take_lines(); }

    gen_sys_param p_{};
};

TEST_F(Genlock, SwitchingIsLoggedAndOffResets) {
    const auto messages = LogTap::instance().take();
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages[1].file, "genlock_func");
    EXPECT_EQ(messages[1].level, HAL_LOG_DEBUG);
    EXPECT_EQ(messages[1].text,
              "[genlock]-DEBUG:<genlock_switch_on><" + std::to_string(messages[1].line) +
                  ">:h_total=2200, v_total=1125, outvs_x100=6000, refvs_x100=6000\n");
    EXPECT_THAT(messages[2].text, ContainsRegex(">:out_freq=148500000\n$"));
    p_.ptp_state = 3;
    EXPECT_EQ(genlock_switch_off(&p_), 0);
    EXPECT_THAT(lines(), ElementsAre(ContainsRegex(
                             "DEBUG .genlock.-DEBUG:<genlock_switch_off><[0-9]+>:genlock "
                             "switch off!\n$")));
    EXPECT_EQ(p_.gen_enable + p_.gen_state + p_.clk_next + p_.clk_cur, 0U);
    EXPECT_EQ(p_.kp * 10, p_.kd);
    EXPECT_EQ(p_.clk_center + p_.clk_range + p_.clk_step_max + p_.ki, 0.0);
    EXPECT_EQ(p_.ptp_state, 3U) << "PTP is none of genlock's business";
}

// ---- the controller a second time, written from its description alone ----

using Dice = std::mt19937_64;

double within(Dice& dice, double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(dice);
}

template <typename Value, std::size_t kCount>
Value any_of(Dice& dice, const std::array<Value, kCount>& values) {
    return values[dice() % kCount];
}

void expected_switch_on(gen_sys_param& p) {
    const bool good = p.refvs_x100 != 0 && p.h_total != 0 && p.v_total != 0;
    const std::uint32_t pixels = std::uint32_t{p.h_total} * p.v_total;
    p.clk_next = p.clk_cur =
        good ? static_cast<std::uint32_t>(std::uint64_t{p.refvs_x100} * pixels / 100) : 0;
    p.clk_center = p.clk_next;
    p.clk_range = p.clk_center * 0.0006;
    p.clk_step_max = p.clk_center * 0.0001;
    p.gen_enable = p.gen_state = good ? 1 : 0;
    p.kp = 0.001;
    p.ki = 0;
    p.kd = 0.01;
    p.err_sum = p.err_prev = 0;
    p.first_sample = 1;
}

// How late a stamp is, or nothing where no edge is near.
std::optional<double> expected_lateness(std::uint64_t stamp, std::uint64_t rate) {
    const std::uint64_t period = 100'000'000'000 / rate;
    const std::uint64_t edge = stamp - stamp * rate % 100'000'000'000 / rate; // modulo 2^64
    if (edge >= stamp) {
        return edge - stamp > period / 2 ? std::nullopt
                                         : std::optional(-static_cast<double>(edge - stamp));
    }
    const std::uint64_t late = stamp - edge;
    if (late > period / 2 + period) {
        return std::nullopt;
    }
    return late >= period       ? static_cast<double>(late - period)
           : late >= period / 2 ? -static_cast<double>(period - late)
                                : static_cast<double>(late);
}

int expected_step(gen_sys_param& p, std::uint64_t stamp) {
    if (p.gen_state == 0 || p.gen_state == 4) {
        return 0;
    }
    const bool good = p.refvs_x100 != 0 && p.h_total != 0 && p.v_total != 0;
    const auto late = good ? expected_lateness(stamp, p.refvs_x100) : std::nullopt;
    if (!late) {
        return -1;
    }
    p.gen_state = std::abs(*late) < 20000 ? 3 : 2;
    if (std::abs(*late) < 4500) {
        return 0;
    }
    const double x = *late < 0 ? *late + 4500 : *late - 4500;
    p.err_prev = p.first_sample == 1 ? x : p.err_prev;
    p.first_sample = p.first_sample == 1 ? 0 : p.first_sample;
    p.err_sum += x;
    const double answer = p.kp * x + p.ki * p.err_sum + p.kd * (x - p.err_prev);
    const uint32_t whole_frames = p.clk_cur / p.h_total / p.v_total;
    double change = p.clk_cur / 1e9 * answer * whole_frames;
    change = change > p.clk_step_max       ? p.clk_step_max
             : p.clk_step_max + change < 0 ? -p.clk_step_max
                                           : change;
    double wanted = p.clk_cur + change;
    wanted = wanted > p.clk_center + p.clk_range   ? p.clk_center + p.clk_range
             : wanted < p.clk_center - p.clk_range ? p.clk_center - p.clk_range
                                                   : wanted;
    p.err_prev = x;
    p.clk_cur = p.clk_next;
    p.clk_next = std::isnan(wanted)
                     ? p.clk_next
                     : static_cast<std::uint32_t>(std::clamp(wanted, 0.0, 4294967295.0));
    return 0;
}

// At a place where something is decided, near an edge of the grid, or anywhere in the 64 bits.
std::uint64_t any_stamp(Dice& dice, std::uint16_t rate) {
    if (rate == 0 || dice() % 8 == 0) {
        return dice();
    }
    const std::uint64_t period = 100'000'000'000 / rate;
    const std::uint64_t edge = 100'000'000'000 * (dice() % 10'000) / rate;
    if (dice() % 4 == 0) {
        const std::uint64_t place =
            any_of(dice, std::array<std::uint64_t, 5>{0, 4500, 20'000, period / 2, period});
        return (dice() % 2 == 0 ? edge + place : edge - place) + dice() % 3 - 1;
    }
    const std::uint64_t reach = dice() % 2 == 0 ? 60'000 : 40'000'000;
    return edge + dice() % (2 * reach) - reach;
}

void shake(Dice& dice, gen_sys_param& p) {
    p.gen_state = static_cast<std::uint32_t>(dice() % 16 == 0 ? dice() % 6 : 2 + dice() % 2);
    p.first_sample = static_cast<std::uint8_t>(dice() % 2);
    p.err_sum = within(dice, -1e8, 1e8);
    p.err_prev = within(dice, -1e7, 1e7);
    p.ki = dice() % 4 == 0 ? within(dice, 0, 1e-5) : p.ki;
    p.kp *= within(dice, 0, 4);
    p.clk_cur = static_cast<std::uint32_t>(p.clk_center * within(dice, 0.9993, 1.0007));
    p.clk_next = static_cast<std::uint32_t>(p.clk_center * within(dice, 0.9993, 1.0007));
    if (dice() % 32 == 0) { // what only a broken application puts there
        using Limits = std::numeric_limits<double>;
        *any_of(dice, std::array{&p.kp, &p.ki, &p.kd, &p.clk_center, &p.clk_range, &p.clk_step_max,
                                 &p.err_sum}) =
            any_of(dice, std::array{Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity(),
                                    0.0, Limits::max(), -1.0, 1e300});
        p.clk_cur = static_cast<std::uint32_t>(dice());
    }
}

// All that the controller keeps, to be compared bit for bit, but for which NaN it is.
auto all_of(const gen_sys_param& p) {
    const auto number = [](double value) {
        return std::isnan(value) ? std::nullopt : std::optional(value);
    };
    return std::tuple(number(p.err_sum), number(p.err_prev), number(p.clk_center),
                      number(p.clk_range), number(p.clk_step_max), number(p.kp), number(p.ki),
                      number(p.kd), p.clk_next, p.clk_cur, p.gen_state, p.gen_enable,
                      p.first_sample);
}

constexpr std::array<std::uint16_t, 11> kRates{2398, 2400, 2500,  2997,  3000, 5000,
                                               5994, 6000, 11988, 12000, 0};
constexpr std::array<std::uint16_t, 9> kWidths{858, 1650, 2200, 2640, 2750, 4400, 8800, 1, 0};
constexpr std::array<std::uint16_t, 8> kHeights{525, 625, 750, 1125, 2250, 4500, 65535, 0};

TEST_F(Genlock, StepsAreThoseOfItsDescriptionBitForBit) {
    Dice dice(1);
    for (int i = 0; i < 50'000; ++i) {
        SCOPED_TRACE(i);
        const bool odd = dice() % 8 == 0;
        const auto some = static_cast<std::uint16_t>(dice());
        p_.refvs_x100 = odd ? some : any_of(dice, kRates);
        p_.h_total = any_of(dice, kWidths);
        p_.v_total = any_of(dice, kHeights);
        gen_sys_param expected = p_;
        expected_switch_on(expected);
        EXPECT_EQ(genlock_switch_on(&p_), expected.gen_enable == 1 ? 0 : -1);
        ASSERT_EQ(all_of(p_), all_of(expected));
        shake(dice, p_);
        expected = p_;
        const std::uint64_t stamp = any_stamp(dice, p_.refvs_x100);
        ASSERT_EQ(genlock_process(&p_, &stamp), expected_step(expected, stamp));
        ASSERT_EQ(all_of(p_), all_of(expected));
        lines();
    }
}

TEST_F(Genlock, WhatCannotBeRegulatedIsRefusedAndLeftAlone) {
    const std::uint64_t stamp = 30000;
    EXPECT_EQ(genlock_sys_init(nullptr), -1);
    EXPECT_EQ(genlock_switch_on(nullptr), -1);
    EXPECT_EQ(genlock_switch_off(nullptr), -1);
    EXPECT_EQ(genlock_process(nullptr, &stamp), -1);
    EXPECT_EQ(genlock_process(&p_, nullptr), -1);
    for (const std::uint32_t state : {HAL_GENLOCK_IDLE, HAL_GENLOCK_ERROR}) {
        lines();
        p_.gen_state = state;
        const gen_sys_param before = p_;
        EXPECT_EQ(genlock_process(&p_, &stamp), 0);
        // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison,cert-exp42-c,cert-flp37-c): a copy
        EXPECT_EQ(std::memcmp(&before, &p_, sizeof p_), 0);
        EXPECT_THAT(lines(),
                    ElementsAre(ContainsRegex("ERROR .genlock.-ERROR:<genlock_process><[0-9]+>:"
                                              "gen_state is " +
                                              std::to_string(state) + "\n$")));
    }
    p_.h_total = 0;
    EXPECT_EQ(genlock_switch_on(&p_), -1);
    EXPECT_EQ(p_.gen_enable + p_.gen_state + p_.clk_next, 0U) << "off, whatever it was";
}

gen_timestamp stamps(std::uint64_t newest, std::array<std::uint64_t, 3> intervals) {
    gen_timestamp record{};
    record.newest = newest;
    record.sample = 5'000'000'000;
    std::uint64_t stamp = record.sample;
    record.ring[newest] = stamp;
    for (unsigned back = 1; back <= 3; ++back) {
        stamp -= intervals[back - 1];
        record.ring[(newest + 10 - back) % 10] = stamp;
    }
    return record;
}

TEST_F(Genlock, OnlyRegularFramesAreTaken) {
    constexpr std::uint64_t kEdge = 13333; // 0.08 %
    struct Frames {
        std::array<std::uint64_t, 3> intervals;
        bool good;
    };
    std::uint64_t place = 0;
    std::array<std::uint64_t, 12> words{};
    const std::array<Frames, 8> all = {
        Frames{{kPeriod, kPeriod, kPeriod}, true},
        {{kPeriod + kEdge, kPeriod + kEdge, kPeriod + kEdge}, true},
        {{kPeriod + kEdge + 1, kPeriod + kEdge, kPeriod + kEdge}, false},
        {{kPeriod - kEdge, kPeriod - kEdge, kPeriod - kEdge}, true},
        {{kPeriod - kEdge, kPeriod - kEdge, kPeriod - kEdge - 1}, false},
        {{kPeriod, kPeriod + 2000, kPeriod}, true},
        {{kPeriod - 1000, kPeriod + 1000, kPeriod + 1001}, false},
        {{kPeriod, 2 * kPeriod, kPeriod}, false}};
    for (const Frames& each : all) {
        SCOPED_TRACE(testing::PrintToString(each.intervals));
        device = stamps(place++ % 10, each.intervals);
        EXPECT_EQ(gen_get_timestamp(&p_, words.data()), each.good ? 0 : -1);
        const gen_timestamp left = each.good ? device : gen_timestamp{};
        EXPECT_EQ(std::memcmp(words.data(), &left, sizeof left), 0);
    }
    device = stamps(3, {kPeriod, kPeriod, kPeriod});
    device.newest = 10;
    EXPECT_EQ(gen_get_timestamp(&p_, words.data()), -1) << "no such place in the ring";
    p_.refvs_x100 = 0;
    EXPECT_EQ(gen_get_timestamp(&p_, words.data()), -1);
}

TEST_F(Genlock, TheFourthRepetitionOfARecordIsAnError) {
    std::array<std::uint64_t, 12> words{};
    p_.gen_state = HAL_GENLOCK_LOCK;
    const auto read = [&] { return gen_get_timestamp(&p_, words.data()); };
    for (const std::uint64_t place : {4U, 7U}) { // a new record starts it all over
        device = stamps(place, {kPeriod, kPeriod, kPeriod});
        lines();
        for (int good = 0; good < 4; ++good) { // itself, and three repetitions
            EXPECT_EQ(read(), 0);
        }
        EXPECT_EQ(p_.gen_state, 3U);
        EXPECT_EQ(read(), -1);
        EXPECT_EQ(p_.gen_state, 4U);
        p_.gen_state = HAL_GENLOCK_LOCK;
        EXPECT_EQ(read(), -1);
        EXPECT_EQ(p_.gen_state, 3U) << "said once";
        EXPECT_THAT(lines(), ElementsAre(ContainsRegex("<gen_get_timestamp><[0-9]+>:gen_state is "
                                                       "error!\n$")));
    }
    device_error = EIO;
    EXPECT_EQ(read(), -1);
    device_error = 0;
    EXPECT_EQ(gen_get_timestamp(nullptr, words.data()), -1);
    EXPECT_EQ(gen_get_timestamp(&p_, nullptr), -1);
    EXPECT_THAT(lines(), ElementsAre(ContainsRegex(">:get outvs_timestamp fail!\n$"),
                                     ContainsRegex(">:gen_sys_param is NULL!\n$"),
                                     ContainsRegex(">:gen_sys_param is NULL!\n$")));
}

TEST(Ptp, TheDaemonsAreStartedAfreshInTheRoleAsked) {
    log_set_quiet(true);
    struct Run {
        std::uint8_t is_master;
        std::string name;
        std::vector<int> shell; // its results
        int result;
        std::uint32_t state;
        std::string daemons; // started, after the old ones were ended
        std::string error;
    };
    const std::string ended = "killall -9 phc2sys;killall -9 ptp4l;";
    const std::string longest(sizeof gen_sys_param::eth_name, 'n'); // not terminated
    const std::array<Run, 7> all = {
        Run{1, "eth0", {0}, 0, 3, "phc2sys -a -rr &;ptp4l -i eth0 &;", ""},
        {0, "eth1", {0}, 0, 3, "phc2sys -a -r &;ptp4l -i eth1 -s &;", ""},
        {7, longest, {-1, -1, 0}, 0, 3, "phc2sys -a -rr &;ptp4l -i " + longest + " &;", ""},
        {0, "eth1", {0, 0, 0, 256}, 256, 3, "phc2sys -a -r &;ptp4l -i eth1 -s &;", ""},
        {0, "eth1", {0, 0, -1}, -1, 1, "phc2sys -a -r &;", "slave phc2sys fail!\n"},
        {0, "e", {0, 0, 0, -1}, -1, 1, "phc2sys -a -r &;ptp4l -i e -s &;", "slave ptp4l fail!\n"},
        {1, "e", {0, 0, 0, -1}, -1, 1, "phc2sys -a -rr &;ptp4l -i e &;", "master ptp4l fail!\n"}};
    for (const Run& run : all) {
        SCOPED_TRACE(run.daemons);
        gen_sys_param p{};
        p.is_master = run.is_master;
        run.name.copy(p.eth_name, sizeof p.eth_name);
        p.ptp_state = 9;
        commands.clear();
        shell_results = run.shell;
        LogTap::instance().take();
        EXPECT_EQ(ptp_switch_on(&p), run.result);
        EXPECT_EQ(p.ptp_state, run.state);
        EXPECT_EQ(p.ptp_enable, 1U);
        EXPECT_EQ(commands, ended + run.daemons);
        const auto messages = LogTap::instance().take();
        ASSERT_EQ(messages.size(), run.error.empty() ? 2U : 3U);
        EXPECT_EQ(messages[1].text, "[genlock]-DEBUG:<ptp_switch_on><" +
                                        std::to_string(messages[1].line) +
                                        ">:is_master=" + std::to_string(run.is_master) +
                                        ", eth_name:" + run.name + "\n");
        EXPECT_THAT(messages.back().text, testing::EndsWith(run.error));
        commands.clear();
        shell_results = {-1};
        EXPECT_EQ(ptp_switch_off(&p), 0);
        EXPECT_EQ(p.ptp_enable + p.ptp_state, 0U);
        EXPECT_EQ(commands, ended);
    }
    commands.clear();
    EXPECT_EQ(ptp_switch_on(nullptr), -1);
    EXPECT_EQ(ptp_switch_off(nullptr), -1);
    EXPECT_EQ(commands, "");
}

} // namespace
} // namespace hal_test::genlock
