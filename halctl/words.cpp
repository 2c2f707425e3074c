#include "words.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace halctl {

namespace {

constexpr std::size_t kShownOfAWord = 40;

template <class Number, class... Format>
std::optional<Number> number_in(std::string_view digits, Format... format) {
    Number number{};
    const char* end = digits.data() + digits.size();
    const auto [at, error] = std::from_chars(digits.data(), end, number, format...);
    return error == std::errc{} && at == end ? std::optional(number) : std::nullopt;
}

// Whether the bytes are ASCII or well-formed UTF-8 as far as a terminal cares.
bool is_utf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t length = lead < 0x80   ? 1
                                   : lead < 0xC2 ? 0
                                   : lead < 0xE0 ? 2
                                   : lead < 0xF0 ? 3
                                                 : 4;
        if (length == 0 || lead > 0xF4 || i + length > text.size() ||
            !std::all_of(text.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                         text.begin() + static_cast<std::ptrdiff_t>(i + length),
                         [](unsigned char c) { return (c & 0xC0) == 0x80; })) {
            return false;
        }
        i += length;
    }
    return true;
}

} // namespace

std::string readable(std::string_view text, std::size_t most) {
    const bool whole_characters = is_utf8(text);
    std::string shown;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool starts_character = (byte & 0xC0) != 0x80;
        if (i >= most && (starts_character || !whole_characters)) {
            return shown + "...";
        }
        const bool plain = byte >= 0x20 && byte != 0x7F && (byte < 0x80 || whole_characters);
        shown += plain ? text[i] : '?';
    }
    return shown;
}

std::string in_quotes(std::string_view word) {
    return '"' + readable(word, kShownOfAWord) + '"';
}

std::optional<std::uint64_t> whole_number(std::string_view word) {
    if (word.starts_with("0x") || word.starts_with("0X")) {
        return number_in<std::uint64_t>(word.substr(2), 16);
    }
    return number_in<std::uint64_t>(word);
}

std::optional<double> real_number(std::string_view word) {
    const std::optional<double> number = number_in<double>(word);
    return number && std::isfinite(*number) ? number : std::nullopt;
}

} // namespace halctl
