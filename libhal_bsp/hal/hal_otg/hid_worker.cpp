// Reports of the HID devices, to and from the host.
#include "hal/hal_otg/gadget.h"
#include "hal/hal_otg/hid.h"
#include "support/listener.h"
#include "support/log.h"
#include "support/run_flag.h"
#include "support/thread.h"
#include "support/transfer.h"
#include "support/wait.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <new>

constinit hal::SharedFds hal::otg::hid_fds;

namespace {

using namespace hal::otg;
using namespace std::chrono_literals;

constexpr int32_t kNotOpen = -8;
constexpr int kOpenRetries = 5;
constexpr std::size_t kReportSize = 100;

using HidRun = hal::Run<decltype(hal_hid_state::thread_state)>;

constinit hal::Runs hid_runs;

// What a worker has for itself. Its descriptors are its own, whatever the record says meanwhile.
struct HidWorker {
    explicit HidWorker(const HidRun& its_run) : run(its_run) {}
    ~HidWorker() { // after a cancellation; else there is nothing left to do
        run.end();
        close();
    }
    HidWorker(const HidWorker&) = delete;
    HidWorker& operator=(const HidWorker&) = delete;

    void close() {
        for (std::size_t slot = 0; slot < nodes.size(); ++slot) {
            hid_fds.close(hal_hid_prv.hid_fd[slot], std::move(nodes[slot]));
        }
    }

    HidRun run;
    std::array<hal::Fd, kHidNodes> nodes;
};

// --- waiting ---

enum class Next { kWait, kServe, kEnd };

// Whether the host has the device configured, and still a second later.
Next look_at_hidsee() {
    switch (get_hidsee()) {
    case FUNCTION_RUN_STATE_HANGUP:
        return Next::kWait;
    case FUNCTION_RUN_STATE_NORMAL:
        hal::rest(1s);
        if (get_hidsee() != FUNCTION_RUN_STATE_NORMAL) {
            return Next::kWait;
        }
        HAL_LOG(HAL_LOG_INFO, "hid thread hidsee ready!!!!\n");
        return Next::kServe;
    case FUNCTION_RUN_STATE_STOP:
        HAL_LOG(HAL_LOG_WARN, "hid thread break!\n");
        return Next::kEnd;
    default:
        HAL_LOG(HAL_LOG_WARN, "unknow hid_fun_state\n");
        return Next::kWait;
    }
}

bool open_nodes(HidWorker& worker) {
    for (std::size_t slot = 0; slot < worker.nodes.size(); ++slot) {
        const int minor = std::atomic_ref(hal_hid_prv.hidg_minor[slot]).load();
        if (minor < 0) {
            HAL_LOG(HAL_LOG_INFO, "hid %d is not configed! no need to open\n",
                    static_cast<int>(slot));
            continue;
        }
        const Path path("/dev/hidg%d", minor);
        worker.nodes[slot] = hal::open_fd(path.text(), O_RDWR);
        if (!worker.nodes[slot]) {
            HAL_LOG(HAL_LOG_ERROR, "open %s error\n", path.text());
            worker.close(); // those that could be opened are opened again
            return false;
        }
        hid_fds.show(hal_hid_prv.hid_fd[slot], worker.nodes[slot]);
    }
    return true;
}

Next prepare(HidWorker& worker) {
    for (int retries = kOpenRetries;; --retries) {
        if (const Next next = look_at_hidsee(); next != Next::kServe) {
            return next;
        }
        if (open_nodes(worker)) {
            return Next::kServe;
        }
        hal::rest(200ms);
        if (retries == 0) {
            return Next::kEnd;
        }
    }
}

// --- serving ---

bool is_normal() {
    if (get_hidsee() == FUNCTION_RUN_STATE_NORMAL) {
        return true;
    }
    HAL_LOG(HAL_LOG_ERROR, "hid_fun_state is not FUNCTION_RUN_STATE_NORMAL\n");
    return false;
}

void hand_over_report(std::size_t slot, const hal::Fd& node) {
    std::array<uint8_t, kReportSize> bytes{};
    hal_hid_data report{};
    report.dev = static_cast<uint32_t>(slot);
    report.len = static_cast<int32_t>(hal::read_some(node.get(), bytes.data(), bytes.size()));
    report.data = bytes.data();
    hal::call_back(hal_hid_prv.hid_cb, &report);
}

void serve_once(const HidWorker& worker) {
    std::array<pollfd, kHidNodes> entries{};
    for (std::size_t slot = 0; slot < entries.size(); ++slot) {
        entries[slot] = {worker.nodes[slot].get(), POLLIN, 0};
    }
    switch (hal::wait_readable(entries, 20ms)) {
    case hal::Wait::kFailed:
        HAL_LOG(HAL_LOG_ERROR, "select error\n");
        break;
    case hal::Wait::kTimedOut:
        break;
    case hal::Wait::kReady:
        for (std::size_t slot = 0; slot < entries.size(); ++slot) {
            if (entries[slot].revents != 0) {
                hand_over_report(slot, worker.nodes[slot]);
            }
        }
    }
}

void serve(HidWorker& worker) {
    HAL_LOG(HAL_LOG_INFO, "hid thread running!!!!\n");
    while (worker.run.is_wanted() && is_normal()) {
        serve_once(worker);
    }
    HAL_LOG(HAL_LOG_INFO, "hid thread clear!!!!\n");
    worker.close();
}

void work_on_reports(HidWorker& worker) {
    HAL_LOG(HAL_LOG_INFO, "hid thread prepare!!!!\n");
    while (worker.run.is_wanted()) {
        hal::rest(2ms);
        const Next next = prepare(worker);
        if (next == Next::kEnd) {
            break;
        }
        if (next == Next::kServe) {
            serve(worker);
        }
    }
    worker.run.end();
    HAL_LOG(HAL_LOG_INFO, "hid thread out!!!!~~~~~~~~~~~~~~~~~~~\n");
    worker.close();
}

// What the write returned, or kNotOpen. A length that no report can have is refused as the system
// refuses one.
ssize_t write_report(const hal_hid_data& report) {
    int none = -1;
    const hal::SharedFds::Use node(
        hid_fds, report.dev < HAL_HID_SLOTS ? hal_hid_prv.hid_fd[report.dev] : none);
    if (!node) {
        return kNotOpen;
    }
    if (report.len < 0) {
        errno = EINVAL;
        return -1;
    }
    return hal::write_some(node.get(), report.data, static_cast<std::size_t>(report.len));
}

} // namespace

int32_t hal::otg::start_hid_worker() {
    hal_hid_state& state = hal_hid_prv;
    if (std::atomic_ref(state.thread_state).load() != 0) {
        return kDone;
    }
    const HidRun run = hid_runs.begin(state.thread_state);
    std::unique_ptr<HidWorker> worker(new (std::nothrow) HidWorker(run));
    const int error =
        worker ? hal::start_worker<work_on_reports>(state.listen_tid, std::move(worker)) : ENOMEM;
    if (error != 0) {
        run.end();
    }
    return error;
}

int32_t hal_hid_write(const hal_hid_data* report) {
    const ssize_t result = report != nullptr ? write_report(*report) : kNotOpen;
    if (result == kNotOpen) {
        HAL_LOG(HAL_LOG_ERROR, "hid fd is error %d\n",
                report != nullptr ? static_cast<int>(report->dev) : -1);
    } else if (result < 0) {
        const int error = errno;
        HAL_LOG(HAL_LOG_ERROR, "write error-------------------------\n");
        hal::rest(2s);
        errno = error;
    }
    return static_cast<int32_t>(result);
}

void hal_hid_deinit(void) {
    hal_hid_state& state = hal_hid_prv;
    if (std::atomic_ref(state.thread_state).load() != 1) {
        HAL_LOG(HAL_LOG_WARN, "hid is not running, return\n");
        return;
    }
    HAL_LOG(HAL_LOG_INFO, "hid_thread_state change to 0\n");
    hid_runs.end(state.thread_state);
    HAL_LOG(HAL_LOG_INFO, "wait for hid stop\n");
    hal::rest(100ms);
}

void* hal_hid_listen([[maybe_unused]] void* arg) {
    HidWorker worker(hid_runs.current(hal_hid_prv.thread_state));
    work_on_reports(worker);
    return nullptr;
}
