#include "hex.h"

#include <fmt/format.h>

#include <charconv>

namespace halctl {

std::string to_hex(std::span<const std::uint8_t> bytes) {
    return fmt::format("{:02x}", fmt::join(bytes.begin(), bytes.end(), ""));
}

std::optional<Bytes> from_hex(std::string_view text) {
    if (text.size() % 2 != 0) {
        return std::nullopt;
    }
    Bytes bytes(text.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const char* pair = text.data() + 2 * i;
        const auto [end, error] = std::from_chars(pair, pair + 2, bytes[i], 16);
        if (error != std::errc{} || end != pair + 2) {
            return std::nullopt;
        }
    }
    return bytes;
}

} // namespace halctl
