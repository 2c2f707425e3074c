#include "host/us_layout.h"

namespace vb::host {

std::optional<char> letter_of(std::uint16_t key, bool shift, bool caps_lock) {
    constexpr std::uint16_t kLetterA = 0x04;
    constexpr std::uint16_t kDigit1 = 0x1E;
    constexpr std::uint16_t kKeypadSlash = 0x54;
    constexpr char kEscape = '\x1b';
    constexpr std::string_view kPlain = "1234567890\n\x1b\b\t -=[]\\\\;'`,./";
    constexpr std::string_view kShifted = "!@#$%^&*()\n\x1b\b\t _+{}||:\"~<>?";
    constexpr std::string_view kKeypad = "/*-+\n1234567890.";
    static_assert(kPlain.size() == kShifted.size());
    if (key >= kLetterA && key < kDigit1) {
        return static_cast<char>((shift != caps_lock ? 'A' : 'a') + (key - kLetterA));
    }
    if (key >= kDigit1 && key < kDigit1 + kPlain.size()) {
        const char letter = (shift ? kShifted : kPlain)[key - std::size_t{kDigit1}];
        return letter == kEscape ? std::nullopt : std::optional(letter);
    }
    if (key >= kKeypadSlash && key < kKeypadSlash + kKeypad.size()) {
        return kKeypad[key - std::size_t{kKeypadSlash}];
    }
    return std::nullopt;
}

} // namespace vb::host
