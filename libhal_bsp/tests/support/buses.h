// The I2C buses of the board, which stay open for the life of a process once they were used.
#pragma once

#include <hal_bsp/i2c.h>

#include <cstdint>
#include <initializer_list>

namespace hal_test {

// Opens those with chips, before a test counts its descriptors. A write opens its bus whatever it
// lacks.
inline void open_buses() {
    for (const std::uint8_t bus : std::initializer_list<std::uint8_t>{2, 3, 4, 5, 6}) {
        i2c_writenumbytes(bus, 0, nullptr, 0, nullptr, 0);
    }
}

} // namespace hal_test
