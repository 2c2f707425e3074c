#include "panel/encode.h"

#include "core/bytes.h"

namespace vb::panel {

std::string base64_of_hex(const std::string& digits) {
    constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const Bytes bytes = from_hex(digits).value_or(Bytes{});
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const auto byte = [&](std::size_t next) -> unsigned {
            return at + next < bytes.size() ? bytes[at + next] : 0;
        };
        const unsigned three = byte(0) << 16U | byte(1) << 8U | byte(2);
        for (unsigned shift : {18U, 12U, 6U, 0U}) {
            text += kDigits[three >> shift & 63U];
        }
    }
    // What stands for no byte any more.
    const std::size_t missing = (3 - bytes.size() % 3) % 3;
    return text.replace(text.size() - missing, missing, missing, '=');
}

} // namespace vb::panel
