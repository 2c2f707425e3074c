#pragma once
// The packets that the board's processor and its MCU exchange, one in a block of the bridge disk.
//
//   offset  0  2  0x55 0xBB to the MCU, 0xBB 0x55 from it
//           5  1  0x01
//           6  2  number of the packet, from the MCU only
//           8  2  bytes from here to the end of the value
//          10  2  0x60 0x01
//          22  4  type
//          28  2  bytes of the value
//          30     the value
// Numbers are little-endian, what is not named is 0.

#include "core/bytes.h"

namespace vb::mcu {

inline constexpr std::size_t kBlock = 2560;
inline constexpr std::size_t kHeader = 30;
inline constexpr std::size_t kMostValue = kBlock - kHeader;

enum Type : std::uint32_t {
    kAbsoluteReport = 0xE1000000,
    kRelativeReport = 0xE1000001,
    kKeyboardReport = 0xE1000002,
    kOutputReport = 0xE1000003, // from the MCU
    kTouchReport = 0xE1000004,
    kDiskReply = 0xE1001000,
    kDiskCommand = 0xE1001001, // from the MCU
    kDiskData = 0xE1001002,    // from the MCU
    kUsbControl = 0xE1001003,
    kFunctionInfo = 0xE1001004,
    kEnumeration = 0xE1001005 // from the MCU
};

struct Packet {
    std::uint32_t type = 0;
    Bytes value{};
};

// What the processor has written. The text says what is wrong where there is no packet.
struct Received {
    std::optional<Packet> packet;
    const char* wrong = "";
};
Received packet_in(ByteView block);

// A whole block of the MCU's.
Bytes block_of(const Packet& packet, std::uint16_t number);

} // namespace vb::mcu
