#include "support/connection.h"

#include <hal_bsp/otg.h>

#include "support/listener.h"
#include "support/uevent.h"

#include <chrono>
#include <cstring>
#include <span>
#include <string_view>

namespace hal {

namespace {

using namespace std::chrono_literals;

constexpr std::string_view kDevice = "/devices/virtual/android_usb/android0";
constexpr int kNoState = -1;
constexpr UeventPlan kUevents{.groups = 0xFFFFFFFF, .receive_buffer = 65536};
constexpr Pace kPace{.wait = 100ms, .rest = 2ms};

// The texts up to the empty one that ends a message, each with its NUL.
std::span<const char> texts_of(const char* message) {
    const char* end = message;
    while (*end != '\0') {
        end += std::strlen(end) + 1;
    }
    return {message, end};
}

} // namespace

int uevent_parse(const char* message) {
    const std::span<const char> texts = texts_of(message);
    if (uevent_value(texts, "DEVPATH") != kDevice ||
        !uevent_value(texts, "ACTION").starts_with("change")) {
        return kNoState;
    }
    const std::string_view state = uevent_value(texts, "USB_STATE");
    if (state.starts_with("CONFIGURED")) {
        return HAL_OTG_CONFIGURED;
    }
    if (state.starts_with("CONNECTED")) {
        return HAL_OTG_CONNECTED;
    }
    return state.starts_with("DISCONNECTED") ? HAL_OTG_DISCONNECTED : kNoState;
}

Fd uevent_open() {
    return open_uevents(kUevents);
}

void ConnectionListener::listen_while_wanted(const Caller& caller) {
    caller.log(HAL_LOG_INFO, "otg thread running!!!!\n");
    Fd uevents = uevent_open();
    caller.log(HAL_LOG_INFO, "uevent socket_fd = %d\n", uevents.get());
    begin();
    while (is_wanted()) {
        listen_once(uevents.get(), kPace, [&](Wait outcome) {
            if (outcome != Wait::kReady) {
                return Pass::kAtOnce;
            }
            drain(caller, uevents);
            return Pass::kRest;
        });
    }
    uevents.reset();
    end();
    caller.log(HAL_LOG_INFO, "otg thread out!!!\n");
}

// Hears all that has come meanwhile.
void ConnectionListener::drain(const Caller& caller, const Fd& uevents) {
    const std::span<char> room = std::span(buffer_).first<kMessageSize>();
    for (auto message = receive_uevent(uevents.get(), room); !message.empty();
         message = receive_uevent(uevents.get(), room)) {
        if (message.size() == kMessageSize) {
            continue; // it was longer, perhaps
        }
        buffer_[message.size()] = '\0';
        buffer_[message.size() + 1] = '\0';
        if (const int state = uevent_parse(buffer_.data()); state >= 0) {
            become(caller, state);
        }
    }
}

void ConnectionListener::become(const Caller& caller, int state) {
    caller.log(HAL_LOG_INFO, "connect_cur = %d\n", state);
    publish(state);
    if (state == HAL_OTG_CONFIGURED) {
        if (before_ == HAL_OTG_CONFIGURED) {
            caller.log(HAL_LOG_INFO, "otg become configured second!!\n");
        } else {
            become_configured();
        }
    } else if (state == HAL_OTG_DISCONNECTED) {
        become_disconnected();
    } else {
        caller.log(HAL_LOG_INFO, "otg connected!\n");
    }
    const int before = before_;
    before_ = state;
    tell(before, state);
}

} // namespace hal
