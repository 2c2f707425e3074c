// Binding the gadget to the USB device controller, and the watch over a bind.
#include <hal_bsp/otg.h>
#include <hal_bsp/timing.h>

#include "hal/hal_otg/gadget.h"
#include "support/log.h"
#include "support/thread.h"
#include "support/wait.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>

namespace {

using namespace hal::otg;
using namespace std::chrono_literals;

constexpr const char* kUdc = "/sys/kernel/config/usb_gadget/g1/UDC";

constexpr int kBound = 1;
constexpr int kNotBound = 0;
constexpr int kNoAttribute = -3;

constexpr int kWatchPolls = 1000;
constexpr std::chrono::microseconds kWatchPause = 20ms;
constexpr std::chrono::microseconds kReconnectPause = 100ms;

using ControllerName = std::array<char, 19>;

// The first controller that is listed; false where there is none.
bool find_controller(ControllerName& first) {
    hal::CommandOutput output("ls /sys/class/udc/");
    int controllers = 0;
    if (output) {
        controllers = output.keep_first_line(
            first, [](const char* name) { HAL_LOG(HAL_LOG_INFO, "udc is :%s\n", name); });
    }
    if (controllers == 0) {
        HAL_LOG(HAL_LOG_ERROR, "can't find udc in /sys/calss/udc!\n");
    }
    return controllers > 0;
}

bool bind_to_a_controller() {
    ControllerName controller{};
    if (!find_controller(controller)) {
        return false;
    }
    set_usbsta(HAL_OTG_UNKNOWN);
    if (!hal::run_piped(CommandLine("echo %s > %s", controller.data(), kUdc))) {
        HAL_LOG(HAL_LOG_ERROR, "echo udc error, %s\n", std::strerror(errno));
        return false;
    }
    return true;
}

void watch() {
    pthread_t thread{};
    if (hal::start_thread(thread, hal_udc_listen, &hal_otg_prv) == 0) {
        std::atomic_ref(hal_otg_prv.udc_tid).store(thread); // of several threads, the latest
    }
}

void bind(int watchdog) {
    if (get_udc() == kBound) {
        HAL_LOG(HAL_LOG_ERROR, "udc already exist!!\n");
    } else if (!bind_to_a_controller()) {
        return;
    }
    if (watchdog != kUnwatched) {
        watch();
    }
}

void unbind() {
    if (get_udc() == kNotBound) {
        HAL_LOG(HAL_LOG_ERROR, "no udc exist!!\n");
        return;
    }
    HAL_LOG(HAL_LOG_INFO, "echo none to udc\n");
    if (!hal::run_piped(CommandLine("echo none > %s", kUdc))) {
        HAL_LOG(HAL_LOG_ERROR, "ucho no to udc error\n");
    }
}

} // namespace

int hal::otg::get_udc() {
    if (is_dir_exist(kUdc) == 0) {
        return kNoAttribute;
    }
    hal::CommandOutput output(CommandLine("cat %s", kUdc));
    if (!output) {
        HAL_LOG(HAL_LOG_ERROR, "cat udc error\n");
        return kNotBound;
    }
    std::array<char, 50> name{};
    if (!output.last_line(name)) {
        HAL_LOG(HAL_LOG_ERROR, "no udc\n");
        return kNotBound;
    }
    HAL_LOG(HAL_LOG_INFO, "udc is %s\n", name.data());
    return kBound;
}

void hal::otg::set_udc(int mode, int watchdog) {
    if (is_dir_exist(kUdc) == 0) {
        return;
    }
    if (mode == kBind) {
        bind(watchdog);
    } else if (mode == kUnbind) {
        unbind();
    }
}

void hal::otg::udc_reconnect() {
    set_udc(kUnbind, kUnwatched);
    hal::run_command(CommandLine("echo none > %s", kUdc));
    hal::rest(kReconnectPause);
    set_udc(kBind, kUnwatched);
    hal::rest(kReconnectPause);
}

void* hal_udc_listen([[maybe_unused]] void* arg) {
    HAL_LOG(HAL_LOG_INFO, "udc thread running!!!!\n");
    pthread_detach(pthread_self());
    for (int poll = 1; get_usbsta() != HAL_OTG_CONFIGURED; ++poll) {
        if (poll == kWatchPolls) {
            udc_reconnect();
            return nullptr;
        }
        hal::rest(kWatchPause);
    }
    HAL_LOG(HAL_LOG_INFO, "hal_udc_listen configured!\n");
    return nullptr;
}
