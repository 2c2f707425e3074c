#pragma once
// How a host gets to know a device: reset, address, descriptors, strings.

#include "host/descriptors.h"

namespace vb::host {

struct DeviceFacts {
    DeviceDescriptor device{};
    Configuration configuration;
    std::string manufacturer;
    std::string product;
    std::string serial;
};

class Enumeration {
  public:
    // `error` is empty where all went well.
    using Done = std::function<void(const std::string& error)>;

    Enumeration(Wire& wire, std::uint8_t address, Done done)
        : wire_(wire), address_(address), done_(std::move(done)) {}

    void start();
    const DeviceFacts& facts() const { return facts_; }

  private:
    using Next = std::function<void(ByteView bytes)>;

    void get(std::uint8_t type, std::uint8_t index, std::uint16_t language, std::size_t length,
             const char* what, const Next& next);
    void read_beginning();
    void set_address();
    void read_device();
    void read_configuration();
    void read_whole_configuration(std::uint16_t length);
    void read_languages();
    void read_strings(std::uint16_t language, std::size_t number);

    Wire& wire_;
    std::uint8_t address_;
    Done done_;
    DeviceFacts facts_;
};

} // namespace vb::host
