#include "models/mcu/packet.h"

#include <algorithm>

namespace vb::mcu {

namespace {

constexpr std::size_t kNumberAt = 6;
constexpr std::size_t kTotalAt = 8;
constexpr std::size_t kTypeAt = 22;
constexpr std::size_t kLengthAt = 28;

template <class Number>
void put(Bytes& block, std::size_t at, Number number) {
    std::memcpy(block.data() + at, &number, sizeof number);
}

} // namespace

Received packet_in(ByteView block) {
    if (block.size() < kHeader || block[0] != 0x55 || block[1] != 0xBB) {
        return {std::nullopt, "it does not begin as one for the MCU does"};
    }
    const auto length = record_from<std::uint16_t>(block.subspan(kLengthAt));
    if (length > block.size() - kHeader) {
        return {std::nullopt, "its value goes beyond the block"};
    }
    if (record_from<std::uint16_t>(block.subspan(kTotalAt)) != length + (kHeader - kTotalAt)) {
        return {std::nullopt, "its two lengths do not agree"};
    }
    const ByteView value = block.subspan(kHeader, length);
    return {
        Packet{record_from<std::uint32_t>(block.subspan(kTypeAt)), {value.begin(), value.end()}},
        ""};
}

Bytes block_of(const Packet& packet, std::uint16_t number) {
    const std::size_t length = std::min(packet.value.size(), kMostValue);
    Bytes block(kBlock);
    block[0] = 0xBB;
    block[1] = 0x55;
    block[5] = 0x01;
    put(block, kNumberAt, number);
    put(block, kTotalAt, static_cast<std::uint16_t>(length + (kHeader - kTotalAt)));
    block[10] = 0x60;
    block[11] = 0x01;
    put(block, kTypeAt, packet.type);
    put(block, kLengthAt, static_cast<std::uint16_t>(length));
    std::copy_n(packet.value.begin(), length, block.begin() + kHeader);
    return block;
}

} // namespace vb::mcu
