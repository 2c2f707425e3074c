// T-bar faders.
#include <hal_bsp/tbar.h>

#include "support/device_call.h"
#include "support/fd.h"
#include "support/listener.h"
#include "support/log.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <new>

struct hal_tbar {
    int32_t fd;
    pthread_t tid;
    hal_tbar_callback callback;
};
static_assert(offsetof(hal_tbar, tid) == 8 && offsetof(hal_tbar, callback) == 16 &&
              sizeof(hal_tbar) == 24);

namespace {

constexpr const char* kModule = "hal_tbar";

constexpr int32_t kFailed = -1;
constexpr hal::Pace kPace{.rest = std::chrono::microseconds(20000)};

constexpr unsigned long kReadData = 0x80035400;
constexpr unsigned long kSetLock = 0x40015401; // the size field says 1

hal::Fd open_tbar(uint8_t number) {
    std::array<char, sizeof "/dev/tbar255"> path{};
    std::snprintf(path.data(), path.size(), "/dev/tbar%d", number);
    return hal::open_fd(path.data(), O_RDONLY);
}

int32_t issue(const hal::Caller& caller, const hal_tbar& tbar, unsigned long code, void* argument) {
    const int result = hal::issue_on(caller, tbar.fd, code, argument, "ioctl is null! \n");
    return result < 0 ? kFailed : result;
}

} // namespace

hal_tbar* hal_tbar_init(hal_tbar_callback callback, uint8_t number) {
    if (callback == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "p_fp is null \n");
        return nullptr;
    }
    hal::Fd node = open_tbar(number);
    if (!node) {
        HAL_LOG(HAL_LOG_ERROR, "open tbar error");
        return nullptr;
    }
    std::unique_ptr<hal_tbar> tbar(new (std::nothrow) hal_tbar{node.get(), {}, callback});
    if (!tbar) {
        node.reset();
        HAL_LOG(HAL_LOG_ERROR, "malloc error");
        return nullptr;
    }
    if (hal::start_thread(tbar->tid, hal_tbar_listen, tbar.get()) != 0) {
        node.reset();
        tbar.reset();
        HAL_LOG(HAL_LOG_ERROR, "pthread create error \n");
        return nullptr;
    }
    static_cast<void>(node.release()); // it is the handle's
    return tbar.release();
}

int32_t hal_tbar_deinit(hal_tbar* tbar) {
    if (tbar == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "ptr is null! \n");
        return kFailed;
    }
    HAL_LOG(HAL_LOG_INFO, "hal_tbar_deinit\n");
    if (tbar->fd < 1) {
        HAL_LOG(HAL_LOG_ERROR, "tbar repeat deinit! \n");
        return 0;
    }
    const std::unique_ptr<hal_tbar> owned(tbar);
    hal::stop_thread(owned->tid);
    hal::close_fd(owned->fd);
    return 0;
}

int32_t hal_tbar_read_data(hal_tbar* tbar, uint8_t* data) {
    if (tbar == nullptr || data == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "ptr is null! \n");
        return kFailed;
    }
    return issue(kModule, *tbar, kReadData, data);
}

int32_t hal_tbar_set_lock(hal_tbar* tbar, uint16_t lock) {
    if (tbar == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "ptr is null! \n");
        return kFailed;
    }
    HAL_LOG(HAL_LOG_INFO, "hal_tbar_set_lock\n");
    return issue(kModule, *tbar, kSetLock, &lock);
}

void* hal_tbar_listen(void* arg) {
    if (arg == nullptr) {
        return nullptr;
    }
    HAL_LOG(HAL_LOG_INFO, "hal_tbar_listen\n");
    auto* const tbar = static_cast<hal_tbar*>(arg);
    std::array<uint8_t, HAL_TBAR_DATA_SIZE> data{}; // the last that could be read
    for (;;) {
        hal::listen_once(tbar->fd, kPace, [&](hal::Wait outcome) {
            if (outcome == hal::Wait::kReady) {
                hal_tbar_read_data(tbar, data.data());
                hal::call_back(tbar->callback, data.data());
                hal::end_if_retired(); // the callback may have freed the handle
            }
            return hal::Pass::kRest;
        });
    }
}
