// T-bars against the board's driver.

#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <algorithm>
#include <array>

namespace hal_test::tbar {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Data = std::array<std::uint8_t, HAL_TBAR_DATA_SIZE>;

constexpr char kNode[] = "/dev/tbar3";
constexpr int kNumber = 3;

Heard<Data> heard;

void hear(const std::uint8_t* data) {
    heard.add({data[0], data[1], data[2]});
}

unsigned position(const Data& data) {
    return data[0] | data[1] << 8;
}

class Tbar : public OnBoard {
  protected:
    void SetUp() override {
        OnBoard::SetUp();
        move(0);
        heard.clear();
        forget_trace();
    }
    Json move(int to, int over_ms = 0) {
        return ask("tbar.move", {{"number", kNumber}, {"position", to}, {"over_ms", over_ms}});
    }
};

TEST_F(Tbar, ItsMovementsReachTheCallbackInOrder) {
    hal_tbar* const tbar = hal_tbar_init(hear, kNumber);
    ASSERT_NE(tbar, nullptr);
    set_speed(20);
    move(1023, 1000);
    EXPECT_TRUE(comes_true([] {
        const auto all = heard.all();
        return !all.empty() && all.back() == Data{0xFF, 0x03, 0};
    }));
    EXPECT_EQ(hal_tbar_deinit(tbar), 0);
    const auto moved = heard.all();
    ASSERT_GE(moved.size(), 3U) << "it moves evenly";
    EXPECT_TRUE(std::is_sorted(moved.begin(), moved.end(),
                               [](auto one, auto two) { return position(one) < position(two); }));
    EXPECT_THAT(moved[0], ElementsAre(testing::_, testing::_, 1)) << "moving";
}

TEST_F(Tbar, AFailedReadRepeatsTheLastGoodData) {
    hal_tbar* const tbar = hal_tbar_init(hear, kNumber);
    add_fault("/dev/tbar3:ioctl=TBAR_READ:EIO:once");
    move(258);
    heard.wait_for(2);
    clear_faults();
    add_fault("/dev/tbar3:ioctl=TBAR_READ:EIO:times=2");
    move(772);
    const Data first{2, 1, 0};
    EXPECT_THAT(heard.wait_for(5), ElementsAre(Data{}, first, first, first, Data{4, 3, 0}));
    EXPECT_EQ(hal_tbar_deinit(tbar), 0);
    EXPECT_EQ(logged("ERROR"), std::vector<std::string>(3, "ioctl is null! \n"));
}

TEST_F(Tbar, ALockHoldsItByTheLowByteOfTheValue) {
    hal_tbar* const tbar = hal_tbar_init(hear, kNumber);
    move(700);
    EXPECT_EQ(hal_tbar_set_lock(tbar, 0xAB07), 0);
    EXPECT_EQ(expect_event({{"kind", "ioctl"}, {"request", "TBAR_SET_LOCK"}}).at("bytes"), "07");
    EXPECT_EQ(move(1)["position"], 700);
    Data data{};
    EXPECT_EQ(hal_tbar_read_data(tbar, data.data()), 0);
    EXPECT_EQ(data, (Data{700 & 0xFF, 700 >> 8, 2}));
    EXPECT_EQ(hal_tbar_set_lock(tbar, 0xFF00), 0);
    EXPECT_EQ(move(1)["position"], 1);
    EXPECT_EQ(hal_tbar_deinit(tbar), 0);
    EXPECT_THAT(logged("ERROR"), IsEmpty());
    EXPECT_THAT(logged("INFO"), testing::Contains("hal_tbar_set_lock\n").Times(2));
}

TEST_F(Tbar, WhatIsMissingIsToldAndNothingIsLeftBehind) {
    Data data{};
    std::array<std::uint64_t, 3> without_descriptor{};
    auto* const gone = reinterpret_cast<hal_tbar*>(without_descriptor.data());
    EXPECT_EQ(hal_tbar_init(nullptr, kNumber), nullptr);
    EXPECT_EQ(hal_tbar_init(hear, 255), nullptr);
    EXPECT_EQ(hal_tbar_read_data(nullptr, data.data()), -1);
    EXPECT_EQ(hal_tbar_read_data(gone, nullptr), -1);
    EXPECT_EQ(hal_tbar_set_lock(nullptr, 1), -1);
    EXPECT_EQ(hal_tbar_deinit(nullptr), -1);
    EXPECT_EQ(hal_tbar_listen(nullptr), nullptr);
    EXPECT_EQ(hal_tbar_deinit(gone), 0);
    EXPECT_THAT(without_descriptor, testing::Each(0));
    EXPECT_THAT(logged("ERROR"),
                ElementsAre("p_fp is null \n", "open tbar error", "ptr is null! \n",
                            "ptr is null! \n", "ptr is null! \n", "ptr is null! \n",
                            "tbar repeat deinit! \n"));
    expect_none({{"kind", "open"}}); // a T-bar that there is

    std::vector<std::array<int, 3>> results;
    sweep(
        kNode, "EIO",
        [&] {
            hal_tbar* const tbar = hal_tbar_init(hear, kNumber);
            results.push_back({hal_tbar_set_lock(tbar, 0), hal_tbar_read_data(tbar, data.data()),
                               hal_tbar_deinit(tbar)});
        },
        [](bool) {});
    using Results = std::array<int, 3>;
    EXPECT_THAT(results, ElementsAre(Results{-1, -1, -1}, Results{-1, 0, 0}, Results{0, -1, 0},
                                     Results{0, 0, 0}));
}

} // namespace
} // namespace hal_test::tbar
