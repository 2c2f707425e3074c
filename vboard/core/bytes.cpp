#include "core/bytes.h"

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

} // namespace vb
