// IDT6965 clock generators.
#include <hal_bsp/clock.h>

#include "clock/callbacks.h"
#include "clock/idt6965_registers.h"

#include <atomic>
#include <cstddef>
#include <span>

clock_user_cfg idt6965_user_cfg;

static_assert(offsetof(idt6965_dev, ref_sel) == 4 && offsetof(idt6965_dev, out_freq) == 8 &&
              offsetof(idt6965_dev, unused) == 40 && sizeof(idt6965_dev) == 48);

namespace {

using namespace hal::idt6965;

constexpr uint32_t kPorts = 4;
constexpr uint32_t kOn = 1;

constexpr uint8_t kPllBlock = 0x10;
constexpr uint8_t kPllControl = 0x1C;
constexpr uint8_t kEnables = 0x68;
constexpr uint8_t kSwitches = 0x69;

// All devices share one setting; the application keeps their calls apart.
constinit std::atomic<uint32_t> vco_hz{1250000000};

bool is_device(uint32_t dev) {
    return dev < HAL_IDT6965_ENTRIES;
}

bool is_output(uint32_t port) {
    return port >= 1 && port <= kPorts;
}

// Registers of one kind for outputs 1 to 4, `stride` apart.
uint8_t register_of(uint32_t port, uint32_t first, uint32_t stride) {
    return static_cast<uint8_t>(first + stride * (port - 1));
}

uint8_t divider_register(uint32_t port) {
    return register_of(port, 0x22, 16);
}

uint8_t idt6965_reg_write(uint32_t dev, uint8_t reg, std::span<uint8_t> data) {
    return hal::bus_write(idt6965_user_cfg, dev, idt6965_devlist[dev].i2c_addr, {&reg, 1}, data);
}

uint8_t idt6965_reg_read(uint32_t dev, uint8_t reg, std::span<uint8_t> data) {
    return hal::bus_read(idt6965_user_cfg, dev, idt6965_devlist[dev].i2c_addr, {&reg, 1}, data);
}

void write_byte(uint32_t dev, uint8_t reg, uint8_t value) {
    idt6965_reg_write(dev, reg, {&value, 1});
}

// 0 where it cannot be read.
uint8_t read_byte(uint32_t dev, uint8_t reg) {
    uint8_t value = 0;
    return idt6965_reg_read(dev, reg, {&value, 1}) != 0 ? value : uint8_t{0};
}

template <typename Block>
bool reads_back(uint32_t dev, uint8_t reg, const Block& written) {
    Block block{};
    return idt6965_reg_read(dev, reg, block) != 0 && block == written;
}

bool idt6965_pll_config(uint32_t dev, uint32_t vco_sel) {
    auto setting = pll_setting(idt6965_devlist[dev].ref_sel, vco_sel);
    if (!setting) {
        return false;
    }
    write_byte(dev, kPllControl, 0x05);
    idt6965_reg_write(dev, kPllBlock, setting->block);
    vco_hz.store(setting->vco_hz);
    write_byte(dev, kSwitches, 0xFC);
    write_byte(dev, kPllControl, 0x1F);
    write_byte(dev, kPllControl, 0x9F);
    return reads_back(dev, kPllBlock, setting->block);
}

void idt6965_out_div_ctrl(uint32_t dev, uint32_t port) {
    write_byte(dev, register_of(port, 0x21, 16), 0x81);
}

uint8_t with_bit(uint8_t value, uint8_t bit, bool set) {
    return static_cast<uint8_t>(set ? value | bit : value & ~bit);
}

} // namespace

int32_t idt6965_out_freq_config(uint32_t dev, uint32_t port, uint32_t freq_hz) {
    const auto divider = divider_for(vco_hz.load(), freq_hz);
    if (!divider || !is_device(dev) || !is_output(port)) {
        return 0;
    }
    DividerBlock block = to_block(*divider);
    idt6965_reg_write(dev, divider_register(port), block);
    return 1;
}

int32_t idt6965_set_out_mode(uint32_t dev, uint32_t port, uint32_t mode) {
    if (!is_device(dev) || !is_output(port)) {
        return 0;
    }
    write_byte(dev, register_of(port, 0x60, 2), byte_of(mode << 5 | 0x1B));
    return 1;
}

int32_t idt6965_port_ctrl(uint32_t dev, uint32_t port, uint32_t on) {
    if (!is_device(dev) || port > kPorts) {
        return 0;
    }
    const bool set = on == kOn;
    const auto bit = static_cast<uint8_t>(0x80 >> port);
    const uint8_t enables = read_byte(dev, kEnables);
    const uint8_t switches = read_byte(dev, kSwitches);
    write_byte(dev, kEnables, with_bit(enables, bit, set));
    write_byte(dev, kSwitches, with_bit(switches, bit, set));
    read_byte(dev, kEnables);
    read_byte(dev, kSwitches);
    if (port == 0) {
        write_byte(dev, kSwitches, with_bit(read_byte(dev, kSwitches), 0x80, set));
    } else {
        write_byte(dev, register_of(port, 0x61, 2), set ? 1 : 0);
    }
    return 1;
}

int32_t idt6965_change_out_freq(uint32_t dev, uint32_t port, uint8_t dir) {
    if (!is_device(dev) || !is_output(port)) {
        return 0;
    }
    DividerBlock block{};
    if (idt6965_reg_read(dev, divider_register(port), block) == 0) {
        block = {}; // what cannot be read counts 0, and the steps go on
    }
    block = to_block(step(from_block(block), dir));
    DividerBlock sent = block;
    idt6965_reg_write(dev, divider_register(port), sent);
    return reads_back(dev, divider_register(port), block) ? 1 : 0;
}

int32_t idt6965_init(uint32_t dev) {
    if (!is_device(dev)) {
        return 0;
    }
    const clock_user_cfg& cfg = idt6965_user_cfg;
    if (cfg.gpio_set != nullptr) {
        cfg.gpio_set(dev, 1);
    }
    hal::delay_ms(cfg, 10);
    for (uint32_t port = 1; port <= kPorts; ++port) {
        idt6965_port_ctrl(dev, port, 0);
    }
    if (!idt6965_pll_config(dev, 0)) {
        return 0;
    }
    for (uint32_t port = 1; port <= kPorts; ++port) {
        idt6965_out_div_ctrl(dev, port);
    }
    for (uint32_t port = 1; port <= kPorts; ++port) {
        idt6965_set_out_mode(dev, port, 3);
    }
    for (uint32_t port = 1; port <= kPorts; ++port) {
        const uint64_t frequency = idt6965_devlist[dev].out_freq[port - 1];
        idt6965_out_freq_config(dev, port, static_cast<uint32_t>(frequency));
    }
    for (uint32_t port = 1; port <= kPorts; ++port) {
        idt6965_port_ctrl(dev, port, kOn);
    }
    return 1;
}
