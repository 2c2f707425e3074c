// The generator loop against the board's video-timing generator.

#include "hal/hal_sync.h"
#include "support/thread.h"
#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

namespace hal_test::genlock_loop {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kNode[] = "/dev/vgen";

Heard<std::uint32_t> states;

class GenlockLoop : public OnBoard {
  protected:
    // The generator's time passes by the loop's reads, so nothing depends on the machine's load.
    void SetUp() override {
        OnBoard::SetUp();
        set_speed(1000);
        ask("vgen.pace", {{"frames", 5}});
        ask("vgen.delay", {{"ns", 0}});
        set("offset_ppm", 0);
        set("jitter_ns", 0);
        set_stale(0);
        states.clear();
        pthread_mutex_init(&p_.mutex, nullptr);
        p_.fd = open(kNode, O_RDWR | O_CLOEXEC);
        p_.refvs_x100 = p_.outvs_x100 = 6000;
        p_.h_total = 2200;
        p_.v_total = 1125;
        EXPECT_EQ(gen_set_enable(p_.fd, 6000), 0);
        ASSERT_EQ(gen_loop_create(&thread_, &para_), 0);
    }
    void TearDown() override {
        stop();
        close(p_.fd);
        pthread_mutex_destroy(&p_.mutex);
        OnBoard::TearDown();
    }
    // After this all is said that the loop had to say.
    void stop() {
        if (running_) {
            hal::stop_thread(thread_);
        }
        running_ = false;
    }
    void switch_to(int (*on_or_off)(gen_sys_param*)) {
        pthread_mutex_lock(&p_.mutex);
        EXPECT_EQ(on_or_off(&p_), 0);
        pthread_mutex_unlock(&p_.mutex);
    }
    static std::uint32_t last_state() {
        const auto all = states.all();
        return all.empty() ? HAL_GENLOCK_IDLE : all.back();
    }
    // Waits until a state has been reported since the last one that was waited for. It need not
    // last: the next may be there before this looks.
    void wait_for(std::uint32_t state) {
        EXPECT_TRUE(comes_true([&] {
            const auto all = states.all();
            const auto found = std::find(all.begin() + looked_at_, all.end(), state);
            looked_at_ = found == all.end() ? looked_at_ : found - all.begin() + 1;
            return found != all.end();
        })) << state;
    }
    // Waits until the loop has read the stamps so often.
    void steps(int count) {
        const auto frames = [&] { return ask("vgen.show").at("frames").get<int>(); };
        const int wanted = frames() + 5 * count;
        EXPECT_TRUE(comes_true([&] { return frames() >= wanted; }));
    }
    void set(const char* name, double value) {
        ask("vgen.set", {{"name", name}, {"value", value}});
    }
    void set_stale(int reads) { ask("vgen.stale", {{"reads", reads}}); }

    gen_sys_param p_{};
    gen_loop_para para_{&p_, nullptr, [](std::uint32_t state) { states.add(state); }};
    pthread_t thread_{};
    bool running_ = true;
    std::ptrdiff_t looked_at_ = 0;
};

TEST_F(GenlockLoop, LocksAnOutputThatIsOffAndKeepsItLocked) {
    set("offset_ppm", 40);
    set("jitter_ns", 50);
    ask("vgen.delay", {{"ns", 3'000'000}});
    switch_to(genlock_switch_on);
    wait_for(HAL_GENLOCK_LOCK);
    steps(600);
    EXPECT_EQ(last_state(), HAL_GENLOCK_LOCK);
    const auto show = ask("vgen.show");
    EXPECT_LT(std::abs(show.at("phase_ns").get<double>()), 6000);
    EXPECT_NEAR(show.at("clock_hz").get<double>() / 148500000, 1 - 40e-6, 1e-6);
    switch_to(genlock_switch_off);
    wait_for(HAL_GENLOCK_IDLE);
    stop();
    const auto runs = logged("INFO");
    EXPECT_THAT(runs, Contains(EndsWith(">:genlock state is adj!\n")));
    EXPECT_THAT(runs, Contains(EndsWith(">:genlock state is lock!\n")));
    EXPECT_THAT(runs.back(), StartsWith("[genlock]-RUN:<gen_loop_thread_task><"));
    EXPECT_THAT(runs.back(), EndsWith(">:genlock state is idle!\n"));
    EXPECT_THAT(logged("ERROR"), IsEmpty());
}

TEST_F(GenlockLoop, IrregularFramesAreSkippedAndStaleOnesEndInError) {
    switch_to(genlock_switch_on);
    wait_for(HAL_GENLOCK_ADJ);
    set("jitter_ns", 100'000);
    steps(2);
    forget_trace();
    steps(5);
    expect_none({{"kind", "ioctl"}, {"request", "GEN_SET_CLK"}});
    set("jitter_ns", 0);
    set_stale(-1);
    wait_for(HAL_GENLOCK_ERROR);
    const auto errors = logged("ERROR");
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_THAT(errors[0], StartsWith("[genlock]-ERROR:<gen_get_timestamp><"));
    EXPECT_THAT(errors[0], EndsWith(">:gen_state is error!\n"));
    set_stale(0);
    steps(5);
    EXPECT_EQ(last_state(), HAL_GENLOCK_ERROR) << "until it is switched on again";
    switch_to(genlock_switch_on);
    wait_for(HAL_GENLOCK_LOCK);
}

TEST_F(GenlockLoop, AClockThatCannotBeSetIsAnErrorAtTheStartOnly) {
    add_fault(std::string(kNode) + ":ioctl=GEN_SET_CLK:EIO:once");
    switch_to(genlock_switch_on);
    wait_for(HAL_GENLOCK_ERROR);
    const auto errors = logged("ERROR");
    ASSERT_GE(errors.size(), 2U);
    EXPECT_THAT(errors[0], StartsWith("[genlock]-ERROR:<gen_set_clk><"));
    EXPECT_THAT(errors[0], EndsWith(">:set clk[148500000] error!\n"));
    EXPECT_THAT(errors[1], StartsWith("[genlock]-ERROR:<gen_loop_thread_task><"));
    EXPECT_THAT(errors[1], EndsWith(">:genlock set clk  fail!\n"));
    switch_to(genlock_switch_on);
    wait_for(HAL_GENLOCK_LOCK);
    forget_trace();
    add_fault(std::string(kNode) + ":ioctl=GEN_SET_CLK:EIO");
    set("offset_ppm", 500);
    steps(20);
    EXPECT_THAT(logged("ERROR"), Contains(EndsWith("] error!\n")));
    EXPECT_EQ(last_state(), HAL_GENLOCK_ADJ);
}

class GenlockRequests : public OnBoard {};

TEST_F(GenlockRequests, EachOneThatFailsIsLoggedWithItsValue) {
    EXPECT_LT(gen_set_enable(-1, 5994), 0);
    EXPECT_LT(gen_set_disable(-1), 0);
    EXPECT_LT(gen_force_vsync_enable(-1, 7), 0);
    std::uint32_t rate = 42;
    EXPECT_LT(gen_get_clkrate(-1, &rate), 0);
    EXPECT_EQ(gen_get_clkrate(-1, nullptr), -1);
    gen_loop_para none{};
    EXPECT_EQ(gen_loop_create(nullptr, &none), -1);
    EXPECT_EQ(gen_loop_thread_task(&none), nullptr);
    EXPECT_THAT(logged(),
                ElementsAre(EndsWith(">:set frame_x100[5994] error!\n"),
                            EndsWith(">:set gen_set_disable error!\n"),
                            EndsWith(">:set force vsync error! refvs_sycle=7\n"),
                            EndsWith(">:get clk rate error!\n"), EndsWith("get clk rate is [42]\n"),
                            EndsWith(">:para is NULL!\n"), EndsWith(">:para is NULL!\n\n")));
}

} // namespace
} // namespace hal_test::genlock_loop
