#pragma once
// SMBus operations over an adapter that only knows messages, as the kernel emulates them.

#include "core/i2c_bus.h"

#include <linux/i2c.h>

namespace vb {

struct SmbusCall {
    unsigned address;
    bool ten_bit;
    bool pec; // append and check a checksum
    bool reads;
    std::uint8_t command;
    std::uint32_t size; // I2C_SMBUS_QUICK...
};

// Returns 0 or an errno; `data` is what is written, and takes what is read.
int smbus_transfer(I2cBus& bus, const SmbusCall& call, i2c_smbus_data& data);

} // namespace vb
