#include "shell_word.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace halctl {

namespace {

constexpr std::size_t kLongestInterface = 15;

bool is_letter_or_digit(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool has_only(const std::string& text, std::string_view others) {
    return std::all_of(text.begin(), text.end(), [&](char c) {
        return is_letter_or_digit(c) || others.find(c) != std::string_view::npos;
    });
}

bool is_name(const std::string& text, std::string_view others) {
    return !text.empty() && text.front() != '-' && has_only(text, others);
}

} // namespace

std::string shell_word(const std::string& text) {
    if (!text.empty() && has_only(text, "_.,:/@%+=-")) {
        return text;
    }
    std::string word = "'";
    for (const char c : text) {
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return word + "'";
}

Complaint check_interface_name(const std::string& name) {
    const bool good = name.size() <= kLongestInterface && is_name(name, "_.-");
    return good ? "" : fmt::format("{} is not {}", in_quotes(name), kInterfaceName);
}

Complaint check_setting_name(const std::string& name) {
    return is_name(name, "_.:-")
               ? ""
               : fmt::format("{} is not {}, which is not first", in_quotes(name), kSettingName);
}

Complaint check_setting_value(const std::string& value) {
    const bool line = std::none_of(value.begin(), value.end(),
                                   [](unsigned char c) { return c < 0x20 || c == 0x7f; });
    return line ? "" : fmt::format("{} has control characters in it", in_quotes(value));
}

} // namespace halctl
