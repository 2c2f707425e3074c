// The gadget's skeleton in configfs: what it is before it has functions.
#include <hal_bsp/otg.h>
#include <hal_bsp/timing.h>

#include "hal/hal_otg/gadget.h"
#include "hal/hal_otg/listener.h"
#include "support/log.h"
#include "support/wait.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>

hal_otg_state hal_otg_prv;

static_assert(offsetof(hal_otg_info, product_id) == 2 && offsetof(hal_otg_info, vendor_id) == 4 &&
              sizeof(hal_otg_info) == 6);
static_assert(offsetof(hal_otg_state, state_cb) == 8 && offsetof(hal_otg_state, listen_tid) == 16 &&
              offsetof(hal_otg_state, udc_tid) == 24 && sizeof(hal_otg_state) == 32);

namespace {

using namespace hal::otg;
using namespace std::chrono_literals;

constexpr const char* kStrings = "/sys/kernel/config/usb_gadget/g1/strings/0x409";

// The combined link of keyboard and absolute mouse stays.
constexpr const char* kLinksToRemove[] = {"mtp.mass0", "hid.am0", "hid.rm0", "hid.ts0", "hid.kb0"};

int32_t compose(const hal_otg_info* info) {
    if (info == nullptr) {
        return kNoPlace;
    }
    if (is_dir_exist(kGadget) == 0 && !hal::run_piped(CommandLine("mkdir %s", kGadget))) {
        HAL_LOG(HAL_LOG_ERROR, "mkdir gadget_dir error: %s\n", std::strerror(errno));
        return kNoPlace;
    }
    hal::run_piped(CommandLine("echo 0x%04x > %s/idProduct", info->product_id, kGadget));
    hal::run_piped(CommandLine("echo 0x%04x > %s/idVendor", info->vendor_id, kGadget));
    if (is_dir_exist(kConfiguration) == 0) {
        hal::run_piped(CommandLine("mkdir %s/configs/c.1;"
                                   "\t\t\t\tmkdir %s/configs/c.1/strings/0x409;"
                                   "\t\t\t\techo Conf 1 > "
                                   "%s/configs/c.1/strings/0x409/configuration;"
                                   "\t\t\t\techo 120 > %s/configs/c.1/MaxPower;",
                                   kGadget, kGadget, kGadget, kGadget));
    }
    if (is_dir_exist(kStrings) == 0) {
        hal::run_piped(CommandLine("mkdir %s/strings/0x409;"
                                   "\t\t\t\techo serial > %s/strings/0x409/serialnumber;"
                                   "\t\t\t\techo manufacturer > %s/strings/0x409/manufacturer;"
                                   "\t\t\t\techo mtp > %s/strings/0x409/product;",
                                   kGadget, kGadget, kGadget, kGadget));
    }
    return kDone;
}

} // namespace

int32_t hal_otg_init(const hal_otg_info* info, signed char count, hal_otg_state_callback callback) {
    std::atomic_ref(hal_otg_prv.state_cb).store(callback);
    if (is_dir_exist(kGadgetRoot) == 0) {
        return kNoPlace;
    }
    if (count > 1) {
        HAL_LOG(HAL_LOG_WARN, "can't support more than 1 gadget,just init one!\n");
    }
    HAL_LOG(HAL_LOG_INFO, "hal_otg_init=============================\n");
    if (count > 0) {
        if (const int32_t result = compose(info); result != kDone) {
            return result;
        }
    }
    HAL_LOG(HAL_LOG_INFO, "will pthread_create hal_otg_listen\n");
    return std::atomic_ref(hal_otg_prv.thread_state).load() == 0 ? start_listening() : kDone;
}

int32_t hal_otg_reset([[maybe_unused]] uint16_t dev) {
    return kDone;
}

int32_t hal_otg_start([[maybe_unused]] uint16_t dev) {
    return kDone;
}

int32_t hal_otg_stop([[maybe_unused]] uint16_t dev) {
    set_masssee(FUNCTION_RUN_STATE_STOP);
    set_hidsee(FUNCTION_RUN_STATE_STOP);
    HAL_LOG(HAL_LOG_INFO, "set udc to 0\n");
    hal::rest(500ms);
    HAL_LOG(HAL_LOG_INFO, "set udc t0 0\n");
    set_udc(kUnbind, kUnwatched);
    hal::rest(2s);
    for (const char* name : kLinksToRemove) {
        const Path link("%s/%s", kConfiguration, name);
        if (is_dir_exist(link.text()) != 0) {
            hal::run_piped(CommandLine("rm %s", link.text()));
        }
    }
    return kDone;
}
