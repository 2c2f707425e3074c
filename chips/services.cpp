#include "services.h"

#include "family.h"

#include <array>
#include <cstdarg>
#include <cstdio>

namespace chips {

namespace {

// A register's number as the family's chips take it.
class Number {
  public:
    explicit Number(uint32_t number)
        : bytes_{static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)} {}

    const uint8_t* data() const { return bytes_.data() + (bytes_.size() - kFamily.number_bytes); }

  private:
    std::array<uint8_t, 2> bytes_;
};

} // namespace

void Services::connect(const video_chip_services& board, const video_chip_dev_entry& entry) {
    board_ = &board;
    dev_ = entry.dev;
    address_ = entry.i2c_addr;
}

void Services::say(const char* format, ...) {
    std::array<char, 128> text{};
    va_list values;
    va_start(values, format);
    std::vsnprintf(text.data(), text.size(), format, values);
    va_end(values);
    prints_.count();
    board_->print("%s %u: %s", kFamily.name, dev_, text.data());
}

void Services::delay_ms(uint32_t ms) {
    delays_.count();
    board_->delay_ms(ms);
}

uint32_t Services::now_us() {
    times_.count();
    uint32_t now = 0;
    board_->time_us(&now);
    return now;
}

void Services::reset() {
    resets_.count();
    board_->reset(dev_);
}

bool Services::counted(int32_t result) {
    if (result != 0) {
        failures_.count();
    }
    return result == 0;
}

bool Services::write(uint32_t first, std::span<const uint8_t> values) {
    writes_.count();
    return counted(board_->i2c_write(dev_, &address_, 0, Number(first).data(), kFamily.number_bytes,
                                     values.data(), static_cast<uint16_t>(values.size())));
}

bool Services::read(uint32_t first, std::span<uint8_t> values) {
    reads_.count();
    return counted(board_->i2c_read(dev_, &address_, 0, Number(first).data(), kFamily.number_bytes,
                                    values.data(), static_cast<uint16_t>(values.size())));
}

void Services::add_to(hal_chips_counters& counters) const {
    counters.resets = resets_.value();
    counters.delays = delays_.value();
    counters.times = times_.value();
    counters.prints = prints_.value();
    counters.i2c_writes = writes_.value();
    counters.i2c_reads = reads_.value();
    counters.i2c_failures = failures_.value();
}

} // namespace chips
