#pragma once
// An I2C adapter with its character device, as the kernel's i2c-dev has it.
//
// Settings: "bus" (its number), "pattern" ("first": /dev/i2c-N, "second": /dev/i2c/N, "none": no
// node; "first" if not said), "name" (what /sys/class/i2c-dev/i2c-N/name says).
//
// - A transfer has 1 to 42 messages of at most 8192 bytes; anything else is EINVAL. An address
//   that nobody answers is ENXIO. A buffer that is not the caller's is EFAULT.
// - Ten-bit addresses and PEC can be chosen as everywhere; no chip of this board answers to the
//   former. Flags that change the protocol itself (no start, ignored acknowledges...) are
//   EOPNOTSUPP: this adapter does not offer them.
// - Time-out and retries are kept per adapter and shown by i2c.show; no transfer takes time. To
//   let one fail, take its time or never end, put a fault on its node.

#include "core/board.h"
#include "core/i2c_bus.h"
#include "core/settings.h"

namespace vb {

// SettingsError where a chip hangs on a bus that has no adapter. For when all models are made.
void check_i2c_buses(Board& board);

// How a chip gets to its bus: settings "bus" and "address" (7 bits).
void attach_to_i2c(Board& board, Settings& settings, I2cDevice& device);

} // namespace vb
