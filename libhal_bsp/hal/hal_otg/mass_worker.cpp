// The disk's worker: how it gets its node, and what is left to do at its end.
#include "hal/hal_otg/mass_worker.h"
#include "hal/hal_otg/gadget.h"
#include "support/log.h"
#include "support/thread.h"
#include "support/wait.h"

#include <hal_bsp/timing.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

namespace {

using namespace hal::otg;
using namespace std::chrono_literals;

constexpr int kReadings = 1000;  // of a `masssee` that is not 1, before the disk is given up
constexpr int kOpenings = 10000; // that fail, before it is

// A state besides those of `masssee`.
constexpr int kNeverOpened = 5;

constinit hal::Runs mass_runs;

// --- preparing ---

enum class Prepared { kServe, kEnd, kGivenUp };

// Looks again 200 ms later.
bool stays_normal(MassWorker& worker) {
    HAL_LOG(HAL_LOG_INFO, "mass_fun_state is FUNCTION_RUN_STATE_NORMAL\n");
    hal::rest(200ms);
    worker.state = get_masssee();
    return worker.state == FUNCTION_RUN_STATE_NORMAL;
}

Prepared give_up_opening(MassWorker& worker) {
    worker.state = kNeverOpened;
    if (has_callback()) {
        HAL_LOG(HAL_LOG_INFO, "callback to mass_serd\n");
        tell_end(hal_mass_prv.mass_cb);
        worker.state = FUNCTION_RUN_STATE_UMOUNT;
    }
    return Prepared::kEnd;
}

Prepared prepare(MassWorker& worker) {
    int readings = 0;
    int failures = 0;
    while (worker.run.is_wanted()) {
        if (check_umount_flag() == 1) {
            HAL_LOG(HAL_LOG_INFO, "mass umount before init success\n");
            worker.unmounted_early = true;
            return Prepared::kServe;
        }
        worker.state = get_masssee();
        if (worker.state != FUNCTION_RUN_STATE_NORMAL) {
            if (++readings == kReadings) {
                return Prepared::kGivenUp;
            }
            HAL_LOG(HAL_LOG_WARN, "mass_fun_state is not FUNCTION_RUN_STATE_NORMAL\n");
            hal::rest(200ms);
            continue;
        }
        if (!stays_normal(worker)) {
            readings = 0;
            continue;
        }
        if (is_dir_exist(kMassNode) == 0) {
            HAL_LOG(HAL_LOG_ERROR, "can't find dev mass\n");
            return Prepared::kServe;
        }
        if (worker.open()) {
            return Prepared::kServe;
        }
        HAL_LOG(HAL_LOG_ERROR, "mass open error! cnt = %d\n", failures);
        if (++failures == kOpenings) {
            return give_up_opening(worker);
        }
        hal::rest(500ms);
    }
    return Prepared::kServe;
}

// --- the end ---

void rebind_without_the_disk() {
    HAL_LOG(HAL_LOG_INFO, "set udc to 1\n");
    hal::rest(500ms);
    set_udc(kBind, kWatched);
    hal::rest(1ms);
    udc_reconnect();
    HAL_LOG(HAL_LOG_INFO, ">> umount end !!!\n");
}

void withdraw(MassWorker& worker) {
    HAL_LOG(HAL_LOG_INFO, "set udc to 0\n");
    set_udc(kUnbind, kUnwatched);
    hal::rest(2s);
    HAL_LOG(HAL_LOG_INFO, "mass fd clear!!!!\n");
    worker.close();
    if (is_dir_exist(kMassLink) == 0) {
        return;
    }
    if (!hal::run_piped(CommandLine("rm -rf %s", kMassLink))) {
        HAL_LOG(HAL_LOG_ERROR, "hal_mass_deinit error: %s\n", std::strerror(errno));
        return;
    }
    tell_end(hal_mass_prv.mass_cb);
    if (worker.state == FUNCTION_RUN_STATE_UMOUNT) {
        rebind_without_the_disk();
    }
}

void end(MassWorker& worker) {
    if (worker.unmounted_early && mass_deinit_asked && worker.state != FUNCTION_RUN_STATE_STOP) {
        worker.state = FUNCTION_RUN_STATE_UMOUNT; // `masssee` may not have said so yet
    }
    HAL_LOG(HAL_LOG_INFO, "mass thread out, mass_fun_state is %d!\n", worker.state);
    switch (worker.state) {
    case FUNCTION_RUN_STATE_HANGUP:
        hal::rest(500ms);
        break;
    case FUNCTION_RUN_STATE_STOP:
    case FUNCTION_RUN_STATE_UMOUNT:
        withdraw(worker);
        break;
    default:
        break;
    }
    worker.close();
    worker.run.end();
}

void work_on_commands(MassWorker& worker) {
    std::atomic_ref(hal_mass_prv.umount_flag).store(0);
    mass_deinit_asked = false;
    HAL_LOG(HAL_LOG_INFO, "mass thread prepare!!!!\n");
    const Prepared prepared = prepare(worker);
    if (prepared == Prepared::kGivenUp) {
        tell_end(hal_mass_prv.mass_cb);
        worker.run.end();
        return;
    }
    if (prepared == Prepared::kServe) {
        HAL_LOG(HAL_LOG_INFO, "mass thread running!!!!\n");
        while (serve_command(worker)) {
        }
    }
    end(worker);
}

} // namespace

int32_t hal::otg::start_mass_worker() {
    hal_mass_state& state = hal_mass_prv;
    const MassRun run = mass_runs.begin(state.thread_state);
    std::atomic_ref(state.umount_flag).store(0);
    // Its buffer is 32 KiB: it is made here, so that a worker that runs has it.
    std::unique_ptr<MassWorker> worker(new (std::nothrow) MassWorker(run));
    const int error =
        worker ? hal::start_worker<work_on_commands>(state.listen_tid, std::move(worker)) : ENOMEM;
    if (error != 0) {
        run.end();
    }
    return error;
}

void* hal_mass_listen([[maybe_unused]] void* arg) {
    hal_mass_state& state = hal_mass_prv;
    const std::unique_ptr<MassWorker> worker(new (std::nothrow)
                                                 MassWorker(mass_runs.current(state.thread_state)));
    if (worker) {
        work_on_commands(*worker);
    } else {
        mass_runs.end(state.thread_state);
    }
    return nullptr;
}
