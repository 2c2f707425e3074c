// The fans, and the board's temperature.

#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

namespace hal_test::fans {
namespace {

constexpr int kUntouched = 777;

class Fans : public OnBoard {};

TEST_F(Fans, TheySpinUpAndCoolTheBoard) {
    set_speed(500);
    ask("thermal.pin"); // let it go
    int32_t warm = 0;
    int32_t cool = 0;
    fan_rpm_req speed{0, 5, 0};
    const auto settle = [] { systick_delayms(120000); };
    for (const uint32_t channel : {0U, 1U}) {
        const fan_ctl_req off{channel, {0, 0, 0}};
        EXPECT_EQ(hal_fans_power_ctl(&off), 0);
    }
    settle();
    EXPECT_EQ(hal_fans_get_rpm(&speed), 0);
    EXPECT_EQ(speed.rpm, 0U);
    hal_get_boardtemp(&warm);
    for (const uint32_t channel : {0U, 1U}) {
        const fan_ctl_req on{channel, {1, 0, 0}};
        const fan_ctl_req full{channel, {100, 0, 0}};
        EXPECT_EQ(hal_fans_power_ctl(&on), 0);
        EXPECT_EQ(hal_fans_set_speed(&full), 0);
    }
    settle();
    EXPECT_EQ(hal_fans_get_rpm(&speed), 0);
    EXPECT_EQ(speed.rpm, 4800U);
    EXPECT_EQ(speed.reserved, 5U);
    hal_get_boardtemp(&cool);
    EXPECT_LT(cool, warm - 2000);
    EXPECT_THAT(logged(), testing::Contains("fan channel:0 fan_rpm4800"));
}

TEST_F(Fans, WhatIsNotThereIsRefused) {
    fan_rpm_req speed{7, 0, kUntouched};
    const fan_ctl_req control{7, {50, 0, 0}};
    EXPECT_EQ(hal_fans_get_rpm(&speed), -35);
    EXPECT_EQ(speed.rpm, static_cast<uint32_t>(kUntouched));
    EXPECT_EQ(hal_fans_set_speed(&control), -35);
    EXPECT_EQ(hal_fans_get_rpm(nullptr), -35);
    EXPECT_EQ(hal_fans_set_speed(nullptr), -35);
    EXPECT_THAT(logged("ERROR"), testing::ElementsAre("open dev pwm-fan dev error!",
                                                      "open dev /dev/pwm-fan7 dev error!"));
}

class BoardTemp : public OnBoard {};

TEST_F(BoardTemp, DropsItsLastDigitAndKeepsItsSign) {
    int32_t temperature = 0;
    for (const auto& [degrees, hundredths] :
         {std::pair{41.238, 4123}, {-5.019, -501}, {0.009, 0}}) {
        ask("thermal.pin", {{"degrees", degrees}});
        EXPECT_EQ(hal_get_boardtemp(&temperature), 0);
        EXPECT_EQ(temperature, hundredths);
    }
    temperature = kUntouched;
    add_fault("/sys/class/thermal/thermal_zone0/temp:read:EIO");
    EXPECT_EQ(hal_get_boardtemp(&temperature), 0);
    EXPECT_EQ(operation_get_boardtemp(&temperature), 0);
    EXPECT_EQ(temperature, kUntouched);
    EXPECT_EQ(hal_get_boardtemp(nullptr), 0);
    EXPECT_EQ(operation_get_boardtemp(nullptr), -35);
}

} // namespace
} // namespace hal_test::fans
