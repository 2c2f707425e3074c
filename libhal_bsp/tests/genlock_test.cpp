// The genlock controller step by step, and the judgement on time stamps, without a device.

#include "hal/hal_sync.h"
#include "tests/support/log_tap.h"

#include <hal_bsp/hal_bsp.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <gmock/gmock.h>

namespace hal_test::genlock {
namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint64_t kPeriod = 16666666; // at 60 Hz
constexpr double kNominal = 148500000;

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

// What the shell was given, and what it answers: one result for each command, the last for all
// that follow.
std::vector<std::string> commands;
std::vector<int> shell_results;

} // namespace
} // namespace hal_test::genlock

extern "C" int system(const char* command) {
    using namespace hal_test::genlock;
    commands.emplace_back(command);
    return shell_results[std::min(commands.size(), shell_results.size()) - 1];
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
    int step(std::uint64_t stamp) {
        p_.gen_state = HAL_GENLOCK_ADJ;
        return genlock_process(&p_, &stamp);
    }
    static std::vector<std::string> lines() { return LogTap::instance().take_lines(); }

    gen_sys_param p_{};
};

TEST_F(Genlock, SwitchingOnDerivesClockAndLimitsAndOffResets) {
    EXPECT_EQ(p_.clk_next, 148500000U);
    EXPECT_EQ(p_.clk_center, kNominal);
    EXPECT_EQ(p_.clk_range, kNominal * 0.0006);
    EXPECT_EQ(p_.clk_step_max, kNominal * 0.0001);
    EXPECT_EQ(p_.gen_enable, 1U);
    EXPECT_EQ(p_.gen_state, 1U);
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

struct Step {
    std::uint64_t stamp;
    std::uint32_t state;
    double x; // 0: inside the dead band
};

TEST_F(Genlock, AStepRegulatesOnTheNearestEdge) {
    for (const Step& each : {
             Step{0, 3, 0},                       // on the edge
             Step{3000, 3, 0},                    //
             Step{4499, 3, 0},                    // the dead band ends
             Step{4501, 3, 1},                    //
             Step{20000, 2, 15500},               //
             Step{30000, 2, 25500},               //
             Step{kPeriod - 10000, 3, -5500},     // early
             Step{kPeriod / 2 - 1, 2, 8328832},   // the way back turns round
             Step{kPeriod / 2, 2, -8328833},      //
             Step{100000000000 - 9000, 3, -4500}, // many periods on, where P is cut off
             Step{100000000000 + 9000, 3, 4500},  //
         }) {
        SCOPED_TRACE(each.stamp);
        SetUp();
        lines();
        EXPECT_EQ(step(each.stamp), 0);
        EXPECT_EQ(p_.gen_state, each.state);
        EXPECT_EQ(p_.err_prev, each.x);
        EXPECT_EQ(p_.err_sum, each.x);
        EXPECT_EQ(p_.clk_cur, 148500000U) << "the clock in force was the next one";
        const double change = 0.1485 * (0.001 * each.x) * 60;
        const double step_max = 14850;
        EXPECT_EQ(p_.clk_next,
                  static_cast<std::uint32_t>(kNominal + std::clamp(change, -step_max, step_max)));
        EXPECT_EQ(p_.first_sample, each.x == 0 ? 1 : 0);
        EXPECT_THAT(lines(), IsEmpty());
    }
}

TEST_F(Genlock, StepsAndClockStayWithinTheirLimits) {
    for (const auto& [stamp, ppm] :
         {std::pair(kPeriod / 3, 600), std::pair(kPeriod / 3 * 2, -600)}) {
        for (int i = 0; i < 20; ++i) {
            const double before = p_.clk_cur = p_.clk_next;
            EXPECT_EQ(step(stamp), 0);
            EXPECT_LE(std::abs(p_.clk_next - before), 14850);
        }
        EXPECT_EQ(p_.clk_next, kNominal + 148.5 * ppm);
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
        std::vector<std::string> daemons; // started, after the old ones were ended
        std::string error;
    };
    const std::string longest(sizeof gen_sys_param::eth_name, 'n'); // not terminated
    const std::array<Run, 7> all = {
        Run{1, "eth0", {0}, 0, 3, {"phc2sys -a -rr &", "ptp4l -i eth0 &"}, ""},
        {0, "eth1", {0}, 0, 3, {"phc2sys -a -r &", "ptp4l -i eth1 -s &"}, ""},
        {7, longest, {-1, -1, 0}, 0, 3, {"phc2sys -a -rr &", "ptp4l -i " + longest + " &"}, ""},
        {0, "eth1", {0, 0, 0, 256}, 256, 3, {"phc2sys -a -r &", "ptp4l -i eth1 -s &"}, ""},
        {0, "eth1", {0, 0, -1}, -1, 1, {"phc2sys -a -r &"}, "slave phc2sys fail!\n"},
        {0,
         "e",
         {0, 0, 0, -1},
         -1,
         1,
         {"phc2sys -a -r &", "ptp4l -i e -s &"},
         "slave ptp4l fail!\n"},
        {1,
         "e",
         {0, 0, 0, -1},
         -1,
         1,
         {"phc2sys -a -rr &", "ptp4l -i e &"},
         "master ptp4l fail!\n"}};
    for (const Run& run : all) {
        SCOPED_TRACE(testing::PrintToString(run.daemons));
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
        std::vector<std::string> expected = {"killall -9 phc2sys", "killall -9 ptp4l"};
        expected.insert(expected.end(), run.daemons.begin(), run.daemons.end());
        EXPECT_EQ(commands, expected);
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
        EXPECT_THAT(commands, ElementsAre("killall -9 phc2sys", "killall -9 ptp4l"));
    }
    commands.clear();
    EXPECT_EQ(ptp_switch_on(nullptr), -1);
    EXPECT_EQ(ptp_switch_off(nullptr), -1);
    EXPECT_THAT(commands, IsEmpty());
}

} // namespace
} // namespace hal_test::genlock
