// What the gadget driver's uevents say.
#include <hal_bsp/otg.h>

#include "hal/hal_otg/gadget.h"
#include "support/uevent.h"

#include <cstring>

namespace {

constexpr std::string_view kDevice = "/devices/virtual/android_usb/android0";
constexpr int kNoState = -1;

// The texts up to the empty one that ends a message, each with its NUL.
std::span<const char> texts_of(const char* message) {
    const char* end = message;
    while (*end != '\0') {
        end += std::strlen(end) + 1;
    }
    return {message, end};
}

} // namespace

int hal::otg::uevent_parse(const char* message) {
    const std::span<const char> texts = texts_of(message);
    if (hal::uevent_value(texts, "DEVPATH") != kDevice ||
        !hal::uevent_value(texts, "ACTION").starts_with("change")) {
        return kNoState;
    }
    const std::string_view state = hal::uevent_value(texts, "USB_STATE");
    if (state.starts_with("CONFIGURED")) {
        return HAL_OTG_CONFIGURED;
    }
    if (state.starts_with("CONNECTED")) {
        return HAL_OTG_CONNECTED;
    }
    return state.starts_with("DISCONNECTED") ? HAL_OTG_DISCONNECTED : kNoState;
}
