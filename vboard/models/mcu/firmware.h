#pragma once
// What the MCU's firmware says of itself to a USB host: the data of its descriptors.

#include "models/mcu/packet.h"

namespace vb::mcu {

// The value of the packet of function info. These are the firmware's own.
struct FunctionInfo {
    std::uint16_t vendor = 0x2323;
    std::uint16_t product = 0x5757;
    std::uint8_t keyboard = 7; // the IDs of the reports
    std::uint8_t relative = 8;
    std::uint8_t absolute = 9;
    std::uint8_t touch = 10;
};
static_assert(sizeof(FunctionInfo) == 8);

struct HidPersonality {
    const char* name;
    std::uint8_t subclass;
    std::uint8_t protocol;
    std::uint16_t report_length;
    Bytes report_descriptor;
};

HidPersonality keyboard_and_absolute_mouse(const FunctionInfo& info);
HidPersonality relative_mouse(const FunctionInfo& info);
HidPersonality touch_screen(const FunctionInfo& info);

} // namespace vb::mcu
