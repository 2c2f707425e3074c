// How the clock drivers call the application: a slot that is not filled does nothing.
#pragma once

#include <hal_bsp/clock.h>

#include <span>

namespace hal {

inline void delay_ms(const clock_user_cfg& cfg, uint32_t ms) {
    if (cfg.delay_ms != nullptr) {
        cfg.delay_ms(ms);
    }
}

// The callback's own result, 0 for a failure or an empty slot. Neither array is modified by a
// callback that keeps to its contract.
inline uint8_t bus_write(const clock_user_cfg& cfg, uint32_t dev, uint16_t addr8,
                         std::span<uint8_t> reg, std::span<uint8_t> data) {
    return cfg.i2c_write == nullptr
               ? uint8_t{0}
               : cfg.i2c_write(dev, addr8, reg.data(), static_cast<uint16_t>(reg.size()),
                               data.data(), static_cast<uint16_t>(data.size()));
}

inline uint8_t bus_read(const clock_user_cfg& cfg, uint32_t dev, uint16_t addr8,
                        std::span<uint8_t> reg, std::span<uint8_t> data) {
    return cfg.i2c_read == nullptr
               ? uint8_t{0}
               : cfg.i2c_read(dev, addr8, reg.data(), static_cast<uint16_t>(reg.size()),
                              data.data(), static_cast<uint16_t>(data.size()));
}

} // namespace hal
