// The requests on endpoint 0 that are the device's own.

#include "models/gadget/composite_device.h"
#include "models/gadget/descriptors.h"

#include <algorithm>

namespace vb::gadget {

namespace {

constexpr std::uint8_t kControlPacket = 64;
constexpr std::uint16_t kUsbVersion = 0x0200;
constexpr std::uint8_t kSelfPoweredDevice = 0x40; // of a configuration's attributes
constexpr std::uint8_t kWakesHost = 0x20;

enum StandardRequest : std::uint8_t {
    kGetStatus = 0,
    kClearFeature = 1,
    kSetFeature = 3,
    kSetAddress = 5,
    kGetAnyDescriptor = 6,
    kGetConfiguration = 8,
    kSetConfiguration = 9,
    kGetInterface = 10,
    kSetInterface = 11
};
enum Feature : std::uint16_t { kEndpointHalt = 0, kRemoteWakeup = 1 };
enum Recipient : std::uint8_t { kDevice = 0, kInterface = 1, kEndpoint = 2 };

unsigned recipient_of(const usb::Setup& setup) {
    return setup.request_type & 0x1FU;
}

bool is_standard(const usb::Setup& setup) {
    return (setup.request_type & 0x60U) == 0;
}

} // namespace

CompositeDevice::Answer CompositeDevice::answer(const usb::Setup& setup, ByteView data) {
    if (!setup.to_host() && setup.length > kControlBuffer) {
        return std::nullopt;
    }
    if (!is_standard(setup)) {
        return ask_function(setup, data);
    }
    switch (setup.request_type << 8 | setup.request) {
    case kSetAddress:
        return set_address();
    case 0x8000 | kGetAnyDescriptor:
        return descriptor(setup);
    case 0x8000 | kGetConfiguration:
        return Bytes{active_ == nullptr ? std::uint8_t{0} : active_->options.value};
    case kSetConfiguration:
        return set_configuration(setup.value);
    case 0x0100 | kSetInterface:
        return set_interface(setup);
    case 0x8100 | kGetInterface:
        return function_of(setup) == nullptr ? Answer() : Bytes{0};
    case 0x8000 | kGetStatus:
    case 0x8100 | kGetStatus:
    case 0x8200 | kGetStatus:
        return status(setup);
    case kClearFeature:
    case kSetFeature:
    case 0x0200 | kClearFeature:
    case 0x0200 | kSetFeature:
        return set_feature(setup, setup.request == kSetFeature);
    default:
        return ask_function(setup, data);
    }
}

Function* CompositeDevice::function_of(const usb::Setup& setup) const {
    if (active_ == nullptr) {
        return nullptr;
    }
    const std::size_t number = setup.index & 0xFFU;
    if (recipient_of(setup) == kInterface) {
        return number < active_->interfaces.size() ? active_->interfaces[number] : nullptr;
    }
    if (recipient_of(setup) == kEndpoint) {
        const Endpoint* found = find_endpoint(setup.index & 0x8FU);
        return found == nullptr ? nullptr : found->function;
    }
    return nullptr;
}

// What is nobody's goes to the only function, where there is but one.
CompositeDevice::Answer CompositeDevice::ask_function(const usb::Setup& setup, ByteView data) {
    Function* function = function_of(setup);
    if (function == nullptr && active_ != nullptr && active_->functions.size() == 1) {
        function = active_->functions.front().get();
    }
    return function == nullptr ? std::nullopt : function->control(setup, data);
}

Bytes CompositeDevice::device_descriptor() {
    fields_.usb = kUsbVersion;
    fields_.packet = kControlPacket;
    Bytes bytes{18, kDeviceDescriptor};
    append_word(bytes, fields_.usb);
    append(bytes, {fields_.device_class, fields_.subclass, fields_.protocol, fields_.packet});
    append_word(bytes, fields_.vendor);
    append_word(bytes, fields_.product);
    append_word(bytes, fields_.version);
    for (std::uint8_t text = 0; text < 3; ++text) {
        append(bytes, {first_text_ == 0 ? 0U : first_text_ + text});
    }
    append(bytes, {static_cast<unsigned>(configurations_.size())});
    return bytes;
}

Bytes CompositeDevice::qualifier_descriptor() const {
    Bytes bytes{10, kQualifierDescriptor};
    append_word(bytes, fields_.usb);
    append(bytes, {fields_.device_class, fields_.subclass, fields_.protocol, kControlPacket,
                   static_cast<unsigned>(configurations_.size()), 0});
    return bytes;
}

CompositeDevice::Answer CompositeDevice::descriptor(const usb::Setup& setup) {
    const auto type = static_cast<std::uint8_t>(setup.value >> 8);
    const std::size_t index = setup.value & 0xFFU;
    switch (type) {
    case kDeviceDescriptor:
        return device_descriptor();
    case kQualifierDescriptor:
        return qualifier_descriptor();
    case kStringDescriptor:
        return texts_.descriptor(setup.index, static_cast<std::uint8_t>(index));
    case kConfigurationDescriptor:
    case kOtherSpeedDescriptor: {
        const bool fast = (speed() == usb::Speed::high) == (type == kConfigurationDescriptor);
        return index < configurations_.size()
                   ? Answer(configurations_[index].descriptor(type, fast ? usb::Speed::high
                                                                         : usb::Speed::full))
                   : std::nullopt;
    }
    default:
        return std::nullopt;
    }
}

CompositeDevice::Answer CompositeDevice::set_address() {
    if (active_ == nullptr) {
        enter(DeviceState::addressed);
    }
    return Bytes{};
}

CompositeDevice::Answer CompositeDevice::set_configuration(std::uint16_t value) {
    const auto found = std::find_if(
        configurations_.begin(), configurations_.end(),
        [&](const Configuration& configuration) { return configuration.options.value == value; });
    if (value != 0 && found == configurations_.end()) {
        return std::nullopt;
    }
    const bool was_configured = active_ != nullptr;
    disable();
    const bool enabled = value == 0 || enable(*found);
    if (value != 0 && enabled) {
        enter(DeviceState::configured);
    } else if (was_configured) {
        enter(DeviceState::addressed);
    }
    return enabled ? Answer(Bytes{}) : std::nullopt;
}

CompositeDevice::Answer CompositeDevice::set_interface(const usb::Setup& setup) {
    Function* function = function_of(setup);
    const bool restarted = function != nullptr && setup.value == 0 && function->enable(speed());
    return restarted ? Answer(Bytes{}) : std::nullopt;
}

CompositeDevice::Answer CompositeDevice::status(const usb::Setup& setup) const {
    const std::uint8_t attributes = active_ == nullptr ? 0 : active_->options.attributes;
    unsigned bits = 0;
    if (recipient_of(setup) == kDevice) {
        bits = ((attributes & kSelfPoweredDevice) != 0 ? 1U : 0U) | (remote_wakeup_ ? 2U : 0U);
    } else if (recipient_of(setup) == kInterface && function_of(setup) == nullptr) {
        return std::nullopt;
    } else if (recipient_of(setup) == kEndpoint && (setup.index & 0xFU) != 0) {
        const Endpoint* found = find_endpoint(setup.index);
        if (found == nullptr) {
            return std::nullopt;
        }
        bits = found->pipe().halted() ? 1 : 0;
    }
    Bytes bytes;
    append_word(bytes, bits);
    return bytes;
}

CompositeDevice::Answer CompositeDevice::halt(std::uint16_t index, bool halted) {
    if ((index & 0xFU) == 0) { // a halt of endpoint 0 ends with the next request
        return Bytes{};
    }
    const Endpoint* found = find_endpoint(index);
    if (found == nullptr) {
        return std::nullopt;
    }
    found->pipe().halt(halted);
    return Bytes{};
}

CompositeDevice::Answer CompositeDevice::set_feature(const usb::Setup& setup, bool set) {
    if (recipient_of(setup) == kEndpoint) {
        return setup.value == kEndpointHalt ? halt(setup.index, set) : std::nullopt;
    }
    const bool can_wake = active_ != nullptr && (active_->options.attributes & kWakesHost) != 0;
    if (setup.value != kRemoteWakeup || !can_wake) {
        return std::nullopt;
    }
    remote_wakeup_ = set;
    return Bytes{};
}

} // namespace vb::gadget
