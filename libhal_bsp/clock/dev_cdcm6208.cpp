// CDCM6208 clock synthesizers.
#include <hal_bsp/clock.h>

#include "clock/callbacks.h"
#include "clock/cdcm6208_divider.h"
#include "support/fields.h"
#include "support/log.h"

#include <array>
#include <cstddef>

clock_user_cfg cdcm6208_user_cfg;

// Pointers have 8 bytes here and on the board alike.
static_assert(offsetof(clock_user_cfg, delay_ms) == 8 && offsetof(clock_user_cfg, gpio_set) == 16 &&
              offsetof(clock_user_cfg, i2c_write) == 24 &&
              offsetof(clock_user_cfg, i2c_read) == 32 && sizeof(clock_user_cfg) == 40);
static_assert(offsetof(cdcm6208_dev, out_freq) == 8 && sizeof(cdcm6208_dev) == 72);

namespace {

constexpr const char* kModule = "dev_cdcm6208";

constexpr uint16_t kResetRegister = 3;
constexpr uint16_t kResetBit = 0x0040; // clear: in reset
constexpr uint16_t kStatusRegister = 21;
constexpr uint16_t kLocked = 0x0004;
constexpr uint16_t kControlFinal = 0x0200; // clear while the divider is being written

using Image = std::array<uint16_t, HAL_CDCM6208_IMAGE>;
using Word = std::array<uint8_t, 2>; // most significant byte first

Word to_word(uint16_t value) {
    Word word{};
    hal::store_be(word, value);
    return word;
}

void write_image(uint32_t dev, const uint16_t* regs) {
    for (uint16_t reg = 0; reg < HAL_CDCM6208_IMAGE; ++reg) {
        cdcm_6208_writebytedata(dev, reg, regs[reg]);
    }
}

bool image_verified(uint32_t dev, const uint16_t* regs) {
    Image read_back{};
    cdcm6208_read_register(dev, read_back.data());
    for (std::size_t reg = 0; reg < read_back.size(); ++reg) {
        if (read_back[reg] != regs[reg]) {
            if (cdcm6208_user_cfg.print != nullptr) {
                cdcm6208_user_cfg.print("ERROR: reg=0x%04x, set=0x%04x, get=0x%04x\n",
                                        static_cast<unsigned>(reg), regs[reg], read_back[reg]);
            }
            return false;
        }
    }
    return true;
}

bool pll_locked(uint32_t dev) {
    uint16_t status = 0;
    cdcm_6208_readbytedata(dev, kStatusRegister, &status);
    return (status & kLocked) != 0;
}

const char* lock_word(bool locked) {
    return locked ? "lock" : "unlock";
}

std::optional<hal::cdcm6208::Divider> cdcm6208_calc_frac_div(double frequency) {
    const auto divider = hal::cdcm6208::divider_for(frequency);
    if (!divider) {
        HAL_LOG(HAL_LOG_ERROR, "CDCM6208 set channal freq fail!\n");
        return std::nullopt;
    }
    HAL_LOG(HAL_LOG_INFO, "FrcaDIV = %.3f\t", 200000000 / frequency);
    return divider;
}

// Outputs 4 to 7 have a fractional divider, in three registers each: control, high, low.
void cdcm6208_set_out_div(uint32_t dev, uint32_t channel, const hal::cdcm6208::Divider& divider) {
    if (channel < 4 || channel > 7) {
        return;
    }
    const auto control = static_cast<uint16_t>(9 + 3 * (channel - 4));
    const auto high = static_cast<uint16_t>(control + 1);
    const auto low = static_cast<uint16_t>(control + 2);
    const auto values = hal::cdcm6208::registers_of(divider);
    const auto opened = static_cast<uint16_t>(values.control & ~kControlFinal);

    cdcm_6208_writebytedata(dev, control, opened);
    if (channel == 4) {
        cdcm_6208_writebytedata(dev, high, values.high);
        cdcm_6208_writebytedata(dev, low, values.low);
    } else {
        cdcm_6208_writebytedata(dev, low, values.low);
        cdcm_6208_writebytedata(dev, high, values.high);
    }
    cdcm_6208_writebytedata(dev, control, values.control);
}

} // namespace

int32_t cdcm6208_gpio_init(uint32_t dev) {
    const clock_user_cfg& cfg = cdcm6208_user_cfg;
    if (dev >= HAL_CDCM6208_DEVICES || cfg.gpio_set == nullptr) {
        return HAL_CLOCK_INVALID;
    }
    cfg.gpio_set(dev, 0);
    hal::delay_ms(cfg, 50);
    return cfg.gpio_set(dev, 1);
}

int32_t cdcm_6208_writebytedata(uint32_t dev, uint16_t reg, uint16_t value) {
    if (dev >= HAL_CDCM6208_DEVICES) {
        return 0;
    }
    Word number = to_word(reg);
    Word data = to_word(value);
    return hal::bus_write(cdcm6208_user_cfg, dev, cdcm6208_devlist[dev].i2c_addr, number, data);
}

int32_t cdcm_6208_readbytedata(uint32_t dev, uint16_t reg, uint16_t* value) {
    if (dev >= HAL_CDCM6208_DEVICES || value == nullptr) {
        return 0;
    }
    Word number = to_word(reg);
    Word data{};
    if (hal::bus_read(cdcm6208_user_cfg, dev, cdcm6208_devlist[dev].i2c_addr, number, data) == 0) {
        return 0;
    }
    *value = hal::load_be<uint16_t>(data);
    return 1;
}

void cdcm6208_read_register(uint32_t dev, uint16_t* regs) {
    if (regs == nullptr) {
        return;
    }
    for (uint16_t reg = 0; reg < HAL_CDCM6208_IMAGE; ++reg) {
        cdcm_6208_readbytedata(dev, reg, &regs[reg]);
    }
}

void cdcm6208softreset(uint32_t dev) {
    uint16_t value = 0; // stays so where it cannot be read: the steps go on all the same
    cdcm_6208_readbytedata(dev, kResetRegister, &value);
    cdcm_6208_writebytedata(dev, kResetRegister, static_cast<uint16_t>(value & ~kResetBit));
    hal::delay_ms(cdcm6208_user_cfg, 20);
    cdcm_6208_writebytedata(dev, kResetRegister, value);
}

int32_t cdcm6208_out_config(uint32_t dev, const uint16_t* regs) {
    if (dev >= HAL_CDCM6208_DEVICES || regs == nullptr) {
        return 0;
    }
    cdcm6208_gpio_init(dev);
    write_image(dev, regs);
    if (!image_verified(dev, regs)) {
        return 0;
    }
    cdcm6208softreset(dev);
    const bool locked = pll_locked(dev);
    if (locked) {
        write_image(dev, regs);
        cdcm6208softreset(dev);
    }
    if (cdcm6208_user_cfg.print != nullptr) {
        cdcm6208_user_cfg.print("Debug: CDCM6208 pll %s\n", lock_word(locked));
    }
    return 1;
}

int32_t cdcm_6208_out_freq_config(uint32_t dev, uint32_t channel, const uint16_t* regs,
                                  double frequency) {
    if (dev >= HAL_CDCM6208_DEVICES || regs == nullptr) {
        return HAL_CLOCK_INVALID;
    }
    const auto divider = cdcm6208_calc_frac_div(frequency);
    if (!divider) {
        return HAL_CLOCK_INVALID;
    }
    cdcm6208_set_out_div(dev, channel, *divider);
    HAL_LOG(HAL_LOG_INFO, "CDCM6208 pll %s\n", lock_word(pll_locked(dev)));
    return 0;
}
