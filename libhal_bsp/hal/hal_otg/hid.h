// What the two halves of the HID devices share: their making and their worker.
#pragma once

#include <hal_bsp/hid.h>

#include "support/shared_fd.h"

#include <cstddef>
#include <cstdint>

namespace hal::otg {

// Slots that can have a node.
inline constexpr std::size_t kHidNodes = 4;
inline constexpr int8_t kNotConfigured = -1;

// The descriptors in the record.
extern hal::SharedFds hid_fds;

// Starts the worker, unless it runs: 0, or the error number.
int32_t start_hid_worker();

} // namespace hal::otg
