// Threads of modules that are not built: an application that fills their contexts may run them.
#include <hal_bsp/disabled.h>

#include "support/listener.h"
#include "support/transfer.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

hal_irsample_context hal_irsample_all_info;
hal_irq_context hal_hisivo_info;
hal_irq_context hal_phy_irq_info;

static_assert(offsetof(hal_irsample_event, count) == 2 &&
              offsetof(hal_irsample_event, samples) == 8 && sizeof(hal_irsample_event) == 16);
static_assert(offsetof(hal_irsample_context, fd) == 8 &&
              offsetof(hal_irsample_context, callback) == 48 &&
              offsetof(hal_irsample_context, count) == 56 && sizeof(hal_irsample_context) == 72);
static_assert(offsetof(hal_irq_context, fd) == 4 && offsetof(hal_irq_context, callback) == 8 &&
              sizeof(hal_irq_context) == 24);

namespace {

constexpr std::chrono::microseconds kIrRest{20000};
constexpr hal::Pace kPace{};

// ---- Infrared ----

using Channels = std::array<pollfd, HAL_IRSAMPLE_CHANNELS>;
using Samples = std::array<uint16_t, HAL_IRSAMPLE_READ_MAX / sizeof(uint16_t)>;

constexpr hal::Caller ir_caller(int line = __builtin_LINE()) {
    return {"hal_ir", line};
}

std::span<pollfd> channels_in_use(hal_irsample_context& context, Channels& channels) {
    const int32_t count =
        std::clamp(std::atomic_ref(context.count).load(), 0, HAL_IRSAMPLE_CHANNELS);
    for (int32_t channel = 0; channel < count; ++channel) {
        const int fd = std::atomic_ref(context.fd[channel]).load();
        channels[static_cast<std::size_t>(channel)] = {fd > 0 ? fd : -1, POLLIN, 0};
    }
    return std::span(channels).first(static_cast<std::size_t>(count));
}

void hear_channel(hal_irsample_context& context, uint8_t channel, int fd, Samples& samples) {
    ir_caller().log(HAL_LOG_INFO, "select channel %d success, then read!", channel);
    const auto length = static_cast<int>(hal::read_some(fd, samples.data(), HAL_IRSAMPLE_READ_MAX));
    if (length < 1) {
        ir_caller().log(HAL_LOG_INFO, "read len is %d", length);
        return;
    }
    ir_caller().log(HAL_LOG_INFO, "read length is %d!", length);
    hal_irsample_event event{channel, static_cast<uint16_t>(length / 2), samples.data()};
    ir_caller().log(HAL_LOG_INFO, "call callback!");
    hal::call_back(context.callback, &event);
}

// ---- Interrupts ----

template <typename OnReadable>
[[noreturn]] void listen_to(hal_irq_context& context, const OnReadable& on_readable) {
    for (;;) {
        const int fd = std::atomic_ref(context.fd).load();
        hal::listen_once(fd, kPace, [&](hal::Wait outcome) {
            if (outcome == hal::Wait::kReady) {
                on_readable(fd);
            }
            return hal::Pass::kAtOnce; // the next wait is a cancellation point
        });
    }
}

} // namespace

void* hal_irsample_listen(void* arg) {
    if (arg == nullptr) {
        return nullptr;
    }
    auto& context = *static_cast<hal_irsample_context*>(arg);
    Samples samples{};
    Channels channels{};
    ir_caller().log(HAL_LOG_INFO, "ir thread running!!!!");
    for (;;) {
        const std::span<pollfd> in_use = channels_in_use(context, channels);
        if (hal::wait_readable(in_use, kPace.wait) == hal::Wait::kReady) {
            for (std::size_t channel = 0; channel < in_use.size(); ++channel) {
                if (in_use[channel].revents != 0) {
                    hear_channel(context, static_cast<uint8_t>(channel), in_use[channel].fd,
                                 samples);
                }
            }
        }
        hal::rest(kIrRest);
    }
}

void* hal_hisivo_listen(void* /*arg*/) {
    hal::Caller("hal_hisivo").log(HAL_LOG_INFO, "hisivo thread running!!!!\n");
    listen_to(hal_hisivo_info, [](int fd) {
        uint32_t value = 0;
        if (hal::read_some(fd, &value, sizeof value) >= 1) {
            hal::call_back(hal_hisivo_info.callback, value);
        }
    });
}

void* hal_phy_irq_listen(void* /*arg*/) {
    hal::Caller("hal_phy_irq").log(HAL_LOG_INFO, "phy_irq thread running!!!!\n");
    listen_to(hal_phy_irq_info, [](int) { hal::call_back(hal_phy_irq_info.callback, 1U); });
}
