// Front-panel keys, and the LEDs in them.
#include <hal_bsp/keypad.h>

#include "support/device_call.h"
#include "support/listener.h"
#include "support/log.h"
#include "support/run_flag.h"
#include "support/transfer.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <new>
#include <unistd.h>

hal_keypad_state_v2 gst_hal_keypad_all_info_v2;

static_assert(offsetof(keypad_event, value4) == 4 && offsetof(keypad_event, value8) == 8 &&
              offsetof(keypad_event, value12) == 12 && sizeof(keypad_event) == 16);
static_assert(offsetof(led_ctl_req, value6) == 6 && offsetof(led_ctl_req, value8) == 8 &&
              offsetof(led_ctl_req, value12) == 12 && offsetof(led_ctl_req, value16) == 16 &&
              offsetof(led_ctl_req, value20) == 20 && sizeof(led_ctl_req) == 24);
static_assert(offsetof(hal_keypad_state_v2, fd) == 4 &&
              offsetof(hal_keypad_state_v2, callback) == 8 &&
              offsetof(hal_keypad_state_v2, tid) == 16 && sizeof(hal_keypad_state_v2) == 24);

namespace {

using State = hal_keypad_state_v2;

constexpr const char* kModule = "hal_keypad_v2";
constexpr const char* kNode = "/dev/keypad";

constexpr int32_t kFailed = -1;
constexpr int32_t kNoThread = -35;
constexpr hal::Pace kPace{.rest = std::chrono::microseconds(20000)};

// The LED driver's record.
struct LedRecord {
    uint32_t value0;
    uint32_t zero;
    uint32_t value6;
    uint32_t value8;
    uint32_t value12;
    uint32_t value16;
    uint32_t value20;
};
static_assert(offsetof(LedRecord, value6) == 8 && offsetof(LedRecord, value20) == 24 &&
              sizeof(LedRecord) == 28);

// The size field of the code says 8. A refusal is not logged.
constexpr hal::DeviceRequest kSetLed{"/dev/led", 0x40084C21, "open led error", nullptr};

constinit hal::Runs runs;

// What a listening thread has for itself. Its descriptor is a copy: the record's can be closed, and
// its number be given out again, while the thread waits on it.
struct Listening {
    State& info;
    hal_keypad_callback_v2 callback;
    hal::Fd fd;
    hal::Run<decltype(State::running)> run;
};

Listening listening_of(State& info) {
    const int fd = std::atomic_ref(info.fd).load();
    return {info, std::atomic_ref(info.callback).load(),
            hal::Fd(fd > 0 ? fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1) : -1),
            runs.current(info.running)};
}

hal::Pass hear_key(Listening& listening) {
    keypad_event record{};
    if (!listening.run.is_wanted() ||
        hal::read_some(listening.fd.get(), &record, sizeof record) < 1) {
        return hal::Pass::kAtOnce;
    }
    keypad_event event{};
    event.value0 = record.value0;
    event.value4 = record.value4;
    event.value8 = record.value8;
    event.value12 = record.value12;
    if (listening.run.is_wanted()) {
        hal::call_back(listening.callback, &event);
    }
    return hal::Pass::kRest;
}

void listen_while_wanted(Listening& listening) {
    HAL_LOG(HAL_LOG_INFO, "thread running!!!!");
    while (listening.run.is_wanted()) {
        hal::listen_once(listening.fd.get(), kPace, [&](hal::Wait outcome) {
            return outcome == hal::Wait::kReady ? hear_key(listening) : hal::Pass::kRest;
        });
    }
}

// 0, or the error number.
int start_listening(State& info) {
    std::unique_ptr<Listening> listening(new (std::nothrow) Listening(listening_of(info)));
    if (!listening) {
        return ENOMEM;
    }
    if (!listening->fd) {
        return errno;
    }
    return hal::start_worker<listen_while_wanted>(info.tid, std::move(listening));
}

} // namespace

int32_t hal_keypad_init_v2(hal_keypad_callback_v2 callback) {
    State& info = gst_hal_keypad_all_info_v2;
    const hal::CancelOff no_cancel;
    runs.end(info.running);
    hal::close_shared(info.fd);
    std::atomic_ref(info.callback).store(callback);
    hal::Fd node = hal::open_fd(kNode, O_RDWR);
    if (!node) {
        const int error = errno;
        std::perror("open keypad error");
        errno = error;
        return kFailed;
    }
    std::atomic_ref(info.fd).store(node.release());
    runs.begin(info.running);
    if (const int error = start_listening(info); error != 0) {
        runs.end(info.running);
        hal::close_shared(info.fd);
        errno = error;
        HAL_LOG(HAL_LOG_ERROR, "create thread hal_keypad_listen_v2 failed erron= %d/n", error);
        return kNoThread;
    }
    HAL_LOG(HAL_LOG_INFO, "hal_keypad_init over");
    return 0;
}

void hal_keypad_deinit_v2(void) {
    State& info = gst_hal_keypad_all_info_v2;
    runs.end(info.running);
    if (std::atomic_ref(info.fd).load() < 1) {
        return;
    }
    HAL_LOG(HAL_LOG_INFO, "hal_keypad_deinit close fd");
    hal::close_shared(info.fd);
}

void* hal_keypad_listen_v2(void* arg) {
    if (arg != nullptr) {
        Listening listening = listening_of(*static_cast<State*>(arg));
        listen_while_wanted(listening);
    }
    return nullptr;
}

int32_t hal_keypad_led_ctl_v2(const led_ctl_req* req) {
    if (req == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "hal_keypad_led_ctl_v2 null req");
        return kFailed;
    }
    LedRecord record{req->value0,  0,           req->value6, req->value8, req->value12,
                     req->value16, req->value20};
    return hal::call_device(kModule, kSetLed, record).value_or(kFailed);
}
