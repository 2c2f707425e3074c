// Keys and LEDs against the board's drivers; the keypad's driver first, by plain system calls.

#include "core/unique_fd.h"
#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <future>

namespace hal_test::keypad {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Clock = std::chrono::steady_clock;

constexpr char kNode[] = "/dev/keypad";

struct Told {
    keypad_event event;
    Clock::time_point at;
};

Heard<Told> heard;

void hear(keypad_event* event) {
    heard.add({*event, Clock::now()});
}

class Keypad : public OnBoard {
  protected:
    void SetUp() override {
        OnBoard::SetUp();
        heard.clear();
    }
    void TearDown() override {
        hal_keypad_deinit_v2();
        expect_threads(idle_threads_);
        OnBoard::TearDown();
    }
    void press(int key, int bounces = 0) {
        ask("keypad.press", {{"key", key}, {"hold_ms", 0}, {"bounces", bounces}});
    }
    const std::size_t idle_threads_ = threads();
};

TEST_F(Keypad, TheDriverQueuesWhatItsContactsDo) {
    const vb::UniqueFd fd(open(kNode, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    std::array<std::uint8_t, 16> bytes{};
    const auto next_state = [&] {
        return read(fd.get(), bytes.data(), bytes.size()) == 16 ? bytes[4] : -errno;
    };
    press(9, 2); // bounces
    EXPECT_TRUE(comes_true([&] { return ask("keypad.show")["queued"][0] == 10; }));
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(next_state(), i % 2 == 0 ? 1 : 0);
    }
    EXPECT_EQ(next_state(), -EAGAIN);
    EXPECT_THAT(std::vector(bytes.begin(), bytes.begin() + 12),
                ElementsAre(9, 0, 2, 2, 0, 0, 0, 0, 10, 0xFF, 0xFF, 0xFF));
    set_speed(10);
    ask("keypad.down", {{"key", 1}});
    expect_event({{"kind", "key"}, {"state", 2}}); // it repeats
    ask("keypad.up", {{"key", 1}});
    EXPECT_EQ(next_state(), 1);
    EXPECT_EQ(next_state(), 2);
    const auto lost = ask("keypad.show")["overflows"].get<int>();
    while (next_state() >= 0) {
    }
    for (int i = 0; i < 130; ++i) {
        press(2);
    }
    EXPECT_EQ(ask("keypad.show")["overflows"], lost + 4);
}

TEST_F(Keypad, AHundredKeysArriveInOrderNoneLostAndNoneTwice) {
    set_speed(50);
    ASSERT_EQ(hal_keypad_init_v2(hear), 0);
    for (int i = 0; i < 100; ++i) {
        press(i % 64);
    }
    heard.wait_for(200);
    hal_keypad_deinit_v2();
    expect_threads(idle_threads_);
    const auto all = heard.all();
    ASSERT_EQ(all.size(), 200U);
    for (unsigned i = 0; i < 200; ++i) {
        const keypad_event& event = all[i].event;
        EXPECT_EQ(event.value0, i / 2 % 64) << i;
        EXPECT_EQ(event.value4, 1 - i % 2);
        EXPECT_EQ(event.value8, i + 1);
        EXPECT_GE(event.value12, all[i == 0 ? 0 : i - 1].event.value12);
        EXPECT_EQ(event.zero2, 0);
        EXPECT_THAT(event.zero9, testing::Each(0));
    }
    EXPECT_GT(all[199].event.value12, 0U);
    forget_trace();
    hal_keypad_deinit_v2();
    EXPECT_THAT(logged(), IsEmpty()) << "there is nothing left to end";
}

TEST_F(Keypad, TwoKeysAreACycleApartAndFailedReadsAreNone) {
    ASSERT_EQ(hal_keypad_init_v2(hear), 0);
    press(1);
    const auto all = heard.wait_for(2);
    EXPECT_GE(all[1].at - all[0].at, std::chrono::milliseconds(20));

    constexpr int kFailures = 60;
    add_fault("/dev/keypad:read:EIO:times=" + std::to_string(kFailures));
    forget_trace();
    press(2);
    heard.wait_for(4);
    const auto reads = events({{"kind", "read"}});
    ASSERT_EQ(reads.size(), kFailures + 2U);
    EXPECT_LT(reads[kFailures]["t"].get<double>() - reads[0]["t"].get<double>(), kFailures * 0.02)
        << "it rested after a read that failed";

    clear_faults();
    add_fault("/dev/keypad:read:short=0:once");
    add_fault("/dev/keypad:read:short=6:once");
    press(3);
    const auto cut = heard.wait_for(5).back().event;
    EXPECT_EQ(cut.value0, 3);
    EXPECT_EQ(cut.value4, 0U) << "of what was cut off nothing is made up";
    EXPECT_EQ(cut.value8, 0);
}

TEST_F(Keypad, DeinitWaitsForNothingAndNothingOfBeforeComesBack) {
    static std::promise<void> entered;
    static std::promise<void> leave;
    ASSERT_EQ(hal_keypad_init_v2([](keypad_event*) {
                  entered.set_value();
                  leave.get_future().wait();
              }),
              0);
    press(1);
    entered.get_future().wait();
    const int fd = gst_hal_keypad_all_info_v2.fd;
    hal_keypad_deinit_v2(); // returns although the callback does not
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(gst_hal_keypad_all_info_v2.fd, -1);

    add_fault("/dev/keypad:read:hold=key:once");
    ASSERT_EQ(hal_keypad_init_v2(hear), 0);
    press(2);
    EXPECT_TRUE(comes_true([&] { return ask("fault.list").at(0).at("struck") != 0; }));
    hal_keypad_deinit_v2(); // in the middle of a read
    const vb::UniqueFd stranger(open("/dev/zero", O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(hal_keypad_init_v2(hear), 0);
    leave.set_value();
    ask("fault.release", {{"tag", "key"}});
    expect_threads(idle_threads_ + 1);
    press(3);
    const auto all = heard.wait_for(2);
    EXPECT_EQ(all[0].event.value0, 3);
    EXPECT_EQ(all[1].event.value0, 3);
    EXPECT_EQ(opens(kNode, 1), 1);
}

TEST_F(Keypad, AnLedIsToldItsSevenWords) {
    const led_ctl_req request{3, 0xEEEE, 2, 100, 900, 128, 0x00FF00};
    EXPECT_EQ(hal_keypad_led_ctl_v2(&request), 0);
    EXPECT_EQ(expect_event({{"kind", "ioctl"}}).at("bytes"),
              "03000000000000000200000064000000840300008000000000ff0000");
    EXPECT_EQ(ask("led.show", {{"led", 3}}).at("mode"), "blink");

    expect_misuse();
    const led_ctl_req wild{4, 0, 0xFFFE, 0x80000001, 0, 0, 0xFFFFFFFF};
    EXPECT_EQ(hal_keypad_led_ctl_v2(&wild), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(events({{"kind", "ioctl"}}).back().at("bytes"),
              "0400000000000000feff0000010000800000000000000000ffffffff");
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(hal_keypad_led_ctl_v2(nullptr), -1);
    EXPECT_THAT(logged("ERROR"), ElementsAre("hal_keypad_led_ctl_v2 null req"));
}

} // namespace
} // namespace hal_test::keypad
