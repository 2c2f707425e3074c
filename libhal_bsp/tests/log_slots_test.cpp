// The table of sinks can be filled once in a process, so this test has a program of its own.
#include <hal_bsp/log.h>

#include <gtest/gtest.h>
#include <vector>

namespace hal_test::log_slots {
namespace {

std::vector<int> order;

void note(log_event* ev) {
    order.push_back(*static_cast<int*>(ev->udata));
}

TEST(LogSlots, TakeThirtyOneSinksAndCallThemInOrder) {
    std::vector<int> numbers(32);
    for (int number = 0; number < 31; ++number) {
        numbers[static_cast<std::size_t>(number)] = number;
        ASSERT_EQ(log_add_callback(note, &numbers[static_cast<std::size_t>(number)],
                                   number == 30 ? HAL_LOG_ERROR : HAL_LOG_TRACE),
                  0);
    }
    EXPECT_EQ(log_add_callback(note, &numbers[31], HAL_LOG_TRACE), -1);
    EXPECT_EQ(log_add_fp(stderr, HAL_LOG_TRACE), -1);

    log_log(HAL_LOG_WARN, "m", 1, "to all but the last");
    std::vector<int> expected(numbers.begin(), numbers.begin() + 30);
    EXPECT_EQ(order, expected);
    order.clear();
    log_log(HAL_LOG_ERROR, "m", 2, "to all");
    expected.push_back(30);
    EXPECT_EQ(order, expected);
}

} // namespace
} // namespace hal_test::log_slots
