// The disk in the gadget, and the application's calls about it.
#include <hal_bsp/timing.h>

#include "hal/hal_otg/gadget.h"
#include "hal/hal_otg/mass_state.h"
#include "hal/hal_otg/mass_worker.h"
#include "support/log.h"
#include "support/transfer.h"
#include "support/wait.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <optional>

namespace {

using namespace hal::otg;
using namespace std::chrono_literals;

constexpr int32_t kRunsAlready = -2;
constexpr int32_t kNotOpen = -7;
constexpr int kHidReadings = 200;

constexpr const char* kMassFunction = "/sys/kernel/config/usb_gadget/g1/functions/mtp.mass0";

bool wait_for_hid() {
    for (int reading = 1; get_hidsee() != FUNCTION_RUN_STATE_NORMAL; ++reading) {
        HAL_LOG(HAL_LOG_INFO, "wait hid state to normal\n");
        if (check_umount_flag() == 1) {
            HAL_LOG(HAL_LOG_ERROR, "wait hid state to normal, umount\n");
            return false;
        }
        if (reading == kHidReadings) {
            HAL_LOG(HAL_LOG_ERROR, "wait hid state to normal timeout\n");
            return false;
        }
        hal::rest(100ms);
    }
    return true;
}

void pause_gadget() {
    HAL_LOG(HAL_LOG_INFO, "set hidsee t0 0\n");
    set_hidsee(FUNCTION_RUN_STATE_HANGUP);
    hal::rest(500ms);
    HAL_LOG(HAL_LOG_INFO, "set udc t0 0\n");
    set_udc(kUnbind, kUnwatched);
    hal::rest(2s);
}

bool add_disk() {
    if (is_dir_exist(kFunctions) == 0 || is_dir_exist(kConfiguration) == 0) {
        return false;
    }
    if (is_dir_exist(kMassFunction) == 0 &&
        !hal::run_piped(CommandLine("mkdir %s", kMassFunction))) {
        HAL_LOG(HAL_LOG_ERROR, "mkdir functions error: %s\n", std::strerror(errno));
        return false;
    }
    if (is_dir_exist(kMassLink) == 0 &&
        !hal::run_piped(CommandLine("ln -s  %s %s", kMassFunction, kConfiguration))) {
        HAL_LOG(HAL_LOG_ERROR, "ln functions error: %s\n", std::strerror(errno));
        return false;
    }
    return true;
}

// Nothing once the disk is in the gadget; else what the init call returns.
std::optional<int32_t> refusal(hal_mass_callback callback) {
    hal_mass_state& state = hal_mass_prv;
    if (std::atomic_ref(state.thread_state).load() == 1) {
        HAL_LOG(HAL_LOG_ERROR, "mass is runnint, return\n");
        return kRunsAlready;
    }
    if (!wait_for_hid()) {
        return kDone;
    }
    pause_gadget();
    std::atomic_ref(state.mass_cb).store(callback);
    std::atomic_ref(state.mass_num).store(1);
    return add_disk() ? std::nullopt : std::optional(kNoPlace);
}

} // namespace

int32_t hal_mass_init([[maybe_unused]] void* info, [[maybe_unused]] unsigned char count,
                      hal_mass_callback callback) {
    if (const std::optional<int32_t> result = refusal(callback)) {
        HAL_LOG(HAL_LOG_ERROR, "mass init error, return!!\n");
        tell_end(callback);
        return *result;
    }
    set_masssee(FUNCTION_RUN_STATE_HANGUP);
    set_udc(kBind, kWatched);
    return start_mass_worker();
}

int32_t hal_mass_write(const hal_mass_reply* reply) {
    int none = -1;
    const hal::SharedFds::Use disk(mass_fds, reply != nullptr && reply->dev < HAL_MASS_DEVICES
                                                 ? hal_mass_prv.mass_fd[reply->dev]
                                                 : none);
    if (reply == nullptr || !disk) {
        HAL_LOG(HAL_LOG_ERROR, "mass fd is none, return\n");
        return kNotOpen;
    }
    const ssize_t result = hal::write_some(disk.get(), reply->data, reply->len);
    if (reply->last != 0) {
        std::atomic_ref(hal_mass_prv.busy).store(0);
    }
    return static_cast<int32_t>(result);
}

void hal_mass_deinit(void) {
    hal_mass_state& state = hal_mass_prv;
    if (std::atomic_ref(state.thread_state).load() != 1) {
        HAL_LOG(HAL_LOG_WARN, "mass is not running, return\n");
        return;
    }
    mass_deinit_asked = true;
    std::atomic_ref(state.umount_flag).store(1);
    HAL_LOG(HAL_LOG_INFO, "sst masssee FUNCTION_RUN_STATE_UMOUNT\n");
    set_hidsee(FUNCTION_RUN_STATE_HANGUP);
    hal::rest(100ms);
    set_masssee(FUNCTION_RUN_STATE_UMOUNT);
    HAL_LOG(HAL_LOG_INFO, "wait for udisk unmount\n");
    hal::rest(1s);
}

void* hal_mass_timeout_listen([[maybe_unused]] void* arg) {
    for (;;) {
        hal::rest(10ms);
    }
}
