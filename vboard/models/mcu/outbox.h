#pragma once
// The packets that the MCU has for the processor, and the line by which it says so: high while
// there is one, low for a moment when it is fetched, so that each packet is an edge.

#include "models/mcu/packet.h"

#include <deque>
#include <functional>
#include <random>

namespace vb::mcu {

class Outbox {
  public:
    static constexpr std::size_t kRoom = 64;

    // `line` sets the interrupt line.
    explicit Outbox(std::function<void(bool level)> line) : line_(std::move(line)) {}

    std::size_t size() const { return blocks_.size(); }
    std::uint16_t last_number() const { return number_; }
    bool has_room() const { return blocks_.size() < kRoom; }

    // In its turn, with the next number.
    void put(const Packet& packet);
    void put_block(Bytes block);
    // The first block; one without a packet where there is none.
    Bytes fetch();
    void clear();

    // Faults: of the next so many that are fetched bits are turned over, or they stay to be fetched
    // again.
    void garble(unsigned times) { garbled_ = times; }
    void repeat(unsigned times) { repeated_ = times; }

  private:
    void turn_bits_over(Bytes& block);

    std::function<void(bool level)> line_;
    std::deque<Bytes> blocks_;
    std::uint16_t number_ = 0;
    unsigned garbled_ = 0;
    unsigned repeated_ = 0;
    std::mt19937 noise_; // the same on every board
};

} // namespace vb::mcu
