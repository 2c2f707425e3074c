#pragma once
// A number as somebody typed it: all of the text, and nothing that only counts as one by
// convention. Not a number, infinity and what is too large are none.

#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>
#include <type_traits>

namespace vb {

// Whole numbers may be written with 0x; a leading 0 means nothing.
template <class Number>
std::optional<Number> number_in(std::string_view text) {
    Number number{};
    std::from_chars_result read{};
    bool is_one = true;
    const char* const end = text.data() + text.size();
    if constexpr (std::is_integral_v<Number>) {
        const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
        is_one = !hexadecimal || !text.substr(2).starts_with('-');
        read = std::from_chars(text.data() + (hexadecimal ? 2 : 0), end, number,
                               hexadecimal ? 16 : 10);
    } else {
        read = std::from_chars(text.data(), end, number);
        is_one = std::isfinite(number);
    }
    is_one = is_one && read.ec == std::errc{} && read.ptr == end;
    return is_one ? std::optional(number) : std::nullopt;
}

} // namespace vb
