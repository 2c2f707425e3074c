// The display's backlight.

#include "tests/support/on_board.h"

#include <hal_bsp/backlight.h>

namespace hal_test::backlight {
namespace {

class Backlight : public OnBoard {};

TEST_F(Backlight, IsUpsideDownAndNeverOff) {
    struct Case {
        uint8_t level;
        int32_t result; // characters
        int value;
    };
    for (const Case& each :
         {Case{0, 3, 255}, {1, 3, 252}, {50, 3, 127}, {99, 1, 2}, {100, 1, 1}, {150, 1, 1}}) {
        backlight_req request{{9, 9}, each.level};
        EXPECT_EQ(operation_set_backlight(&request), each.result);
        EXPECT_EQ(ask("attribute.show", {{"path", "/sys/class/backlight/backlight/brightness"}}),
                  each.value);
        EXPECT_EQ(request.level, std::min<uint8_t>(each.level, 100));
    }
    EXPECT_EQ(operation_set_backlight(nullptr), -35);
}

} // namespace
} // namespace hal_test::backlight
