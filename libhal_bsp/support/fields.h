// Fields of records that have a byte order of their own, at any address.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>

namespace hal {

// The first bytes of `bytes`, of which there have to be enough.
template <std::unsigned_integral Value>
constexpr Value load_le(std::span<const uint8_t> bytes) {
    Value value = 0;
    for (std::size_t i = sizeof(Value); i-- > 0;) {
        value = static_cast<Value>(value << 8U | bytes[i]);
    }
    return value;
}

template <std::unsigned_integral Value>
constexpr Value load_be(std::span<const uint8_t> bytes) {
    Value value = 0;
    for (std::size_t i = 0; i < sizeof(Value); ++i) {
        value = static_cast<Value>(value << 8U | bytes[i]);
    }
    return value;
}

template <std::unsigned_integral Value>
constexpr void store_le(std::span<uint8_t> bytes, Value value) {
    for (std::size_t i = 0; i < sizeof(Value); ++i) {
        bytes[i] = static_cast<uint8_t>(value >> 8U * i);
    }
}

template <std::unsigned_integral Value>
constexpr void store_be(std::span<uint8_t> bytes, Value value) {
    for (std::size_t i = 0; i < sizeof(Value); ++i) {
        bytes[i] = static_cast<uint8_t>(value >> 8U * (sizeof(Value) - 1 - i));
    }
}

} // namespace hal
