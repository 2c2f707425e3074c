#include "core/bytes.h"

#include <charconv>

namespace vb {

std::string to_hex(ByteView bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 0xF]);
    }
    return text;
}

std::optional<Bytes> from_hex(std::string_view text) {
    if (text.size() % 2 != 0) {
        return std::nullopt;
    }
    Bytes bytes(text.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const char* digits = text.data() + 2 * i;
        const auto [end, error] = std::from_chars(digits, digits + 2, bytes[i], 16);
        if (error != std::errc{} || end != digits + 2) {
            return std::nullopt;
        }
    }
    return bytes;
}

} // namespace vb
