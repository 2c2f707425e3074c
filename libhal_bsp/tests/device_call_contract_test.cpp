// What holds for every call that asks a device for something: each is a row.

#include "tests/support/captured.h"
#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <pthread.h>

#include <array>
#include <atomic>

namespace hal_test::device_call_contract {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kGpio[] = "/dev/drvgpio";
constexpr char kFpga[] = "/dev/fpga";
constexpr char kFan[] = "/dev/pwm-fan1";
constexpr char kLed[] = "/dev/led";
constexpr char kOled[] = "/dev/x9oled";
constexpr char kVendor[] = "/dev/vendor_storage";
constexpr char kBacklight[] = "/sys/class/backlight/backlight/brightness";
constexpr char kLine[] = "/sys/class/gpio/gpio12/*";
constexpr char kOledOpen[] = "open /dev/x9oled error";
constexpr char kOledRefused[] = "OLEDDEV_IOCTL error";
constexpr char kVendorOpen[] = "vendor storage open fail\n";

// What comes of it when one of the system calls on the node fails.
struct Outcome {
    int result;
    const char* error; // a part of what is logged; empty: nothing is
};

using Outcomes = std::vector<Outcome>;

struct Call {
    const char* name;
    const char* node;
    int (*call)();
    Outcomes failures;       // of the first system call, the second...
    const char* output = ""; // a refusal on standard output
};

std::array<std::uint8_t, 4> word;
std::array<char, 8> item;
constexpr fan_ctl_req kOn{1, {1, 0, 0}};
constexpr led_ctl_req kBlink{3, 0, 2, 100, 900, 128, 0x00FF00};

constexpr oled_string_req kText{0, 0, "text", HAL_OLED_CHARS, 4};
const Outcomes kFanFails{{-35, "open dev /dev/pwm-fan1 dev error!"},
                         {-35, "ioctl PWM_LASER_SET_SPEED error"}};
const Outcomes kOledFails{{-35, kOledOpen}, {-35, kOledRefused}};

const Call kCalls[] = {
    {"gpio_config",
     kGpio,
     [] { // and what undoes it
         const hal_gpio_cfg cfg{9, "x", HAL_GPIO_OUTPUT, 0, 0, 0};
         const int configured = hal_gpio_config(&cfg);
         return configured != 0 ? configured : hal_gpio_deconfig(9);
     },
     {{-1, "hal_gpio_config open drvgpio error\n"},
      {-1, "CMD_GPIO_CONFIG ioctl error!\n"},
      {-1, "hal_gpio_deconfig open drvgpio error\n"},
      {-1, "CMD_GPIO_DECONFIG ioctl error\n"}}},
    {"gpio_set",
     kGpio,
     [] { return hal_gpio_set_value(3, 0); },
     {{-1, "hal_gpio_set_value open drvgpio error\n"}, {-1, "CMD_GPIO_SETVAL ioctl error\n"}}},
    {"gpio_get",
     kGpio,
     [] { return hal_gpio_get_value(3); },
     {{-1, "hal_gpio_get_value open drvgpio error\n"}, {2, "CMD_GPIO_GETVAL ioctl error\n"}}},
    {"fpga_read",
     kFpga,
     [] { return hal_fpga_read(0, 0, 4, word.data()); },
     {{-1, "open /dev/fpga error\n"}, {-1, ""}},
     "SPIDEV_IOCTL read error\n"},
    {"fpga_write",
     kFpga,
     [] { return hal_fpga_write(0, 0, 4, word.data()); },
     {{-1, "open /dev/fpga error\n"}, {-1, ""}},
     "SPIDEV_IOCTL write error\n"},
    {"fan_rpm",
     kFan,
     [] {
         fan_rpm_req speed{1, 0, 777};
         const int result = hal_fans_get_rpm(&speed);
         EXPECT_EQ(speed.rpm == 777, result != 0);
         return result;
     },
     {{-35, "open dev pwm-fan dev error!"}, {-35, "ioctl PWM_LASER_GET_SPEED error"}}},
    {"fan_speed", kFan, [] { return hal_fans_set_speed(&kOn); }, kFanFails},
    {"fan_power", kFan, [] { return hal_fans_power_ctl(&kOn); }, kFanFails},
    {"led",
     kLed,
     [] { return hal_keypad_led_ctl_v2(&kBlink); },
     {{-1, "open led error"}, {-1, ""}}},
    {"oled_show", kOled, [] { return hal_oled_show_string(0, &kText); }, kOledFails},
    {"oled_clear", kOled, [] { return hal_oled_clear(0); }, kOledFails},
    {"oled_display", kOled, [] { return hal_oled_display_ctl(0, 1); }, kOledFails},
    {"oled_test",
     kOled,
     [] { return hal_oled_test(0, 0, 0, F8X16, 80); },
     {{-35, kOledOpen}, {-35, kOledRefused}, {-35, kOledRefused}}},
    {"vendor_write",
     kVendor,
     [] { return hal_vendor_write(3, "abc", 3); },
     {{-35, kVendorOpen},
      {0, "vendor clean fail, ret:-1\n"},
      {-35, "vendor write fail, ret:-1\n"}}},
    {"vendor_read",
     kVendor,
     [] {
         EXPECT_EQ(item, (std::array<char, 8>{'u', 'n', 't'}));
         const int result = hal_vendor_read(3, item.data(), 3);
         EXPECT_STREQ(item.data(), result == 0 ? "abc" : "unt");
         item = {'u', 'n', 't'};
         return result;
     },
     {{-35, kVendorOpen}, {-35, "vendor storage read error, ret:-1\n"}}},
    {"backlight",
     kBacklight,
     [] {
         backlight_req full{{}, 100};
         const int result = operation_set_backlight(&full);
         return result == 1 ? 0 : result; // characters written
     },
     {{-35, "] open backlight brightness file error"}, {-1, "write bl_fd error"}}},
    {"line_set", kLine, [] { return util_gpio_set(12, 0); }, Outcomes(4, {-1, ""})},
    {"line_get", kLine, [] { return util_gpio_get(12); }, Outcomes(4, {-1, ""})},
};

class DeviceCallContract : public OnBoard {
  protected:
    // Everything that the rows ask for is there.
    void SetUp() override {
        OnBoard::SetUp();
        const hal_gpio_cfg output{3, "x", HAL_GPIO_OUTPUT, 0, 0, 0};
        EXPECT_EQ(hal_gpio_config(&output), 0);
        EXPECT_EQ(hal_vendor_write(3, "abc", 3), 0);
        EXPECT_GE(util_gpio_get(12), 0);
        ask("sysgpio.drive", {{"line", 12}, {"level", 0}});
        item = {'u', 'n', 't'};
        forget_trace();
    }
    void expect(const Outcome& outcome, int result) {
        EXPECT_EQ(result, outcome.result);
        if (*outcome.error == '\0') {
            EXPECT_THAT(logged("ERROR"), IsEmpty());
        } else {
            EXPECT_THAT(logged("ERROR"), ElementsAre(HasSubstr(outcome.error)));
        }
    }
};

TEST_F(DeviceCallContract, ACallSurvivesTheFailureOfAnyOfItsSteps) {
    for (const Call& it : kCalls) {
        SCOPED_TRACE(it.name);
        std::string output;
        int result = 0;
        std::size_t failures = 0;
        sweep(
            it.node, "EIO",
            [&] {
                forget_trace();
                const Captured to_stdout(stdout);
                const Captured to_stderr(stderr);
                result = it.call();
                output += to_stdout.text() + to_stderr.text();
            },
            [&](bool failed) {
                ASSERT_EQ(failed, failures < it.failures.size());
                expect(failed ? it.failures[failures++] : Outcome{0, ""}, result);
            });
        EXPECT_EQ(output, it.output);
    }
}

TEST_F(DeviceCallContract, ACallFindsItsNodeGoneAndBack) {
    for (const Call& it : kCalls) {
        if (it.node == kLine) {
            continue; // the kernel's own lines do not go
        }
        SCOPED_TRACE(it.name);
        forget_trace();
        vanish(it.node);
        expect(it.failures[0], it.call());
        appear(it.node);
        EXPECT_EQ(it.call(), 0);
        expect_event({{"kind", "open"},
                      {"node", it.node},
                      {"mode", it.node == kBacklight ? "write" : "read-write"}});
        EXPECT_EQ(opens(it.node, 0), 0);
    }
}

TEST_F(DeviceCallContract, ACallIsCompletedAlthoughItsThreadIsCancelled) {
    for (const Call& it : kCalls) {
        if (it.node == kBacklight || it.node == kLine) {
            continue; // writing a file may end a thread
        }
        SCOPED_TRACE(it.name);
        static std::atomic<bool> completed;
        static int (*call)();
        completed = false;
        call = it.call;
        forget_trace();
        clear_faults();
        add_fault(std::string(it.node) + ":ioctl:hold=gate:once");
        pthread_t caller{};
        const auto body = [](void*) -> void* {
            completed = call() == 0;
            pthread_testcancel();
            return nullptr;
        };
        ASSERT_EQ(pthread_create(&caller, nullptr, body, nullptr), 0);
        expect_event({{"kind", "fault"}, {"action", "hold=gate"}});
        pthread_cancel(caller);
        ask("fault.release", {{"tag", "gate"}});
        void* result = nullptr;
        pthread_join(caller, &result);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        EXPECT_TRUE(completed);
        EXPECT_EQ(opens(it.node, 0), 0);
    }
}

} // namespace
} // namespace hal_test::device_call_contract
