#include "core/i2c_bus.h"

#include "core/board.h"
#include "core/faults.h"

#include <fmt/format.h>

#include <cerrno>

namespace vb {

namespace {

constexpr std::uint8_t kMostCounted = 32;

int read_counted(I2cDevice& device, Bytes& bytes) {
    const std::size_t behind = bytes.empty() ? 0 : bytes.size() - 1;
    bytes = device.read(1);
    const std::uint8_t count = bytes.at(0);
    if (count == 0 || count > kMostCounted) {
        return EPROTO;
    }
    const Bytes rest = device.read_on(count + behind);
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return 0;
}

} // namespace

bool I2cBus::attach(unsigned address, I2cDevice& device) {
    return devices_.emplace(address, &device).second;
}

void I2cBus::mute(unsigned address, bool muted) {
    if (muted) {
        muted_.insert(address);
    } else {
        muted_.erase(address);
    }
}

I2cDevice* I2cBus::find(const I2cMessage& message) const {
    const auto found = devices_.find(message.address);
    if (message.ten_bit || found == devices_.end() || muted_.contains(message.address) ||
        !found->second->answers()) {
        return nullptr;
    }
    return found->second;
}

int I2cBus::pass(I2cMessage& message) {
    I2cDevice* device = find(message);
    if (device == nullptr) {
        return ENXIO;
    }
    if (!message.reads) {
        device->write(message.bytes);
        return 0;
    }
    if (message.counted) {
        return read_counted(*device, message.bytes);
    }
    message.bytes = device->read(message.bytes.size());
    return 0;
}

int I2cBus::transfer(std::span<I2cMessage> messages) {
    for (I2cMessage& message : messages) {
        const int error = pass(message);
        Json event = {{"bus", number_},
                      {"address", message.address},
                      {"direction", message.reads ? "read" : "write"}};
        if (error == 0 || !message.reads) {
            event["bytes"] = to_hex(message.bytes);
        }
        if (error != 0) {
            event["error"] = error_name(error);
        }
        trace_.add("i2c", event);
        if (error != 0) {
            return error;
        }
    }
    return 0;
}

I2cBus& i2c_bus(Board& board, unsigned number) {
    const std::string name = std::to_string(number);
    if (auto* bus = board.parts().find<I2cBus>(name)) {
        return *bus;
    }
    return board.parts().offer(name, std::make_shared<I2cBus>(number, board.trace()));
}

} // namespace vb
