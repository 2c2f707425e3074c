// A chip of plain registers behind the callbacks of a clock driver, which writes down what is
// asked of it.
#pragma once

#include <hal_bsp/clock.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace hal_test {

class FakeClockChip {
  public:
    static FakeClockChip& instance() {
        static FakeClockChip chip;
        return chip;
    }

    void reset() { *this = FakeClockChip(); }

    static clock_user_cfg callbacks() { return {print, delay_ms, gpio_set, i2c_write, i2c_read}; }

    // What has happened since the last call: "gpio DEV=LEVEL", "delay MS", "DEV/ADDR REG=DATA" and
    // "DEV/ADDR REG?" for writes and reads, numbers of transfers in hexadecimal.
    std::vector<std::string> take() { return std::exchange(events_, {}); }
    std::vector<std::string> take_prints() { return std::exchange(prints_, {}); }

    // Registers have as many bytes as their numbers: `size`.
    void set(uint32_t reg, std::span<const uint8_t> bytes, std::size_t size = 1) {
        put(reg, size, bytes);
    }
    void make_unreadable(uint32_t reg) { unreadable_.insert(reg); }
    // The register reads so whatever is written to it.
    void stick(uint32_t reg, std::vector<uint8_t> bytes) { stuck_[reg] = std::move(bytes); }
    void fail_writes() { writes_fail_ = true; }

  private:
    static int print(const char* fmt, ...) {
        std::array<char, 256> text{};
        va_list values;
        va_start(values, fmt);
        std::vsnprintf(text.data(), text.size(), fmt, values);
        va_end(values);
        instance().prints_.emplace_back(text.data());
        return 0;
    }
    static void delay_ms(uint32_t ms) {
        instance().events_.push_back("delay " + std::to_string(ms));
    }
    static int gpio_set(uint32_t dev, uint32_t level) {
        instance().events_.push_back("gpio " + std::to_string(dev) + "=" + std::to_string(level));
        return level == 1 ? 42 : 7;
    }
    static uint8_t i2c_write(uint32_t dev, uint16_t addr8, uint8_t* reg, uint16_t reg_len,
                             uint8_t* data, uint16_t data_len) {
        auto& chip = instance();
        chip.note(dev, addr8, {reg, reg_len}, "=" + hex({data, data_len}));
        if (chip.writes_fail_) {
            return 0;
        }
        chip.put(number({reg, reg_len}), reg_len, {data, data_len});
        return 9; // any non-zero value is success
    }
    static uint8_t i2c_read(uint32_t dev, uint16_t addr8, uint8_t* reg, uint16_t reg_len,
                            uint8_t* data, uint16_t data_len) {
        auto& chip = instance();
        chip.note(dev, addr8, {reg, reg_len}, "?");
        const uint32_t wanted = number({reg, reg_len});
        if (chip.unreadable_.contains(wanted)) {
            return 0;
        }
        const auto stuck = chip.stuck_.find(wanted);
        const auto* const from = stuck != chip.stuck_.end()
                                     ? stuck->second.data()
                                     : chip.registers_.data() + wanted * reg_len;
        std::copy_n(from, data_len, data);
        return 9;
    }

    static std::string hex(std::span<const uint8_t> bytes) {
        std::string text;
        for (const uint8_t byte : bytes) {
            constexpr const char* kDigits = "0123456789ABCDEF";
            text += {kDigits[byte >> 4], kDigits[byte & 0xF]};
        }
        return text;
    }
    static uint32_t number(std::span<const uint8_t> reg) {
        uint32_t value = 0;
        for (const uint8_t byte : reg) {
            value = value << 8 | byte;
        }
        return value;
    }
    void note(uint32_t dev, uint16_t addr8, std::span<const uint8_t> reg, const std::string& rest) {
        const std::array address{static_cast<uint8_t>(addr8)};
        events_.push_back(std::to_string(dev) + "/" + hex(address) + " " + hex(reg) + rest);
    }
    void put(uint32_t reg, std::size_t size, std::span<const uint8_t> bytes) {
        std::ranges::copy(bytes, registers_.begin() + static_cast<std::ptrdiff_t>(reg * size));
    }

    std::array<uint8_t, 512> registers_{};
    std::set<uint32_t> unreadable_;
    std::map<uint32_t, std::vector<uint8_t>> stuck_;
    bool writes_fail_ = false;
    std::vector<std::string> events_;
    std::vector<std::string> prints_;
};

} // namespace hal_test
