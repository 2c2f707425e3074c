// The registers of the video chips, which all families have at the same numbers; a byte each.
#pragma once

#include <cstdint>

namespace chips {

enum Register : uint16_t {
    kIdentity = 0x00, // two bytes, the high one first
    kStatus = 0x03,
    kControl = 0x04,
    kEdidControl = 0x05,
    kSettings = 0x10, // from here on so many are written and read back as a whole:
    kMode = 0x10,     // two bytes, the low one first
    kSetUpA = 0x12,   // and b and c behind it
    kSetUpD = 0x15,
    kSetUpE = 0x16,
    kSetUpF = 0x17,
    kOutput = 0x18,
    kEqualiser = 0x19,
    kOptions = 0x1A, // eight
    kSettingsEnd = 0x22,
    kEdid = 0x100,
};

// Bits of kStatus.
constexpr uint8_t kPlugged = 0x01;
constexpr uint8_t kEdidState = 0x06;
constexpr uint8_t kEdidNotChecked = 0x00; // in kEdidState, as the next two; 0x02: being checked
constexpr uint8_t kEdidGood = 0x04;
constexpr uint8_t kEdidBad = 0x06;
constexpr uint8_t kStartedOver = 0x80; // since 1 was last written to it

constexpr uint8_t kRun = 0x01;   // in kControl
constexpr uint8_t kCheck = 0x01; // in kEdidControl

constexpr uint8_t kNoOption = 0xFF;

constexpr uint32_t kEdidBlock = 128;
constexpr uint32_t kEdidSize = 2 * kEdidBlock;
constexpr uint32_t kExtensionCount = 126; // where the base block says whether another follows

} // namespace chips
