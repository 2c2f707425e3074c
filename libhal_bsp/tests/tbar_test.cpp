// T-bars against the board's driver.

#include "client/board_fixture.h"
#include "tests/support/no_room_for_threads.h"

#include <hal_bsp/hal_bsp.h>

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <future>
#include <vector>

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

using Data = std::array<std::uint8_t, HAL_TBAR_DATA_SIZE>;

constexpr char kNode[] = "/dev/tbar3";
constexpr int kNumber = 3;

// What the callback was told; one listener at a time adds to it.
std::array<Data, 512> heard;
std::atomic<unsigned> count{0};

void hear(const std::uint8_t* data) {
    heard[count] = {data[0], data[1], data[2]};
    ++count;
    count.notify_all();
}

void wait_until_heard(unsigned wanted) {
    for (unsigned now = count; now < wanted; now = count) {
        count.wait(now);
    }
}

unsigned position(const Data& data) {
    return data[0] | data[1] << 8;
}

class Tbar : public vb::BoardTest {
  protected:
    void SetUp() override {
        BoardTest::SetUp();
        log_set_quiet(true);
    }
    vb::Json move(int to, int over_ms = 0) {
        return board().ask("tbar.move",
                           {{"number", kNumber}, {"position", to}, {"over_ms", over_ms}});
    }
};

TEST_F(Tbar, ItsMovementsReachTheCallbackUntilDeinit) {
    hal_tbar* tbar = hal_tbar_init(hear, kNumber);
    ASSERT_NE(tbar, nullptr);
    EXPECT_EQ(opens(kNode, 1), 1);
    set_speed(20);
    move(1023, 1000);
    for (wait_until_heard(1); heard[count - 1] != Data{0xFF, 0x03, 0};) {
        wait_until_heard(count + 1);
    }
    const unsigned moved = count;
    EXPECT_GE(moved, 3U) << "it moves evenly";
    EXPECT_TRUE(std::is_sorted(heard.begin(), heard.begin() + moved,
                               [](auto one, auto two) { return position(one) < position(two); }));
    EXPECT_THAT(heard[0], ElementsAre(testing::_, testing::_, 1)) << "moving";
    hal_tbar* second = hal_tbar_init(hear, kNumber);
    EXPECT_EQ(hal_tbar_deinit(tbar), 0);
    move(0);
    wait_until_heard(moved + 1);
    EXPECT_EQ(hal_tbar_deinit(second), 0);
    move(512);
    EXPECT_EQ(count, moved + 1) << "nobody is told after deinit";
    EXPECT_EQ(opens(kNode, 0), 0);
    EXPECT_THAT(logged(), testing::UnorderedElementsAre("hal_tbar_listen\n", "hal_tbar_listen\n",
                                                        "hal_tbar_deinit\n", "hal_tbar_deinit\n"));
}

TEST_F(Tbar, AFailedReadRepeatsTheLastGoodData) {
    hal_tbar* tbar = hal_tbar_init(hear, kNumber);
    add_fault("/dev/tbar3:ioctl=TBAR_READ:EIO:once");
    move(258);
    wait_until_heard(2);
    clear_faults();
    add_fault("/dev/tbar3:ioctl=TBAR_READ:EIO:times=2");
    move(772);
    const Data zeros{};
    const Data first{2, 1, 0};
    wait_until_heard(5);
    EXPECT_THAT(std::vector(heard.begin(), heard.begin() + 5),
                ElementsAre(zeros, first, first, first, Data{4, 3, 0}));
    EXPECT_EQ(hal_tbar_deinit(tbar), 0);
    EXPECT_THAT(logged("ERROR"),
                ElementsAre("ioctl is null! \n", "ioctl is null! \n", "ioctl is null! \n"));
}

TEST_F(Tbar, ALockHoldsItByTheLowByteOfTheValue) {
    hal_tbar* tbar = hal_tbar_init(hear, kNumber);
    move(700);
    EXPECT_EQ(hal_tbar_set_lock(tbar, 0xAB07), 0);
    EXPECT_EQ(expect_event({{"kind", "ioctl"}, {"request", "TBAR_SET_LOCK"}}).at("bytes"), "07");
    EXPECT_EQ(move(1)["position"], 700);
    Data data{};
    EXPECT_EQ(hal_tbar_read_data(tbar, data.data()), 0);
    EXPECT_EQ(data, (Data{700 & 0xFF, 700 >> 8, 2}));
    EXPECT_EQ(hal_tbar_set_lock(tbar, 0xFF00), 0);
    EXPECT_EQ(move(1)["position"], 1);

    move(1000, 100'000);
    EXPECT_EQ(hal_tbar_set_lock(tbar, 1), 0);
    const auto held = board().ask("tbar.show", {{"number", kNumber}});
    EXPECT_EQ(held["moving"], false);
    EXPECT_LT(held["position"], 1000) << "it stops where it is";
    EXPECT_EQ(hal_tbar_deinit(tbar), 0);
    EXPECT_THAT(logged("ERROR"), IsEmpty());
    EXPECT_THAT(logged("INFO"), testing::Contains("hal_tbar_set_lock\n").Times(3));
}

TEST_F(Tbar, WhatIsMissingIsToldAndNothingIsLeftBehind) {
    Data data{};
    std::array<std::uint64_t, 3> without_descriptor{};
    auto* gone = reinterpret_cast<hal_tbar*>(without_descriptor.data());
    EXPECT_EQ(hal_tbar_init(nullptr, kNumber), nullptr);
    EXPECT_EQ(hal_tbar_init(hear, 255), nullptr);
    {
        const hal_test::NoRoomForThreads none;
        EXPECT_EQ(hal_tbar_init(hear, kNumber), nullptr);
    }
    EXPECT_EQ(hal_tbar_read_data(nullptr, data.data()), -1);
    EXPECT_EQ(hal_tbar_read_data(gone, nullptr), -1);
    EXPECT_EQ(hal_tbar_set_lock(nullptr, 1), -1);
    EXPECT_EQ(hal_tbar_deinit(nullptr), -1);
    EXPECT_EQ(hal_tbar_listen(nullptr), nullptr);
    EXPECT_EQ(hal_tbar_deinit(gone), 0);
    EXPECT_THAT(without_descriptor, Each(0));
    EXPECT_THAT(logged("ERROR"),
                ElementsAre("p_fp is null \n", "open tbar error", "pthread create error \n",
                            "ptr is null! \n", "ptr is null! \n", "ptr is null! \n",
                            "ptr is null! \n", "tbar repeat deinit! \n"));
    EXPECT_EQ(events({{"kind", "open"}}).size(), 1U) << "without a callback nothing is opened";

    std::vector<std::array<int, 3>> results;
    sweep(
        kNode, "EIO",
        [&] {
            hal_tbar* tbar = hal_tbar_init(hear, kNumber);
            results.push_back({hal_tbar_set_lock(tbar, 0), hal_tbar_read_data(tbar, data.data()),
                               hal_tbar_deinit(tbar)});
        },
        [](bool) {});
    using Results = std::array<int, 3>;
    EXPECT_THAT(results, ElementsAre(Results{-1, -1, -1}, Results{-1, 0, 0}, Results{0, -1, 0},
                                     Results{0, 0, 0}));
}

TEST_F(Tbar, OpenedAndClosedOftenItLeavesNothingBehind) {
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(hal_tbar_deinit(hal_tbar_init(hear, static_cast<std::uint8_t>(i % 4))), 0);
    }
    EXPECT_EQ(opens(kNode, 0), 0);
}

TEST_F(Tbar, ACallbackIsCompletedAndMayEndItsOwnHandle) {
    static std::promise<void> entered;
    static std::atomic<bool> completed{false};
    hal_tbar* tbar = hal_tbar_init(
        [](const std::uint8_t*) {
            entered.set_value();
            for (int pass = 0; pass < 100; ++pass) { // many cancellation points
                usleep(200);
            }
            completed = true;
        },
        kNumber);
    move(100);
    entered.get_future().wait();
    EXPECT_EQ(hal_tbar_deinit(tbar), 0);
    EXPECT_TRUE(completed);

    static std::promise<hal_tbar*> handle;
    static std::promise<void> ended;
    handle.set_value(hal_tbar_init(
        [](const std::uint8_t*) {
            EXPECT_EQ(hal_tbar_deinit(handle.get_future().get()), 0);
            ended.set_value();
        },
        kNumber));
    move(200);
    ended.get_future().wait();
    EXPECT_EQ(opens(kNode, 0), 0);
}

} // namespace
