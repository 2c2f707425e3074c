#include "models/mcu/outbox.h"

#include <algorithm>
#include <utility>

namespace vb::mcu {

void Outbox::put(const Packet& packet) {
    put_block(block_of(packet, ++number_));
}

void Outbox::put_block(Bytes block) {
    block.resize(kBlock);
    blocks_.push_back(std::move(block));
    line_(true);
}

Bytes Outbox::fetch() {
    if (blocks_.empty()) {
        return Bytes(kBlock);
    }
    Bytes block = blocks_.front();
    line_(false);
    if (repeated_ > 0) {
        --repeated_;
    } else {
        blocks_.pop_front();
    }
    if (!blocks_.empty()) {
        line_(true);
    }
    if (garbled_ > 0) {
        --garbled_;
        turn_bits_over(block);
    }
    return block;
}

// In one byte in eight, and in the header for certain.
void Outbox::turn_bits_over(Bytes& block) {
    constexpr std::size_t kEach = 8;
    for (std::size_t at = 0; at < block.size(); at += kEach) {
        const auto chance = static_cast<std::uint32_t>(noise_());
        block[at + chance % kEach] ^= static_cast<std::uint8_t>(1U << (chance >> 8 & 7U));
    }
}

void Outbox::clear() {
    blocks_.clear();
    number_ = 0;
    line_(false);
}

} // namespace vb::mcu
