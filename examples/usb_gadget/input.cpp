#include "input.h"

#include <optional>
#include <string_view>

namespace usb {

const hal_hid_info kDevices{
    .kb_on = 1, .kb_id = 1, .ts_on = 1, .ts_id = 5, .rm_on = 1, .rm_id = 6, .am_on = 1, .am_id = 2};

namespace {

constexpr uint8_t kShift = 0x02; // the left one's bit

struct Key {
    uint8_t modifiers;
    uint8_t usage;
};

// Usages 0x1E on, and what they write without and with shift (HID Usage Tables, 10).
constexpr uint8_t kFirstSign = 0x1E;
constexpr std::string_view kPlain = "1234567890\n\x1B\b\t -=[]\\\x01;'`,./";
constexpr std::string_view kShifted = "!@#$%^&*()\x01\x01\x01\x01\x01_+{}|\x01:\"~<>?";

std::optional<Key> key_of(char letter) {
    constexpr uint8_t kUsageA = 0x04;
    if (letter >= 'a' && letter <= 'z') {
        return Key{0, static_cast<uint8_t>(kUsageA + (letter - 'a'))};
    }
    if (letter >= 'A' && letter <= 'Z') {
        return Key{kShift, static_cast<uint8_t>(kUsageA + (letter - 'A'))};
    }
    for (const bool shifted : {false, true}) {
        const std::size_t at = (shifted ? kShifted : kPlain).find(letter);
        if (at != std::string_view::npos && letter != '\x01') {
            return Key{shifted ? kShift : uint8_t{0}, static_cast<uint8_t>(kFirstSign + at)};
        }
    }
    return std::nullopt;
}

uint8_t low(unsigned value) {
    return static_cast<uint8_t>(value);
}

uint8_t high(unsigned value) {
    return static_cast<uint8_t>(value >> 8U);
}

} // namespace

template <std::size_t Size>
bool Hands::send(hal_hid_dev dev, std::array<uint8_t, Size> report) {
    const hal_hid_data data{static_cast<uint32_t>(dev), static_cast<int32_t>(Size), report.data()};
    return carrier_.write_report(&data);
}

bool Hands::type(const std::string& text) {
    for (const char letter : text) {
        const std::optional<Key> key = key_of(letter);
        if (!key) {
            continue;
        }
        std::array<uint8_t, 9> report{kDevices.kb_id, key->modifiers, 0, key->usage};
        const bool pressed = send(HAL_HID_KEYBOARD_MOUSE, report);
        report = {kDevices.kb_id};
        if (!pressed || !send(HAL_HID_KEYBOARD_MOUSE, report)) {
            return false;
        }
    }
    return true;
}

// The one to three quarters of the width and a quarter of the height; the other 120 to the right
// and 40 up, with its left button down.
bool Hands::move_both_mice() {
    constexpr unsigned kSteps = 8;
    constexpr unsigned kX = 24576;
    constexpr unsigned kY = 8192;
    for (unsigned step = 1; step <= kSteps; ++step) {
        const unsigned x = kX / kSteps * step;
        const unsigned y = kY / kSteps * step;
        const uint8_t button = step < kSteps ? 1 : 0;
        const std::array<uint8_t, 7> absolute{kDevices.am_id, 0, low(x), high(x), low(y), high(y)};
        const std::array<uint8_t, 5> relative{kDevices.rm_id, button, 15, static_cast<uint8_t>(-5)};
        if (!send(HAL_HID_KEYBOARD_MOUSE, absolute) || !send(HAL_HID_RELATIVE_MOUSE, relative)) {
            return false;
        }
    }
    return true;
}

// Both start in the middle and go apart.
bool Hands::touch(bool down, unsigned step) {
    constexpr unsigned kMiddle = 16384;
    constexpr unsigned kStride = 1024;
    constexpr unsigned kScanTime = 100; // of 100 us
    constexpr std::size_t kContactBytes = 6;
    std::array<uint8_t, 64> report{kDevices.ts_id};
    for (unsigned finger = 0; finger < 2; ++finger) {
        const unsigned x = finger == 0 ? kMiddle - step * kStride : kMiddle + step * kStride;
        uint8_t* const contact = &report[1 + finger * kContactBytes];
        contact[0] = down ? 1 : 0;
        contact[1] = low(finger);
        contact[2] = low(x);
        contact[3] = high(x);
        contact[4] = low(kMiddle);
        contact[5] = high(kMiddle);
    }
    report[61] = 2;
    report[62] = low(step * kScanTime);
    report[63] = high(step * kScanTime);
    return send(HAL_HID_TOUCH_SCREEN, report);
}

bool Hands::drag_two_fingers() {
    constexpr unsigned kSteps = 8;
    for (unsigned step = 0; step <= kSteps; ++step) {
        if (!touch(true, step)) {
            return false;
        }
    }
    return touch(false, kSteps);
}

} // namespace usb
