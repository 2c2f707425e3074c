// Commands of the host's to the application, one at a time.
#include "hal/hal_otg/gadget.h"
#include "hal/hal_otg/mass_worker.h"
#include "support/fields.h"
#include "support/log.h"
#include "support/mass_event.h"
#include "support/wait.h"

#include <algorithm>

namespace {

using namespace hal::otg;
using namespace std::chrono_literals;

constexpr int kReplySleeps = 7000;
constexpr uint8_t kModeSelect6 = 0x15;

void tell(uint32_t kind, std::span<uint8_t> bytes) {
    hal::tell_mass_event(hal_mass_prv.mass_cb, kind, bytes);
}

// Whether the end of the disk was asked for; it is the worker's end then.
bool is_unmounted(MassWorker& worker, int level) {
    if (check_umount_flag() == 0) {
        return false;
    }
    HAL_LOG(level, "scsi umount_flag is on\n");
    worker.state = FUNCTION_RUN_STATE_UMOUNT;
    return true;
}

// The data of the host's that belong to a command. Where they cannot be read the application has to
// do with what there is of them.
void read_data(MassWorker& worker, bool deferred) {
    auto remaining = hal::load_le<uint32_t>(std::span(worker.cbw).subspan<8, 4>());
    while (remaining != 0 && !is_unmounted(worker, HAL_LOG_INFO)) {
        const std::size_t wanted = std::min<std::size_t>(remaining, kChunk);
        const ssize_t got = worker.read(std::span(worker.chunk).first(wanted));
        if (got <= 0) {
            return;
        }
        HAL_LOG(HAL_LOG_INFO, "read data %d\n", static_cast<int>(got));
        if (!deferred) {
            tell(MASS_EVENT_DATA, std::span(worker.chunk).first(static_cast<std::size_t>(got)));
        }
        remaining -= static_cast<uint32_t>(got);
    }
}

void deliver(MassWorker& worker, std::size_t length) {
    const bool deferred = worker.cbw[15] == kModeSelect6;
    if (deferred) {
        HAL_LOG(HAL_LOG_WARN, "command data ignore!!!\n");
    } else {
        tell(MASS_EVENT_CBW, std::span(worker.cbw).first(length));
    }
    if (worker.cbw[12] == 0) {
        read_data(worker, deferred);
    }
    if (deferred && has_callback()) {
        HAL_LOG(HAL_LOG_INFO, "cbw callback 2!!!\n");
        tell(MASS_EVENT_CBW, worker.cbw);
    }
}

void await_reply(MassWorker& worker) {
    const std::atomic_ref umount_flag(hal_mass_prv.umount_flag);
    const std::atomic_ref busy(hal_mass_prv.busy);
    for (int sleeps = 0; busy == 1;) {
        if (is_unmounted(worker, HAL_LOG_INFO)) {
            umount_flag = 1; // it ends the worker, but later
            return;
        }
        hal::rest(1ms);
        if (++sleeps == kReplySleeps) {
            HAL_LOG(HAL_LOG_INFO, "scsi timeout, just do otg_reset~~~~~~~~~~!!!!\n");
            worker.state = FUNCTION_RUN_STATE_UMOUNT;
            umount_flag = 1;
            return;
        }
    }
}

bool is_to_serve(MassWorker& worker) {
    if (!worker.run.is_wanted() || is_unmounted(worker, HAL_LOG_WARN)) {
        return false;
    }
    worker.state = get_masssee();
    if (worker.state != FUNCTION_RUN_STATE_NORMAL) {
        HAL_LOG(HAL_LOG_WARN, "mass_fun_state is nor normal,break\n");
        return false;
    }
    return !is_unmounted(worker, HAL_LOG_INFO);
}

} // namespace

bool hal::otg::serve_command(MassWorker& worker) {
    if (!is_to_serve(worker)) {
        return false;
    }
    worker.cbw.fill(0); // of a short one the rest is not that of the last
    const ssize_t got = worker.read(worker.cbw);
    if (got < 0) {
        HAL_LOG(HAL_LOG_INFO, "mass read error, disable otg\n");
        worker.state = FUNCTION_RUN_STATE_UMOUNT;
        return false;
    }
    if (got == 0) {
        return true;
    }
    std::atomic_ref(hal_mass_prv.busy).store(1);
    deliver(worker, static_cast<std::size_t>(got));
    await_reply(worker);
    return !is_unmounted(worker, HAL_LOG_INFO);
}
