// The GPIO module against the board's driver: what the driver saw, what came back, what was said.

#include "client/board_fixture.h"
#include "tests/support/no_room_for_threads.h"

#include <hal_bsp/hal_bsp.h>

#include <gmock/gmock.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using vb::Json;

constexpr char kNode[] = "/dev/drvgpio";

using Edge = std::pair<std::uint32_t, std::uint32_t>;

// What the callback was told, for a test to wait for.
class Heard {
  public:
    static void add(hal_gpio_event* event) {
        EXPECT_EQ(event->name, nullptr);
        const std::lock_guard lock(mutex);
        edges.emplace_back(event->gpio, event->value);
        arrived.notify_all();
    }
    static std::vector<Edge> wait_for(std::size_t count) {
        std::unique_lock lock(mutex);
        arrived.wait(lock, [&] { return edges.size() >= count; });
        return edges;
    }

  private:
    static inline std::mutex mutex;
    static inline std::condition_variable arrived;
    static inline std::vector<Edge> edges;
};

class HalGpio : public vb::BoardTest {
  protected:
    void SetUp() override {
        BoardTest::SetUp();
        log_set_quiet(true);
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
    EXPECT_EQ(configure(8, HAL_GPIO_OUTPUT, 2), 0);
    EXPECT_EQ(
        last_record("CMD_GPIO_CONFIG").dump(),
        R"({"line":8,"label":"hal-gpio-8","direction":1,"trigger":2,"interrupt":0,"param":0})");
    EXPECT_EQ(configure(9, HAL_GPIO_INPUT, 4), 0);
    EXPECT_EQ(last_record("CMD_GPIO_CONFIG").at("interrupt"), 0);

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
    EXPECT_EQ(hal_gpio_set_value(3, 1), 0);
    EXPECT_EQ(level(3), 1);
    EXPECT_EQ(hal_gpio_get_value(3), 1);
    EXPECT_EQ(hal_gpio_set_value(3, 0), 0);
    EXPECT_EQ(hal_gpio_get_value(3), 0);
    EXPECT_EQ(hal_gpio_deconfig(3), 0);
    EXPECT_EQ(last_record("CMD_GPIO_DECONFIG").dump(), R"({"line":3,"value":0})");
    EXPECT_EQ(opens(kNode, 0), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(HalGpio, ReportsWhatTheDriverRefuses) {
    expect_misuse();
    EXPECT_EQ(hal_gpio_get_value(3), 2) << "not configured";
    EXPECT_EQ(hal_gpio_set_value(3, 1), -1);
    EXPECT_EQ(hal_gpio_deconfig(0xFFFFFFFF), -1);
    EXPECT_EQ(configure(0xFFFFFFFF, HAL_GPIO_INPUT), -1);
    EXPECT_EQ(last_record("CMD_GPIO_CONFIG").at("label"), "hal-gpio--1");
    EXPECT_EQ(hal_gpio_config(nullptr), -1);
    EXPECT_THAT(logged("ERROR"),
                ElementsAre("CMD_GPIO_GETVAL ioctl error\n", "CMD_GPIO_SETVAL ioctl error\n",
                            "CMD_GPIO_DECONFIG ioctl error\n", "CMD_GPIO_CONFIG ioctl error!\n",
                            "hal_gpio_config null cfg\n"));
}

// One line operation for the sweep: what it returns when the open or the request fails, and what
// it says then.
struct Operation {
    const char* name;
    int (*call)();
    int open_result;
    int request_result;
    const char* open_text;
    const char* request_text;
};

class HalGpioOperation : public HalGpio, public testing::WithParamInterface<Operation> {};

TEST_P(HalGpioOperation, SurvivesTheFailureOfAnyOfItsCalls) {
    ASSERT_EQ(configure(3, HAL_GPIO_OUTPUT), 0);
    const Operation& operation = GetParam();
    int result = 0;
    unsigned failures = 0;
    sweep(
        kNode, "EIO",
        [&] {
            forget_trace();
            result = operation.call();
        },
        [&](bool failed) {
            const bool in_open = failed && failures++ == 0;
            if (failed) {
                EXPECT_EQ(result, in_open ? operation.open_result : operation.request_result);
                EXPECT_THAT(logged("ERROR"),
                            ElementsAre(in_open ? operation.open_text : operation.request_text));
            } else {
                EXPECT_EQ(result, 0);
                EXPECT_THAT(logged(), IsEmpty());
            }
        });
    EXPECT_EQ(failures, 2U);
}

INSTANTIATE_TEST_SUITE_P(
    Each, HalGpioOperation,
    testing::Values(
        Operation{"config",
                  [] {
                      const hal_gpio_cfg cfg{3, "x", HAL_GPIO_OUTPUT, 0, 0, 0};
                      return hal_gpio_config(&cfg);
                  },
                  -1, -1, "hal_gpio_config open drvgpio error\n", "CMD_GPIO_CONFIG ioctl error!\n"},
        Operation{"deconfig", [] { return hal_gpio_deconfig(3); }, -1, -1,
                  "hal_gpio_deconfig open drvgpio error\n", "CMD_GPIO_DECONFIG ioctl error\n"},
        Operation{"set", [] { return hal_gpio_set_value(3, 0); }, -1, -1,
                  "hal_gpio_set_value open drvgpio error\n", "CMD_GPIO_SETVAL ioctl error\n"},
        Operation{"get", [] { return hal_gpio_get_value(3); }, -1, 2,
                  "hal_gpio_get_value open drvgpio error\n", "CMD_GPIO_GETVAL ioctl error\n"}),
    [](const auto& each) { return each.param.name; });

TEST_F(HalGpio, FindsTheNodeGoneBetweenOpenAndRequest) {
    ASSERT_EQ(configure(3, HAL_GPIO_OUTPUT), 0);
    add_fault("/dev/drvgpio:ioctl:vanish:once");
    EXPECT_EQ(hal_gpio_get_value(3), 2);
    EXPECT_EQ(hal_gpio_get_value(3), -1) << "now the open fails";
    appear(kNode);
    EXPECT_EQ(hal_gpio_get_value(3), 0);
}

TEST_F(HalGpio, DeliversEveryEdgeInOrder) {
    ASSERT_EQ(hal_gpio_init(Heard::add), 0);
    EXPECT_EQ(hal_gpio_info.inited, 1U);
    ASSERT_EQ(configure(7, HAL_GPIO_INPUT, 3), 0);
    std::vector<Edge> expected;
    for (std::uint32_t i = 0; i < 40; ++i) {
        drive(7, i % 2 == 0 ? 1 : 0);
        expected.emplace_back(7, i % 2 == 0 ? 1 : 0);
    }
    EXPECT_EQ(Heard::wait_for(expected.size()), expected);
    hal_gpio_deinit();
    EXPECT_EQ(hal_gpio_info.inited, 0U);
    EXPECT_EQ(hal_gpio_info.fd, -1);
    EXPECT_EQ(hal_gpio_info.cb, nullptr);
    const std::vector<std::string> said = logged("INFO");
    // The middle two come from two threads.
    EXPECT_THAT(said, UnorderedElementsAre("hal_gpio_init start\n", "hal_gpio_init over\n",
                                           "gpio thread running!!!!\n", "hal_gpio_deinit\n"));
    EXPECT_EQ(said.front(), "hal_gpio_init start\n");
    EXPECT_EQ(said.back(), "hal_gpio_deinit\n");
}

TEST_F(HalGpio, KeepsListeningThroughShortEmptyAndFailedReads) {
    ASSERT_EQ(configure(7, HAL_GPIO_INPUT, 3), 0);
    ASSERT_EQ(hal_gpio_init(Heard::add), 0);
    add_fault("/dev/drvgpio:read:EIO:once");
    add_fault("/dev/drvgpio:read:short=0:once");
    add_fault("/dev/drvgpio:read:short=4:once");
    for (const int level : {1, 0, 1}) {
        drive(7, level);
    }
    // One event stayed in the queue through the failed read, one was lost with the empty one, one
    // came without its second word.
    EXPECT_THAT(Heard::wait_for(2), ElementsAre(Edge{7, 0}, Edge{7, 1}));
    hal_gpio_deinit();
    EXPECT_THAT(logged("ERROR"), IsEmpty());
}

TEST_F(HalGpio, RefusesASecondInitAndChangesNothing) {
    ASSERT_EQ(hal_gpio_init(Heard::add), 0);
    const int fd = hal_gpio_info.fd;
    EXPECT_EQ(hal_gpio_init(nullptr), -2);
    EXPECT_EQ(hal_gpio_info.fd, fd);
    EXPECT_EQ(hal_gpio_info.cb, Heard::add);
    EXPECT_THAT(logged("ERROR"),
                ElementsAre("hal_gpio already inited, please call hal_gpio_deinit, then init\n"));
    hal_gpio_deinit();
    hal_gpio_deinit();
}

TEST_F(HalGpio, StaysIdleWithTheCallbackStoredWhenTheNodeIsRefused) {
    add_fault("/dev/drvgpio:open:EACCES:once");
    EXPECT_EQ(hal_gpio_init(Heard::add), -1);
    EXPECT_EQ(hal_gpio_info.inited, 0U);
    EXPECT_EQ(hal_gpio_info.fd, -1);
    EXPECT_EQ(hal_gpio_info.cb, Heard::add);
    EXPECT_THAT(logged("ERROR"), ElementsAre("open drvgpio error\n"));
    EXPECT_EQ(hal_gpio_init(nullptr), 0);
    hal_gpio_deinit();
}

TEST_F(HalGpio, GoesThroughAThousandInitsWithNothingLeft) {
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(hal_gpio_init(nullptr), 0);
        hal_gpio_deinit();
    }
    EXPECT_EQ(opens(kNode, 0), 0);
}

TEST_F(HalGpio, CanBeStoppedWhileTheNodeIsGoneUnderTheListener) {
    ASSERT_EQ(hal_gpio_init(Heard::add), 0);
    vanish(kNode);
    expect_event({{"kind", "read"}, {"error", "ENODEV"}});
    hal_gpio_deinit(); // the listener spins on a dead node; it must still end
    appear(kNode);
}

// A thread that is cancelled inside a line operation finishes it, and leaves nothing open.
TEST_F(HalGpio, CompletesAnOperationWhoseThreadIsCancelled) {
    ASSERT_EQ(configure(3, HAL_GPIO_OUTPUT), 0);
    add_fault("/dev/drvgpio:ioctl=CMD_GPIO_SETVAL:hold=gate:once");
    pthread_t caller{};
    ASSERT_EQ(pthread_create(
                  &caller, nullptr,
                  [](void*) -> void* {
                      hal_gpio_set_value(3, 1);
                      pthread_testcancel();
                      return nullptr;
                  },
                  nullptr),
              0);
    expect_event({{"kind", "fault"}, {"action", "hold=gate"}});
    pthread_cancel(caller);
    board().ask("fault.release", {{"tag", "gate"}});
    void* result = nullptr;
    pthread_join(caller, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(level(3), 1);
    EXPECT_EQ(opens(kNode, 0), 0);
}

TEST_F(HalGpio, EnablesInterruptsOfTriggeredInputsOnly) {
    for (const std::uint32_t dir : {0U, 1U}) {
        for (const std::uint32_t trig : {0U, 1U, 2U, 3U, 4U, 0xFFFFFFFFU}) {
            ASSERT_EQ(configure(1, dir, trig), 0);
            const Json record = last_record("CMD_GPIO_CONFIG");
            EXPECT_EQ(record.at("trigger"), trig);
            EXPECT_EQ(record.at("interrupt"), dir == 0 && trig >= 1 && trig <= 3 ? 1 : 0);
        }
    }
}

TEST_F(HalGpio, StaysIdleWhenTheThreadCannotStart) {
    {
        const hal_test::NoRoomForThreads none;
        EXPECT_EQ(hal_gpio_init(Heard::add), -3);
    }
    EXPECT_EQ(hal_gpio_info.inited, 0U);
    EXPECT_EQ(hal_gpio_info.fd, -1);
    EXPECT_EQ(hal_gpio_info.cb, nullptr);
    EXPECT_THAT(logged("ERROR"), ElementsAre("create thread hal_gpio_listen failed erron= " +
                                             std::to_string(EAGAIN) + "/n"));
    hal_gpio_deinit();
    EXPECT_EQ(hal_gpio_init(Heard::add), 0);
    hal_gpio_deinit();
}

TEST_F(HalGpio, ReadsAndDropsEventsWithoutACallback) {
    ASSERT_EQ(configure(7, HAL_GPIO_INPUT, 3), 0);
    ASSERT_EQ(hal_gpio_init(nullptr), 0);
    drive(7, 1);
    expect_event({{"kind", "read"}, {"result", 8}});
    hal_gpio_deinit();
}

TEST_F(HalGpio, SaysThatItsWaitFailsAndCanBeStopped) {
    ASSERT_EQ(hal_gpio_init(Heard::add), 0);
    close(hal_gpio_info.fd);
    while (logged("ERROR").size() < 2) {
        std::this_thread::yield();
    }
    hal_gpio_deinit();
    EXPECT_THAT(logged("ERROR"), testing::Each("select error\n"));
}

TEST_F(HalGpio, CompletesACallbackAlthoughItIsBeingStopped) {
    static std::promise<void>* entered;
    static std::atomic<bool> completed{false};
    std::promise<void> promise;
    entered = &promise;
    ASSERT_EQ(configure(7, HAL_GPIO_INPUT, 3), 0);
    ASSERT_EQ(hal_gpio_init([](hal_gpio_event*) {
                  entered->set_value();
                  // Many cancellation points, in none of which it may end.
                  for (int pass = 0; pass < 100; ++pass) {
                      usleep(200);
                  }
                  completed = true;
              }),
              0);
    drive(7, 1);
    promise.get_future().wait();
    hal_gpio_deinit();
    EXPECT_TRUE(completed);
}

TEST_F(HalGpio, LetsACallbackStopAndRestartItsOwnListener) {
    static std::promise<void>* restarted;
    std::promise<void> promise;
    restarted = &promise;
    ASSERT_EQ(configure(7, HAL_GPIO_INPUT, 3), 0);
    ASSERT_EQ(hal_gpio_init([](hal_gpio_event*) {
                  hal_gpio_deinit();
                  EXPECT_EQ(hal_gpio_info.inited, 0U);
                  EXPECT_EQ(hal_gpio_init(Heard::add), 0);
                  restarted->set_value();
              }),
              0);
    const std::size_t running = threads();
    drive(7, 1);
    promise.get_future().wait();
    while (threads() != running) { // the first listener ends
        std::this_thread::yield();
    }
    EXPECT_EQ(opens(kNode, 1), 1);
    drive(7, 0);
    EXPECT_THAT(Heard::wait_for(1), ElementsAre(Edge{7, 0}));
    hal_gpio_deinit();
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
