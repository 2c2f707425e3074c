#pragma once
// Bytes as people write them: "deadbeef".

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace halctl {

using Bytes = std::vector<std::uint8_t>;

std::string to_hex(std::span<const std::uint8_t> bytes);

// None where the text is anything but pairs of hexadecimal digits.
std::optional<Bytes> from_hex(std::string_view text);

} // namespace halctl
