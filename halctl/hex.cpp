#include "hex.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace halctl {

std::string to_hex(std::span<const std::uint8_t> bytes) {
    return fmt::format("{:02x}", fmt::join(bytes.begin(), bytes.end(), ""));
}

Bytes from_hex(const std::string& text) {
    Bytes bytes;
    for (std::size_t at = 0; at + 1 < text.size(); at += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

CLI::Validator is_hex(std::size_t least, std::size_t most) {
    const auto check = [least, most](const std::string& text) -> std::string {
        const bool digits = std::all_of(text.begin(), text.end(),
                                        [](unsigned char digit) { return std::isxdigit(digit); });
        if (!digits || text.size() % 2 != 0 || text.size() / 2 < least || text.size() / 2 > most) {
            return fmt::format("{} to {} bytes in hexadecimal digits are wanted, not \"{}\"", least,
                               most, text);
        }
        return "";
    };
    return {check, "HEX"};
}

} // namespace halctl
