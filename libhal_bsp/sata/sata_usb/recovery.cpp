// Resetting the MCU, and what is done after a command that failed.
#include <hal_bsp/gpio.h>

#include "sata/sata_usb/bridge.h"
#include "support/cancel.h"
#include "support/fd.h"
#include "support/log.h"
#include "support/wait.h"

#include <atomic>

constinit hal::RecoveryGate hal::sata::gate;

namespace {

using namespace hal::sata;
using namespace std::chrono_literals;

struct Line {
    uint32_t gpio;
    const char* name;
};

constexpr Line kPower{492, "mcu_pwr"};
constexpr Line kReset{493, "mcu_rst"};
constexpr Line kProgram{494, "mcu_prg"};
constexpr std::array kLines{kPower, kReset, kProgram};

pthread_mutex_t reset_lock = PTHREAD_MUTEX_INITIALIZER;

int32_t make_output(const Line& line) {
    hal_gpio_cfg cfg{};
    cfg.gpio = line.gpio;
    cfg.name = line.name;
    cfg.dir = HAL_GPIO_OUTPUT;
    const int32_t result = hal_gpio_config(&cfg);
    if (result < 0) {
        HAL_LOG(HAL_LOG_ERROR, "hal_gpio_config fail! %d\n", static_cast<int>(line.gpio));
    }
    return result;
}

void raise(const Line& line, std::chrono::milliseconds time) {
    hal_gpio_set_value(line.gpio, 1);
    hal::rest(time);
}

int32_t recover() {
    hal::close_shared(sata_usb_prv.sata_dev_fd);
    mcu_hard_rst();
    DiskName name{};
    if (!find_disk(Search::kOnce, name) || !open_disk(name, "open sata device,%s\n")) {
        return kFailed;
    }
    HAL_LOG(HAL_LOG_INFO, "sata dev fd is %d\n", sata_usb_prv.sata_dev_fd);
    send_usb_control_or_log(Usb::kDetached);
    send_usb_control_or_log(Usb::kAttached);
    test_read();
    if (std::atomic_ref(sata_usb_prv.hid_inited).load() != 0) {
        HAL_LOG(HAL_LOG_INFO, "hid inited-ss\n");
        if (mcu_hid_init() < 0) {
            HAL_LOG(HAL_LOG_ERROR, "mcu_hid_init fail~\n");
        }
    }
    return kDone;
}

} // namespace

void hal::sata::recover_after(uint32_t generation) {
    const hal::RecoveryGate::Recovery turn(gate, generation);
    if (turn) {
        recover();
    }
}

int32_t mcu_hard_rst(void) {
    const hal::CancelOff no_cancel;
    const hal::Locked turn(reset_lock);
    HAL_LOG(HAL_LOG_INFO, "mcu_hard_rst~~~~~~~~~~~~~~\n");
    int32_t result = kDone;
    for (const Line& line : kLines) {
        result = make_output(line);
    }
    hal::rest(500ms);
    hal::rest(10ms);
    raise(kProgram, 1ms);
    raise(kPower, 50ms);
    raise(kReset, 500ms);
    for (const Line& line : kLines) {
        hal_gpio_deconfig(line.gpio);
    }
    HAL_LOG(HAL_LOG_INFO, "mcu_hard_rst over\n");
    return result;
}

int32_t mcu_recover(void) {
    const hal::CancelOff no_cancel;
    const hal::RecoveryGate::Recovery turn(gate);
    return turn ? recover() : kFailed;
}
