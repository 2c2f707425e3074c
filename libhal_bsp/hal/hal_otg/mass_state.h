// What the calls of the application and the disk's worker share: the record, and what goes with it.
#pragma once

#include <hal_bsp/mass.h>

#include "support/shared_fd.h"

#include <atomic>
#include <cstdint>

namespace hal::otg {

inline constexpr const char* kMassLink = "/sys/kernel/config/usb_gadget/g1/configs/c.1/mtp.mass0";
inline constexpr uint32_t kCbwSize = 31;

// The descriptor in the record.
extern hal::SharedFds mass_fds;

// hal_mass_deinit was called since the worker began: whatever `masssee` says, the disk is to go.
extern std::atomic<bool> mass_deinit_asked;

// Tells the application that the disk is gone.
void tell_end(hal_mass_callback& callback);

} // namespace hal::otg
