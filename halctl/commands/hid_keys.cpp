#include "commands/hid_keys.h"

#include "words.h"

#include <array>
#include <cctype>

namespace halctl::hid {

namespace {

constexpr std::uint8_t kShift = 0x02;
constexpr std::uint16_t kLetterA = 0x04;
constexpr std::uint16_t kDigit1 = 0x1E;
constexpr std::uint16_t kF1 = 0x3A;
constexpr std::uint16_t kFirstModifier = 0xE0;
constexpr std::uint16_t kLastModifier = 0xE7;

// From the key of the digit 1 on; a blank where a key writes nothing that can be typed here.
constexpr std::string_view kPlain = "1234567890\n \b\t -=[]\\ ;'`,./";
constexpr std::string_view kShifted = "!@#$%^&*()   \t _+{}| :\"~<>?";
constexpr std::uint16_t kSpace = 0x2C;
static_assert(kPlain.size() == kShifted.size() && kPlain[kSpace - kDigit1] == ' ');

struct Named {
    std::string_view name;
    std::uint16_t usage;
};

constexpr std::array kKeys = {
    Named{"enter", 0x28},     Named{"escape", 0x29},      Named{"backspace", 0x2A},
    Named{"tab", 0x2B},       Named{"space", 0x2C},       Named{"caps-lock", 0x39},
    Named{"print", 0x46},     Named{"scroll-lock", 0x47}, Named{"pause", 0x48},
    Named{"insert", 0x49},    Named{"home", 0x4A},        Named{"page-up", 0x4B},
    Named{"delete", 0x4C},    Named{"end", 0x4D},         Named{"page-down", 0x4E},
    Named{"right", 0x4F},     Named{"left", 0x50},        Named{"down", 0x51},
    Named{"up", 0x52},        Named{"num-lock", 0x53},    Named{"menu", 0x65},
    Named{"ctrl", 0xE0},      Named{"shift", 0xE1},       Named{"alt", 0xE2},
    Named{"gui", 0xE3},       Named{"right-ctrl", 0xE4},  Named{"right-shift", 0xE5},
    Named{"right-alt", 0xE6}, Named{"right-gui", 0xE7},
};

constexpr std::array kConsumerKeys = {
    Named{"brightness-up", 0x6F}, Named{"brightness-down", 0x70},
    Named{"next-track", 0xB5},    Named{"previous-track", 0xB6},
    Named{"stop", 0xB7},          Named{"play-pause", 0xCD},
    Named{"mute", 0xE2},          Named{"volume-up", 0xE9},
    Named{"volume-down", 0xEA},
};

template <std::size_t count>
std::optional<std::uint16_t> usage_named(const std::array<Named, count>& table,
                                         std::string_view name) {
    for (const Named& each : table) {
        if (each.name == name) {
            return each.usage;
        }
    }
    return std::nullopt;
}

Key keyboard_key(std::uint16_t usage) {
    if (usage >= kFirstModifier && usage <= kLastModifier) {
        return {0, static_cast<std::uint8_t>(1U << (usage - kFirstModifier))};
    }
    return {usage};
}

// "f1" to "f12", or a letter or digit.
std::optional<std::uint16_t> numbered_key(std::string_view name) {
    if (name.size() == 1 && std::isalnum(static_cast<unsigned char>(name[0])) != 0) {
        return key_for(name[0])->usage;
    }
    const auto number = name.starts_with('f') ? whole_number(name.substr(1)) : std::nullopt;
    return number && *number >= 1 && *number <= 12
               ? std::optional(static_cast<std::uint16_t>(kF1 + *number - 1))
               : std::nullopt;
}

} // namespace

std::optional<Key> key_for(char character) {
    const auto letter = static_cast<unsigned char>(character);
    if (letter < 0x80 && std::isalpha(letter) != 0) {
        const int usage = kLetterA + std::tolower(letter) - 'a';
        return Key{static_cast<std::uint16_t>(usage),
                   std::isupper(letter) != 0 ? kShift : std::uint8_t{0}};
    }
    if (character == ' ') {
        return Key{kSpace};
    }
    if (const auto at = kPlain.find(character); at != std::string_view::npos) {
        return Key{static_cast<std::uint16_t>(kDigit1 + at)};
    }
    if (const auto at = kShifted.find(character); at != std::string_view::npos) {
        return Key{static_cast<std::uint16_t>(kDigit1 + at), kShift};
    }
    return std::nullopt;
}

std::optional<Key> key_named(std::string_view name) {
    if (const auto usage = usage_named(kConsumerKeys, name)) {
        return Key{*usage, 0, true};
    }
    if (const auto usage = usage_named(kKeys, name)) {
        return keyboard_key(*usage);
    }
    if (const auto usage = numbered_key(name)) {
        return Key{*usage};
    }
    // A digit by itself is its key; other numbers are usages.
    const auto usage = whole_number(name);
    return usage && *usage >= kLetterA && *usage <= kLastModifier
               ? std::optional(keyboard_key(static_cast<std::uint16_t>(*usage)))
               : std::nullopt;
}

} // namespace halctl::hid
