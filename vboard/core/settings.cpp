#include "core/settings.h"

namespace vb {

namespace {

std::optional<unsigned long> parse(const Json& value) {
    if (value.is_number_unsigned()) {
        return value.get<unsigned long>();
    }
    if (!value.is_string()) {
        return std::nullopt;
    }
    const std::string text = value.get<std::string>();
    std::size_t used = 0;
    try {
        const unsigned long number = std::stoul(text, &used, 0);
        return used == text.size() ? std::optional(number) : std::nullopt;
    } catch (const std::logic_error&) {
        return std::nullopt;
    }
}

} // namespace

unsigned Settings::number(const std::string& key, unsigned otherwise, unsigned highest) {
    read_.insert(key);
    if (!object_.contains(key)) {
        return otherwise;
    }
    const auto number = parse(object_.at(key));
    if (!number || *number > highest) {
        refuse(key, fmt::format("a number from 0 to {} is wanted", highest));
    }
    return static_cast<unsigned>(*number);
}

} // namespace vb
