// The GPIO module against a driver played in this process: record bytes, results, messages, and
// the listener's life. What needs a real node is tested on the virtual board.
#include "tests/support/fake_gpio_driver.h"
#include "tests/support/log_tap.h"

#include <hal_bsp/hal_bsp.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <future>
#include <gmock/gmock.h>
#include <mutex>
#include <sched.h>
#include <time.h>
#include <unistd.h>

using hal_test::FakeGpioDriver;
using hal_test::LogTap;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

namespace {

FakeGpioDriver& driver() {
    return FakeGpioDriver::instance();
}

std::vector<std::string> log_lines() {
    return LogTap::instance().take_lines();
}

// A record as its words.
std::string bytes(std::initializer_list<uint32_t> words) {
    return {reinterpret_cast<const char*>(words.begin()), words.size() * sizeof(uint32_t)};
}

std::string config_record(uint32_t gpio, std::string label, std::initializer_list<uint32_t> rest) {
    label.resize(32);
    return bytes({gpio}) + label + bytes(rest);
}

auto is_request(unsigned long code, const std::string& record) {
    return AllOf(Field(&hal_test::Request::code, code), Field(&hal_test::Request::record, record));
}

// What the callback heard; a test waits for the events it sent.
class Heard {
  public:
    static Heard& instance() {
        static Heard heard;
        return heard;
    }
    void note(const hal_gpio_event& event) {
        const std::lock_guard guard(mutex_);
        events_.emplace_back(event.gpio, event.value);
        arrived_.notify_all();
    }
    std::vector<std::pair<uint32_t, uint32_t>> wait_for(std::size_t count) {
        std::unique_lock guard(mutex_);
        arrived_.wait(guard, [&] { return events_.size() >= count; });
        return std::exchange(events_, {});
    }
    bool nothing() {
        const std::lock_guard guard(mutex_);
        return events_.empty();
    }

  private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<std::pair<uint32_t, uint32_t>> events_;
};

void hear(hal_gpio_event* event) {
    EXPECT_EQ(event->name, nullptr);
    EXPECT_NE(pthread_equal(pthread_self(), hal_gpio_info.thread), 0);
    Heard::instance().note(*event);
}

class Gpio : public testing::Test {
  protected:
    void SetUp() override {
        log_set_quiet(true);
        driver().reset();
        log_lines();
    }
    void TearDown() override {
        hal_gpio_deinit();
        EXPECT_EQ(driver().open_count(), 0U);
        EXPECT_TRUE(driver().all_close_on_exec_and_read_write());
    }
};

std::size_t thread_count() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

void expect_idle() {
    EXPECT_EQ(hal_gpio_info.inited, 0U);
    EXPECT_EQ(hal_gpio_info.cb, nullptr);
    EXPECT_LE(hal_gpio_info.fd, 0);
    EXPECT_EQ(driver().open_count(), 0U);
}

TEST_F(Gpio, ConfigSendsTheWholeRecord) {
    driver().answer_requests_with(0);
    const hal_gpio_cfg cfg{17, "mcu_rst", HAL_GPIO_OUTPUT, 2, 99, 5};
    EXPECT_EQ(hal_gpio_config(&cfg), 0);
    EXPECT_THAT(driver().take_requests(),
                ElementsAre(is_request(0x40086721, config_record(17, "mcu_rst", {1, 2, 0, 5}))));
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(Gpio, ConfigEnablesInterruptsOfTriggeredInputsOnly) {
    for (const uint32_t dir : {0U, 1U, 2U}) {
        for (const uint32_t trig : {0U, 1U, 2U, 3U, 4U, 0xFFFFFFFFU}) {
            const hal_gpio_cfg cfg{1, "in", dir, trig, 0, 0};
            EXPECT_EQ(hal_gpio_config(&cfg), 0);
            const uint32_t enable = dir == 0 && trig >= 1 && trig <= 3 ? 1 : 0;
            EXPECT_EQ(driver().take_requests().at(0).record,
                      config_record(1, "in", {dir, trig, enable, 0}));
        }
    }
}

TEST_F(Gpio, ConfigUsesLabelsThatFitAndDefaultsOtherwise) {
    const auto label_sent = [](uint32_t gpio, const char* name) {
        const hal_gpio_cfg cfg{gpio, name, 0, 0, 0, 0};
        EXPECT_EQ(hal_gpio_config(&cfg), 0);
        return driver().take_requests().at(0).record.substr(4, 32);
    };
    const auto padded = [](std::string label) { return label.append(32 - label.size(), '\0'); };

    EXPECT_EQ(label_sent(7, nullptr), padded("hal-gpio-7"));
    EXPECT_EQ(label_sent(0x7FFFFFFF, nullptr), padded("hal-gpio-2147483647"));
    EXPECT_EQ(label_sent(0xFFFFFFFF, nullptr), padded("hal-gpio--1"));
    EXPECT_EQ(label_sent(7, ""), padded(""));
    EXPECT_EQ(label_sent(7, std::string(30, 'n').c_str()), padded(std::string(30, 'n')));
    EXPECT_THAT(log_lines(), IsEmpty());
    for (const std::size_t length : {31U, 32U, 10000U}) {
        EXPECT_EQ(label_sent(7, std::string(length, 'n').c_str()), padded("hal-gpio-7"));
        EXPECT_THAT(log_lines(), ElementsAre("WARN gpio name id too long, use default name!!\n"));
    }
}

TEST_F(Gpio, ConfigWithoutADescriptionFails) {
    EXPECT_EQ(hal_gpio_config(nullptr), -1);
    EXPECT_THAT(driver().take_requests(), IsEmpty());
    EXPECT_THAT(log_lines(), ElementsAre("ERROR hal_gpio_config null cfg\n"));
}

TEST_F(Gpio, ValueRequestsPassTheDriversAnswerOn) {
    driver().answer_requests_with(3, 1);
    EXPECT_EQ(hal_gpio_set_value(9, 1), 3);
    EXPECT_EQ(hal_gpio_deconfig(9), 3);
    EXPECT_EQ(hal_gpio_get_value(9), 1);
    EXPECT_THAT(driver().take_requests(), ElementsAre(is_request(0x40086722, bytes({9, 1})),
                                                      is_request(0x40086724, bytes({9, 0})),
                                                      is_request(0xC0086723, bytes({9, 0}))));
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(Gpio, RefusedRequestsAreReportedAndLogged) {
    driver().answer_requests_with(-1, 1);
    const hal_gpio_cfg cfg{};
    EXPECT_EQ(hal_gpio_config(&cfg), -1);
    EXPECT_EQ(hal_gpio_deconfig(1), -1);
    EXPECT_EQ(hal_gpio_set_value(1, 1), -1);
    EXPECT_EQ(hal_gpio_get_value(1), 2);
    EXPECT_THAT(log_lines(), ElementsAre("ERROR CMD_GPIO_CONFIG ioctl error!\n",
                                         "ERROR CMD_GPIO_DECONFIG ioctl error\n",
                                         "ERROR CMD_GPIO_SETVAL ioctl error\n",
                                         "ERROR CMD_GPIO_GETVAL ioctl error\n"));
}

TEST_F(Gpio, AbsentNodeIsReportedAndLogged) {
    driver().set_present(false);
    const hal_gpio_cfg too_long{1, "a label that nobody will ever be able to send", 0, 0, 0, 0};
    EXPECT_EQ(hal_gpio_config(&too_long), -1);
    EXPECT_EQ(hal_gpio_deconfig(1), -1);
    EXPECT_EQ(hal_gpio_set_value(1, 1), -1);
    EXPECT_EQ(hal_gpio_get_value(1), -1);
    EXPECT_EQ(hal_gpio_init(hear), -1);
    EXPECT_EQ(hal_gpio_info.cb, hear);
    EXPECT_EQ(hal_gpio_info.fd, -1);
    EXPECT_EQ(hal_gpio_info.inited, 0U);
    EXPECT_THAT(log_lines(),
                ElementsAre("ERROR hal_gpio_config open drvgpio error\n",
                            "ERROR hal_gpio_deconfig open drvgpio error\n",
                            "ERROR hal_gpio_set_value open drvgpio error\n",
                            "ERROR hal_gpio_get_value open drvgpio error\n",
                            "INFO hal_gpio_init start\n", "ERROR open drvgpio error\n"));
}

TEST_F(Gpio, MessagesCarryTheModulesName) {
    driver().set_present(false);
    hal_gpio_get_value(1);
    hal_gpio_init(nullptr);
    for (const hal_test::Message& message : LogTap::instance().take()) {
        EXPECT_EQ(message.file, "hal_gpio");
        EXPECT_GT(message.line, 0);
    }
}

TEST_F(Gpio, ListenerDeliversEventsUntilItIsStopped) {
    ASSERT_EQ(hal_gpio_init(hear), 0);
    EXPECT_EQ(hal_gpio_info.inited, 1U);
    EXPECT_GT(hal_gpio_info.fd, 0);
    driver().send_event(17, 1);
    driver().send_event(0xFFFFFFFF, 9);
    driver().send(bytes({5}));                               // half an event
    driver().send(bytes({6, 7, 8}) + std::string(200, 'x')); // more than one read takes
    EXPECT_THAT(Heard::instance().wait_for(4),
                ElementsAre(std::pair(17U, 1U), std::pair(0xFFFFFFFFU, 9U), std::pair(5U, 0U),
                            std::pair(6U, 7U)));
    hal_gpio_deinit();
    expect_idle();
    driver().send_event(17, 0);
    EXPECT_TRUE(Heard::instance().nothing());
    EXPECT_THAT(log_lines(), testing::UnorderedElementsAre(
                                 "INFO hal_gpio_init start\n", "INFO gpio thread running!!!!\n",
                                 "INFO hal_gpio_init over\n", "INFO hal_gpio_deinit\n"));
}

TEST_F(Gpio, SecondInitChangesNothing) {
    ASSERT_EQ(hal_gpio_init(hear), 0);
    const hal_gpio_state before = hal_gpio_info;
    EXPECT_EQ(hal_gpio_init(nullptr), -2);
    EXPECT_EQ(std::memcmp(&before, &hal_gpio_info, sizeof before), 0);
    EXPECT_EQ(driver().open_count(), 1U);
    const std::string text =
        "ERROR hal_gpio already inited, please call hal_gpio_deinit, then init\n";
    EXPECT_THAT(log_lines(), testing::Contains(text));
    driver().send_event(1, 1);
    EXPECT_THAT(Heard::instance().wait_for(1), ElementsAre(std::pair(1U, 1U)));
}

TEST_F(Gpio, ThreadThatCannotStartLeavesTheModuleIdle) {
    driver().refuse_next_thread(EAGAIN);
    EXPECT_EQ(hal_gpio_init(hear), -3);
    expect_idle();
    EXPECT_THAT(log_lines(), ElementsAre("INFO hal_gpio_init start\n",
                                         "ERROR create thread hal_gpio_listen failed erron= " +
                                             std::to_string(EAGAIN) + "/n"));
    hal_gpio_deinit();
    EXPECT_EQ(hal_gpio_init(hear), 0);
}

TEST_F(Gpio, DeinitWhileIdleIsHarmless) {
    hal_gpio_deinit();
    hal_gpio_deinit();
    expect_idle();
    EXPECT_THAT(log_lines(), ElementsAre("INFO hal_gpio_deinit\n", "INFO hal_gpio_deinit\n"));
}

TEST_F(Gpio, ListenerWithoutCallbackReadsAndDropsEvents) {
    ASSERT_EQ(hal_gpio_init(nullptr), 0);
    driver().send_event(1, 1);
    driver().wait_until_read();
    EXPECT_TRUE(Heard::instance().nothing());
}

TEST_F(Gpio, ListenerOfAVanishedDeviceCanBeStopped) {
    ASSERT_EQ(hal_gpio_init(hear), 0);
    driver().vanish();
    driver().send_event(1, 1); // reaches nobody
    hal_gpio_deinit();
    expect_idle();
    EXPECT_TRUE(Heard::instance().nothing());
}

TEST_F(Gpio, ListenerWhoseWaitFailsSaysSoAndCanBeStopped) {
    ASSERT_EQ(hal_gpio_init(hear), 0);
    close(hal_gpio_info.fd);
    const std::string text = "ERROR select error\n";
    for (auto lines = log_lines(); std::ranges::count(lines, text) < 2; lines = log_lines()) {
        sched_yield();
    }
    hal_gpio_deinit();
    expect_idle();
}

TEST_F(Gpio, CallbackIsCompletedAlthoughTheListenerIsBeingStopped) {
    static std::promise<void>* entered;
    static std::atomic<bool> completed;
    std::promise<void> promise;
    entered = &promise;
    completed = false;
    ASSERT_EQ(hal_gpio_init([](hal_gpio_event*) {
                  entered->set_value();
                  // Many cancellation points, in none of which it may end.
                  for (int pass = 0; pass < 100; ++pass) {
                      usleep(200);
                  }
                  completed = true;
              }),
              0);
    driver().send_event(1, 1);
    promise.get_future().wait();
    hal_gpio_deinit();
    EXPECT_TRUE(completed);
}

TEST_F(Gpio, CallbackMayStopAndRestartItsOwnListener) {
    static std::promise<void>* restarted;
    std::promise<void> promise;
    restarted = &promise;
    ASSERT_EQ(hal_gpio_init([](hal_gpio_event*) {
                  hal_gpio_deinit();
                  EXPECT_EQ(hal_gpio_info.inited, 0U);
                  EXPECT_EQ(hal_gpio_init(hear), 0);
                  restarted->set_value();
              }),
              0);
    const std::size_t threads = thread_count();
    driver().send_event(1, 1);
    promise.get_future().wait();
    EXPECT_EQ(driver().open_count(), 1U);
    while (thread_count() != threads) { // the first listener ends
        sched_yield();
    }
    driver().send_event(2, 1);
    EXPECT_THAT(Heard::instance().wait_for(1), ElementsAre(std::pair(2U, 1U)));
}

TEST_F(Gpio, ListenerOfAnIdleModuleWaitsAndCanBeCancelled) {
    expect_idle();
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
    EXPECT_THAT(log_lines(), ElementsAre("INFO gpio thread running!!!!\n"));
}

} // namespace
