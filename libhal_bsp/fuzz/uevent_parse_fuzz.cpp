// Uevents, as the listener hands them to its parser: two NULs behind what was received. A state may
// only come of a message that has the gadget's path and a change in it.
#include "support/connection.h"

#include <hal_bsp/otg.h>

#include <algorithm>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kLongest = 2047;
    std::string message(data, data + std::min(size, kLongest));
    message.append(2, '\0');
    const std::string exact(message); // without room behind it that an overrun would not show in
    const int state = hal::uevent_parse(exact.data());
    const bool told = message.find(std::string("DEVPATH=/devices/virtual/android_usb/android0") +
                                   '\0') != std::string::npos &&
                      message.find("ACTION=change") != std::string::npos &&
                      message.find("USB_STATE=") != std::string::npos;
    if (state < HAL_OTG_UNKNOWN || state > HAL_OTG_DISCONNECTED || (state >= 0 && !told)) {
        std::abort();
    }
    return 0;
}
