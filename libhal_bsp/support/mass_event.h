// Events of a disk, told to the application.
#pragma once

#include <hal_bsp/mass.h>

#include "support/listener.h"

#include <cstdint>
#include <span>

namespace hal {

// Calls the callback, where there is one; the bytes last as long as the call.
inline void tell_mass_event(hal_mass_callback& callback, uint32_t kind, std::span<uint8_t> bytes) {
    hal_mass_data event{};
    event.kind = kind;
    event.len = static_cast<uint32_t>(bytes.size());
    event.data = bytes.data();
    call_back(callback, &event);
}

} // namespace hal
