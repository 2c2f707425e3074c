#pragma once
// Descriptors of chapter 9 of USB 2.0, byte by byte.

#include "core/bytes.h"

#include <initializer_list>
#include <optional>

namespace vb::gadget {

enum DescriptorType : std::uint8_t {
    kDeviceDescriptor = 1,
    kConfigurationDescriptor = 2,
    kStringDescriptor = 3,
    kInterfaceDescriptor = 4,
    kEndpointDescriptor = 5,
    kQualifierDescriptor = 6,
    kOtherSpeedDescriptor = 7,
    kHidDescriptor = 0x21,
    kReportDescriptor = 0x22
};

enum EndpointKind : std::uint8_t { kBulk = 2, kInterrupt = 3 };

void append(Bytes& bytes, std::initializer_list<unsigned> more);
void append_word(Bytes& bytes, std::size_t word);

struct InterfaceDescriptor {
    std::uint8_t number;
    std::uint8_t endpoints;
    std::uint8_t device_class;
    std::uint8_t subclass;
    std::uint8_t protocol;
    std::uint8_t text;
};
void append_interface(Bytes& bytes, const InterfaceDescriptor& interface);
void append_endpoint(Bytes& bytes, std::uint8_t address, EndpointKind kind, std::size_t packet,
                     std::uint8_t interval);

// The descriptor of a text in UTF-8, of which 126 bytes count; nothing where it is no UTF-8.
std::optional<Bytes> string_descriptor(std::string_view text);

} // namespace vb::gadget
