#include "host/enumeration.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace vb::host {

namespace {

// As USB 2.0 has it: contacts come to rest, a reset lasts, an address settles.
constexpr std::int64_t kDebounce = 100 * kMillisecond;
constexpr std::int64_t kResetTime = 10 * kMillisecond;
constexpr std::int64_t kResetRecoveryTime = 10 * kMillisecond;
constexpr std::int64_t kAddressRecovery = 2 * kMillisecond;

constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint8_t kSetAddress = 5;

} // namespace

void Enumeration::start() {
    wire_.later(kDebounce, [this] {
        wire_.later(kResetTime + kResetRecoveryTime, [this] { read_beginning(); });
        wire_.reset_bus();
    });
}

void Enumeration::get(std::uint8_t type, std::uint8_t index, std::uint16_t language,
                      std::size_t length, const char* what, const Next& next) {
    const usb::Setup setup{0x80, kGetDescriptor, static_cast<std::uint16_t>(type << 8U | index),
                           language, static_cast<std::uint16_t>(length)};
    wire_.control(setup, {}, [this, what, next](const Reply& reply) {
        if (reply.done()) {
            next(reply.data);
        } else {
            done_(fmt::format("{}: {}", what, reply.in_words()));
        }
    });
}

void Enumeration::read_beginning() {
    constexpr std::size_t kBeginning = 8; // which any endpoint 0 brings in one packet
    get(kDeviceDescriptor, 0, 0, kBeginning, "device descriptor", [this](ByteView bytes) {
        if (bytes.size() < kBeginning || bytes[1] != kDeviceDescriptor) {
            done_("the device descriptor is none");
        } else {
            set_address();
        }
    });
}

void Enumeration::set_address() {
    wire_.control({0, kSetAddress, address_, 0, 0}, {}, [this](const Reply& reply) {
        if (!reply.done()) {
            done_(fmt::format("address: {}", reply.in_words()));
            return;
        }
        wire_.set_address(address_);
        wire_.later(kAddressRecovery, [this] { read_device(); });
    });
}

void Enumeration::read_device() {
    get(kDeviceDescriptor, 0, 0, sizeof(DeviceDescriptor), "device descriptor",
        [this](ByteView bytes) {
            facts_.device = record_from<DeviceDescriptor>(bytes);
            if (bytes.size() < sizeof(DeviceDescriptor) || bytes[1] != kDeviceDescriptor) {
                done_("the device descriptor is cut off");
            } else if (facts_.device.configurations == 0) {
                done_("it has no configuration");
            } else {
                read_configuration();
            }
        });
}

void Enumeration::read_configuration() {
    constexpr std::size_t kBeginning = 9;
    get(kConfigurationDescriptor, 0, 0, kBeginning, "configuration descriptor",
        [this](ByteView bytes) {
            if (bytes.size() < kBeginning || bytes[1] != kConfigurationDescriptor) {
                done_("the configuration descriptor is none");
            } else {
                read_whole_configuration(record_from<std::uint16_t>(bytes.subspan(2, 2)));
            }
        });
}

void Enumeration::read_whole_configuration(std::uint16_t length) {
    get(kConfigurationDescriptor, 0, 0, length, "configuration descriptor",
        [this, length](ByteView bytes) {
            facts_.configuration = parse_configuration(bytes);
            if (facts_.configuration.error.empty() && bytes.size() < length) {
                facts_.configuration.error = "it is shorter than it says";
            }
            read_languages();
        });
}

// Strings are for people: a device without them is as good.

void Enumeration::read_languages() {
    constexpr std::size_t kLongest = 255;
    const DeviceDescriptor& device = facts_.device;
    if ((device.manufacturer_string | device.product_string | device.serial_string) == 0) {
        done_("");
        return;
    }
    const usb::Setup setup{0x80, kGetDescriptor, kStringDescriptor << 8U, 0, kLongest};
    wire_.control(setup, {}, [this](const Reply& reply) {
        if (reply.done() && reply.data.size() >= 4) {
            read_strings(record_from<std::uint16_t>(ByteView(reply.data).subspan(2, 2)), 0);
        } else {
            done_("");
        }
    });
}

void Enumeration::read_strings(std::uint16_t language, std::size_t number) {
    constexpr std::uint16_t kLongest = 255;
    const DeviceDescriptor& device = facts_.device;
    const std::array<std::pair<std::uint8_t, std::string*>, 3> strings = {
        std::pair{device.manufacturer_string, &facts_.manufacturer},
        {device.product_string, &facts_.product},
        {device.serial_string, &facts_.serial}};
    while (number < strings.size() && strings[number].first == 0) {
        ++number;
    }
    if (number == strings.size()) {
        done_("");
        return;
    }
    const auto [index, text] = strings[number];
    const auto value = static_cast<std::uint16_t>(kStringDescriptor << 8U | index);
    wire_.control({0x80, kGetDescriptor, value, language, kLongest}, {},
                  [this, language, number, text = text](const Reply& reply) {
                      *text = reply.done() ? text_of_string(reply.data) : "";
                      read_strings(language, number + 1);
                  });
}

} // namespace vb::host
