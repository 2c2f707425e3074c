// The GPIO module against the board's driver: what the driver saw, what came back, what was said.

#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <pthread.h>
#include <time.h>

namespace hal_test::gpio {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kNode[] = "/dev/drvgpio";

using Edge = std::pair<std::uint32_t, std::uint32_t>;

Heard<Edge> heard;

void hear(hal_gpio_event* event) {
    EXPECT_EQ(event->name, nullptr);
    heard.add({event->gpio, event->value});
}

class HalGpio : public OnBoard {
  protected:
    void SetUp() override {
        OnBoard::SetUp();
        heard.clear();
    }
    static int configure(std::uint32_t line, std::uint32_t dir, std::uint32_t trig = 0,
                         const char* name = nullptr, std::uint32_t param = 0) {
        const hal_gpio_cfg cfg{line, name, dir, trig, 0xDEAD, param};
        return hal_gpio_config(&cfg);
    }
    Json last_record(const char* request) {
        const auto all = events({{"kind", "ioctl"}, {"request", request}});
        EXPECT_FALSE(all.empty());
        return all.empty() ? Json::object() : all.back().at("record");
    }
};

TEST_F(HalGpio, SendsTheConfigurationRecordAsItWasAskedFor) {
    EXPECT_EQ(configure(7, HAL_GPIO_INPUT, 3, "button", 5), 0);
    EXPECT_EQ(last_record("CMD_GPIO_CONFIG").dump(),
              R"({"line":7,"label":"button","direction":0,"trigger":3,"interrupt":1,"param":5})");
    for (const std::uint32_t dir : {0U, 1U}) {
        for (const std::uint32_t trig : {0U, 1U, 2U, 3U, 4U, 0xFFFFFFFFU}) {
            ASSERT_EQ(configure(8, dir, trig), 0);
            const Json record = last_record("CMD_GPIO_CONFIG");
            EXPECT_EQ(record.at("label"), "hal-gpio-8");
            EXPECT_EQ(record.at("direction"), dir);
            EXPECT_EQ(record.at("trigger"), trig);
            EXPECT_EQ(record.at("interrupt"), dir == 0 && trig >= 1 && trig <= 3 ? 1 : 0);
        }
    }
    const std::string fits(30, 'x');
    EXPECT_EQ(configure(10, HAL_GPIO_INPUT, 0, fits.c_str()), 0);
    EXPECT_EQ(last_record("CMD_GPIO_CONFIG").at("label"), fits);
    EXPECT_THAT(logged("WARN"), IsEmpty());
    for (const std::size_t length : {std::size_t{31}, std::size_t{10'000}}) {
        EXPECT_EQ(configure(10, HAL_GPIO_INPUT, 0, std::string(length, 'x').c_str()), 0);
        EXPECT_EQ(last_record("CMD_GPIO_CONFIG").at("label"), "hal-gpio-10");
        EXPECT_THAT(logged("WARN"), ElementsAre("gpio name id too long, use default name!!\n"));
        forget_trace();
    }
}

TEST_F(HalGpio, DrivesReadsAndReleasesLines) {
    ASSERT_EQ(configure(3, HAL_GPIO_OUTPUT), 0);
    for (const int value : {1, 0}) {
        EXPECT_EQ(hal_gpio_set_value(3, static_cast<std::uint32_t>(value)), 0);
        EXPECT_EQ(level(3), value);
        EXPECT_EQ(hal_gpio_get_value(3), value);
    }
    EXPECT_EQ(hal_gpio_deconfig(3), 0);
    EXPECT_EQ(last_record("CMD_GPIO_DECONFIG").dump(), R"({"line":3,"value":0})");
    EXPECT_EQ(opens(kNode, 0), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(HalGpio, ReportsWhatTheDriverRefuses) {
    expect_misuse();
    EXPECT_EQ(hal_gpio_get_value(4), 2) << "not configured";
    EXPECT_EQ(hal_gpio_set_value(4, 1), -1);
    EXPECT_EQ(hal_gpio_deconfig(0xFFFFFFFF), -1);
    EXPECT_EQ(configure(0xFFFFFFFF, HAL_GPIO_INPUT), -1);
    EXPECT_EQ(last_record("CMD_GPIO_CONFIG").at("label"), "hal-gpio--1");
    EXPECT_EQ(hal_gpio_config(nullptr), -1);
    EXPECT_THAT(logged("ERROR"),
                ElementsAre("CMD_GPIO_GETVAL ioctl error\n", "CMD_GPIO_SETVAL ioctl error\n",
                            "CMD_GPIO_DECONFIG ioctl error\n", "CMD_GPIO_CONFIG ioctl error!\n",
                            "hal_gpio_config null cfg\n"));
}

TEST_F(HalGpio, DeliversEveryEdgeInOrder) {
    ASSERT_EQ(configure(7, HAL_GPIO_INPUT, 3), 0);
    ASSERT_EQ(hal_gpio_init(hear), 0);
    std::vector<Edge> expected;
    for (std::uint32_t i = 1; i <= 40; ++i) {
        drive(7, static_cast<int>(i % 2));
        expected.emplace_back(7, i % 2);
    }
    EXPECT_EQ(heard.wait_for(expected.size()), expected);
    hal_gpio_deinit();
}

TEST_F(HalGpio, KeepsListeningThroughShortEmptyAndFailedReads) {
    ASSERT_EQ(configure(7, HAL_GPIO_INPUT, 3), 0);
    ASSERT_EQ(hal_gpio_init(hear), 0);
    for (const char* const fault : {"EIO", "short=0", "short=4"}) {
        add_fault(std::string(kNode) + ":read:" + fault + ":once");
    }
    for (const int level : {1, 0, 1}) {
        drive(7, level);
    }
    // One event stayed in the queue through the failed read, one was lost with the empty one, one
    // came without its second word.
    EXPECT_THAT(heard.wait_for(2), ElementsAre(Edge{7, 0}, Edge{7, 1}));
    hal_gpio_deinit();
    drive(7, 0);
    EXPECT_THAT(logged("ERROR"), IsEmpty());
}

TEST_F(HalGpio, SaysThatItsWaitFailsAndCanBeStopped) {
    ASSERT_EQ(hal_gpio_init(hear), 0);
    close(hal_gpio_info.fd);
    EXPECT_TRUE(comes_true([&] { return logged("ERROR").size() >= 2; }));
    hal_gpio_deinit();
    EXPECT_THAT(logged("ERROR"), testing::Each("select error\n"));
}

TEST_F(HalGpio, ListensIdlyAndUntilCancelledWithoutAnInit) {
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, hal_gpio_listen, nullptr), 0);
    clockid_t clock{};
    ASSERT_EQ(pthread_getcpuclockid(thread, &clock), 0);
    usleep(50000);
    timespec used{};
    ASSERT_EQ(clock_gettime(clock, &used), 0);
    EXPECT_EQ(pthread_cancel(thread), 0);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(used.tv_sec, 0);
    EXPECT_LT(used.tv_nsec, 25000000) << "it did not wait";
    EXPECT_THAT(logged(), ElementsAre("gpio thread running!!!!\n"));
}

} // namespace
} // namespace hal_test::gpio
