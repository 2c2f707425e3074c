#pragma once
// Configurations and devices as their descriptors tell of them.

#include "host/wire.h"

#include <string>

namespace vb::host {

enum DescriptorType : std::uint8_t {
    kDeviceDescriptor = 1,
    kConfigurationDescriptor = 2,
    kStringDescriptor = 3,
    kInterfaceDescriptor = 4,
    kEndpointDescriptor = 5,
    kHidDescriptor = 0x21,
    kReportDescriptor = 0x22
};

struct DeviceDescriptor {
    std::uint8_t length;
    std::uint8_t type;
    std::uint16_t usb;
    std::uint8_t device_class;
    std::uint8_t subclass;
    std::uint8_t protocol;
    std::uint8_t max_packet;
    std::uint16_t vendor;
    std::uint16_t product;
    std::uint16_t release;
    std::uint8_t manufacturer_string;
    std::uint8_t product_string;
    std::uint8_t serial_string;
    std::uint8_t configurations;
};
static_assert(sizeof(DeviceDescriptor) == 18);

struct Interface {
    std::uint8_t number = 0;
    std::uint8_t alternate = 0;
    std::uint8_t interface_class = 0;
    std::uint8_t subclass = 0;
    std::uint8_t protocol = 0;
    std::vector<Endpoint> endpoints;
    std::uint16_t report_descriptor = 0; // its length; 0: none

    // Null where there is none.
    const Endpoint* find(TransferType type, bool to_host) const;
};

struct Configuration {
    std::uint8_t value = 0;
    std::uint8_t attributes = 0;
    std::uint8_t power = 0; // in 2 mA
    std::vector<Interface> interfaces;
    std::string error; // what of it makes no sense; what stands before that counts
};

Configuration parse_configuration(ByteView bytes);

// What a string descriptor says, in UTF-8.
std::string text_of_string(ByteView bytes);

} // namespace vb::host
