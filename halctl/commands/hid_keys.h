#pragma once
// Keys as a keyboard reports them: usages of the HID Usage Tables, by their names, and for the
// characters that they write on a US keyboard.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace halctl::hid {

struct Key {
    std::uint16_t usage = 0;
    std::uint8_t modifiers = 0; // that are held with it: a bit for each of the usages 0xE0 to 0xE7
    bool consumer = false;      // a consumer key, not the keyboard's
};

// A modifier by itself is a key of usage 0.
std::optional<Key> key_for(char character);
std::optional<Key> key_named(std::string_view name); // "enter", or a usage of the keyboard: "0x28"

} // namespace halctl::hid
