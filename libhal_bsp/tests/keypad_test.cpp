// Keys and LEDs against the board's drivers; the keypad's driver first, by plain system calls.

#include "client/board_fixture.h"
#include "core/unique_fd.h"
#include "tests/support/captured.h"
#include "tests/support/no_room_for_threads.h"

#include <hal_bsp/hal_bsp.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <vector>

namespace {

using hal_test::Captured;
using testing::ElementsAre;
using testing::IsEmpty;
using Clock = std::chrono::steady_clock;

constexpr char kNode[] = "/dev/keypad";
constexpr char kLeds[] = "/dev/led";

// What the callback was told, and when; one listener at a time adds to it.
std::array<keypad_event, 512> heard;
std::array<Clock::time_point, 512> times;
std::atomic<unsigned> count{0};

void hear(keypad_event* event) {
    times[count] = Clock::now();
    heard[count] = *event;
    ++count;
    count.notify_all();
}

void wait_until_heard(unsigned wanted) {
    for (unsigned now = count; now < wanted; now = count) {
        count.wait(now);
    }
}

class Keypad : public vb::BoardTest {
  protected:
    void SetUp() override {
        BoardTest::SetUp();
        log_set_quiet(true);
    }
    void TearDown() override {
        hal_keypad_deinit_v2();
        wait_for_threads(idle_threads_);
        BoardTest::TearDown();
    }
    void press(int key, int bounces = 0) {
        board().ask("keypad.press", {{"key", key}, {"hold_ms", 0}, {"bounces", bounces}});
    }
    // A listener ends within its cycle after it was stopped.
    static void wait_for_threads(std::size_t wanted) {
        while (threads() != wanted) {
            usleep(1000);
        }
    }
    static void expect_stopped() {
        const hal_keypad_state_v2& info = gst_hal_keypad_all_info_v2;
        EXPECT_TRUE(info.running == 0 && info.fd < 1 && info.callback == hear);
    }
    std::size_t idle_threads_ = threads();
};

TEST_F(Keypad, TheDriverQueuesWhatItsContactsDo) {
    const vb::UniqueFd fd(open(kNode, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    std::array<std::uint8_t, 32> bytes{};
    const auto next_state = [&] {
        const ssize_t got = read(fd.get(), bytes.data(), bytes.size());
        return got == 16 ? bytes[4] : -errno;
    };
    press(9, 2);
    while (board().ask("keypad.show")["queued"][0] != 10) {
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(next_state(), i % 2 == 0 ? 1 : 0);
    }
    EXPECT_EQ(next_state(), -EAGAIN);
    EXPECT_THAT(std::vector(bytes.begin(), bytes.begin() + 12),
                ElementsAre(9, 0, 2, 2, 0, 0, 0, 0, 10, 0xFF, 0xFF, 0xFF));

    set_speed(10);
    board().ask("keypad.down", {{"key", 1}});
    expect_event({{"kind", "key"}, {"state", 2}});
    EXPECT_THAT(board().ask("keypad.show")["down"], ElementsAre(1));
    board().ask("keypad.up", {{"key", 1}});
    EXPECT_EQ(next_state(), 1);
    EXPECT_EQ(next_state(), 2);
    while (next_state() == 2) {
    }
    EXPECT_EQ(bytes[4], 0);

    for (int i = 0; i < 130; ++i) {
        press(2);
    }
    EXPECT_EQ(board().ask("keypad.show")["overflows"], 4);
    EXPECT_EQ(read(fd.get(), bytes.data(), 15), -1);
    EXPECT_EQ(errno, EINVAL);
    next_state();
    const int first = bytes[8];
    while (next_state() >= 0) {
    }
    press(2);
    next_state();
    EXPECT_EQ(bytes[8], static_cast<std::uint8_t>(first + 260)) << "the lost ones are counted";
}

TEST_F(Keypad, AHundredKeysArriveInOrderNoneLostAndNoneTwice) {
    set_speed(50);
    ASSERT_EQ(hal_keypad_init_v2(hear), 0);
    EXPECT_EQ(gst_hal_keypad_all_info_v2.running, 1);
    for (int i = 0; i < 100; ++i) {
        press(i % 64);
    }
    wait_until_heard(200);
    hal_keypad_deinit_v2();
    wait_for_threads(idle_threads_);
    ASSERT_EQ(count, 200U);
    for (unsigned i = 0; i < 200; ++i) {
        const keypad_event& event = heard[i];
        EXPECT_EQ(event.value0, i / 2 % 64) << i;
        EXPECT_EQ(event.value4, 1 - i % 2);
        EXPECT_EQ(event.value8, i + 1);
        EXPECT_GE(event.value12, heard[i == 0 ? 0 : i - 1].value12);
        EXPECT_EQ(event.zero2, 0);
        EXPECT_THAT(event.zero9, testing::Each(0));
    }
    EXPECT_GT(heard[199].value12, 0U);
    EXPECT_THAT(logged(),
                testing::UnorderedElementsAre("hal_keypad_init over", "thread running!!!!",
                                              "hal_keypad_deinit close fd"));
}

TEST_F(Keypad, TwoKeysAreACycleApartAndFailedReadsAreNone) {
    ASSERT_EQ(hal_keypad_init_v2(hear), 0);
    press(1);
    wait_until_heard(2);
    EXPECT_GE(times[1] - times[0], std::chrono::milliseconds(20));

    constexpr int kFailures = 60;
    add_fault("/dev/keypad:read:EIO:times=" + std::to_string(kFailures));
    forget_trace();
    press(2);
    wait_until_heard(4);
    const auto reads = events({{"kind", "read"}});
    ASSERT_EQ(reads.size(), kFailures + 2U);
    EXPECT_LT(reads[kFailures]["t"].get<double>() - reads[0]["t"].get<double>(), kFailures * 0.02)
        << "it rested after a read that failed";

    clear_faults();
    add_fault("/dev/keypad:read:short=0:once");
    add_fault("/dev/keypad:read:short=6:once");
    press(3);
    wait_until_heard(5);
    EXPECT_EQ(heard[4].value0, 3);
    EXPECT_EQ(heard[4].value4, 0U) << "of what was cut off nothing is made up";
    EXPECT_EQ(heard[4].value8, 0);
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
    while (board().ask("fault.list").at(0).at("struck") == 0) {
    }
    hal_keypad_deinit_v2(); // in the middle of a read
    const vb::UniqueFd stranger(open("/dev/zero", O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(hal_keypad_init_v2(hear), 0);
    leave.set_value();
    board().ask("fault.release", {{"tag", "key"}});
    wait_for_threads(idle_threads_ + 1);
    press(3);
    wait_until_heard(2);
    EXPECT_EQ(heard[0].value0, 3);
    EXPECT_EQ(heard[1].value0, 3);
    EXPECT_EQ(opens(kNode, 1), 1);
}

TEST_F(Keypad, HoweverOftenItIsStartedThereIsOneListener) {
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(hal_keypad_init_v2(hear), 0);
        if (i % 2 == 0) { // else the next init comes while it listens
            hal_keypad_deinit_v2();
        }
    }
    wait_for_threads(idle_threads_ + 1);
    EXPECT_EQ(opens(kNode, 1), 1);
    press(5);
    wait_until_heard(2);
    hal_keypad_deinit_v2();
    hal_keypad_deinit_v2(); // harmless
    wait_for_threads(idle_threads_);
    EXPECT_EQ(opens(kNode, 0), 0);
    EXPECT_EQ(count, 2U);

    static std::promise<void> restarted;
    ASSERT_EQ(hal_keypad_init_v2([](keypad_event*) {
                  hal_keypad_deinit_v2();
                  EXPECT_EQ(hal_keypad_init_v2(hear), 0);
                  restarted.set_value();
              }),
              0);
    board().ask("keypad.down", {{"key", 6}});
    restarted.get_future().wait();
    wait_for_threads(idle_threads_ + 1);
    board().ask("keypad.up", {{"key", 6}});
    wait_until_heard(3);
    EXPECT_EQ(heard[2].value4, 0U);
}

TEST_F(Keypad, WhatCannotStartLeavesItStopped) {
    hal_keypad_deinit_v2();
    EXPECT_EQ(gst_hal_keypad_all_info_v2.fd, 0);
    EXPECT_THAT(logged(), IsEmpty());
    {
        const Captured error(stderr);
        add_fault("/dev/keypad:open:EACCES:once");
        EXPECT_EQ(hal_keypad_init_v2(hear), -1);
        EXPECT_EQ(errno, EACCES);
        EXPECT_EQ(error.text(), "open keypad error: Permission denied\n");
    }
    expect_stopped();
    ASSERT_EQ(hal_keypad_init_v2(nullptr), 0);
    press(1);
    expect_event({{"kind", "read"}, {"result", 16}}); // and dropped
    EXPECT_THAT(logged("ERROR"), IsEmpty());
    {
        const hal_test::NoRoomForThreads none;
        EXPECT_EQ(hal_keypad_init_v2(hear), -35);
    }
    expect_stopped();
    EXPECT_THAT(logged("ERROR"),
                ElementsAre("create thread hal_keypad_listen_v2 failed erron= 11/n"));
    wait_for_threads(idle_threads_);
    EXPECT_EQ(opens(kNode, 0), 0);
}

TEST_F(Keypad, AnLedIsToldItsSevenWords) {
    const led_ctl_req request{3, 0xEEEE, 2, 100, 900, 128, 0x00FF00};
    EXPECT_EQ(hal_keypad_led_ctl_v2(&request), 0);
    EXPECT_EQ(expect_event({{"kind", "ioctl"}}).at("bytes"),
              "03000000000000000200000064000000840300008000000000ff0000");
    EXPECT_EQ(board().ask("led.show", {{"led", 3}}).at("mode"), "blink");
    EXPECT_EQ(board().ask("led.list").size(), 1U);

    expect_misuse();
    const led_ctl_req wild{4, 0, 0xFFFE, 0x80000001, 0, 0, 0xFFFFFFFF};
    EXPECT_EQ(hal_keypad_led_ctl_v2(&wild), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(events({{"kind", "ioctl"}}).back().at("bytes"),
              "0400000000000000feff0000010000800000000000000000ffffffff");
    EXPECT_THAT(logged(), IsEmpty());

    std::vector<int> results;
    sweep(
        kLeds, "EIO", [&] { results.push_back(hal_keypad_led_ctl_v2(&request)); }, [](bool) {});
    EXPECT_THAT(results, ElementsAre(-1, -1, 0));
    EXPECT_EQ(hal_keypad_led_ctl_v2(nullptr), -1);
    EXPECT_THAT(logged("ERROR"), ElementsAre("open led error", "hal_keypad_led_ctl_v2 null req"));
}

} // namespace
