#include "shell_word.h"

#include <fmt/format.h>

#include <algorithm>

namespace halctl {

namespace {

bool is_letter_or_digit(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool has_only(const std::string& text, std::string_view others) {
    return std::all_of(text.begin(), text.end(), [&](char c) {
        return is_letter_or_digit(c) || others.find(c) != std::string_view::npos;
    });
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

CLI::Validator is_setting_name() {
    const auto check = [](const std::string& name) -> std::string {
        const bool good = !name.empty() && name.front() != '-' && has_only(name, "_.:-");
        return good ? ""
                    : fmt::format("\"{}\" is no name of a setting: letters, digits, '_', '.', ':' "
                                  "and, not first, '-' are",
                                  name);
    };
    return {check, "NAME"};
}

CLI::Validator is_setting_value() {
    const auto check = [](const std::string& value) -> std::string {
        if (!value.empty() && value.front() == '-') {
            return fmt::format("the value \"{}\" begins with '-': the tool would take it for an "
                               "option",
                               value);
        }
        const bool line = std::none_of(value.begin(), value.end(),
                                       [](unsigned char c) { return c < 0x20 || c == 0x7f; });
        return line ? "" : "a value is one line, without control characters";
    };
    return {check, "VALUE"};
}

} // namespace halctl
