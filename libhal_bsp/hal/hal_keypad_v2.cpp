// Front-panel keys, and the LEDs in them.
#include <hal_bsp/keypad.h>

#include "support/device_call.h"
#include "support/listener.h"
#include "support/log.h"

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
constexpr std::chrono::microseconds kRest{20000};

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
constexpr hal::DeviceRequest kSetLed{kModule, "/dev/led", 0x40084C21, "open led error", nullptr};

// Counts the beginnings and ends of listening. A thread looks at `running` only now and then: by
// that flag alone it would not notice an end that is followed by a new beginning.
constinit std::atomic<uint32_t> turn{0};

// What a listening thread has for itself. Its descriptor is a copy: the record's can be closed, and
// its number be given out again, while the thread waits on it.
struct Listening {
    State& info;
    hal_keypad_callback_v2 callback;
    hal::Fd fd;
    uint32_t began;

    [[nodiscard]] bool is_wanted() const {
        return turn == began && std::atomic_ref(info.running).load() != 0;
    }
};

Listening listening_of(State& info) {
    const int fd = std::atomic_ref(info.fd).load();
    return {info, std::atomic_ref(info.callback).load(),
            hal::Fd(fd > 0 ? fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1) : -1), turn};
}

hal::Pass hear_key(Listening& listening) {
    keypad_event record{};
    if (!listening.is_wanted() || read(listening.fd.get(), &record, sizeof record) < 1) {
        return hal::Pass::kAtOnce;
    }
    keypad_event event{};
    event.value0 = record.value0;
    event.value4 = record.value4;
    event.value8 = record.value8;
    event.value12 = record.value12;
    if (listening.is_wanted()) {
        hal::call_back(listening.callback, &event);
    }
    return hal::Pass::kRest;
}

void listen_while_wanted(Listening& listening) {
    HAL_LOG(HAL_LOG_INFO, "thread running!!!!");
    while (listening.is_wanted()) {
        hal::listen_once(listening.fd.get(), kRest, [&](hal::Wait outcome) {
            return outcome == hal::Wait::kReadable ? hear_key(listening) : hal::Pass::kRest;
        });
    }
}

void* run_listening(void* arg) {
    const std::unique_ptr<Listening> listening(static_cast<Listening*>(arg));
    listen_while_wanted(*listening);
    return nullptr;
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
    const int error = hal::start_detached_thread(info.tid, run_listening, listening.get());
    if (error == 0) {
        static_cast<void>(listening.release()); // it is the thread's
    }
    return error;
}

void end_listening(State& info) {
    ++turn;
    std::atomic_ref(info.running).store(0);
}

} // namespace

int32_t hal_keypad_init_v2(hal_keypad_callback_v2 callback) {
    State& info = gst_hal_keypad_all_info_v2;
    const hal::CancelOff no_cancel;
    end_listening(info);
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
    std::atomic_ref(info.running).store(1);
    if (const int error = start_listening(info); error != 0) {
        end_listening(info);
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
    end_listening(info);
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
    return hal::call_device(kSetLed, record).value_or(kFailed);
}
