// The board's services as one chip uses them: counted, and with the chip's number and address.
#pragma once

#include <hal_bsp/video.h>
#include <hal_chips/hal_chips.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

namespace chips {

class Counter {
  public:
    void count() { value_.fetch_add(1, std::memory_order_relaxed); }
    uint32_t value() const { return value_.load(std::memory_order_relaxed); }

  private:
    std::atomic<uint32_t> value_ = 0;
};

class Services {
  public:
    // Both last for ever.
    void connect(const video_chip_services& board, const video_chip_dev_entry& entry);
    bool connected() const { return board_ != nullptr; }

    // Prints a line that begins with the chip's name.
    void say(const char* format, ...) HAL_PRINTF(2, 3);
    void delay_ms(uint32_t ms);
    uint32_t now_us(); // wraps
    void reset();
    // False where the transfer failed.
    bool write(uint32_t first, std::span<const uint8_t> values);
    bool read(uint32_t first, std::span<uint8_t> values);

    void add_to(hal_chips_counters& counters) const;

  private:
    bool counted(int32_t result);

    const video_chip_services* board_ = nullptr;
    uint32_t dev_ = 0;
    uint8_t address_ = 0;
    Counter resets_;
    Counter delays_;
    Counter times_;
    Counter prints_;
    Counter writes_;
    Counter reads_;
    Counter failures_;
};

} // namespace chips
