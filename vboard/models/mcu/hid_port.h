#pragma once
// A HID interface of the MCU's USB device: reports of the processor go to the host by its interrupt
// endpoint, those of the host come by SET_REPORT.

#include "models/gadget/function.h"
#include "models/mcu/firmware.h"
#include "models/mcu/uplink.h"

namespace vb::mcu {

class HidPort : public gadget::Function {
  public:
    HidPort(HidPersonality personality, Uplink& uplink);

    // The host has configured it.
    bool enabled() const { return enabled_; }
    bool has_room() const;
    void report(ByteView report);

    const std::string& name() const override { return name_; }
    std::string node() const override { return {}; }
    int bind(gadget::Allocation& allocation) override;
    void unbind() override {}
    bool enable(usb::Speed speed) override;
    void disable() override;
    Bytes descriptors(usb::Speed speed) const override;
    std::optional<Bytes> control(const usb::Setup& setup, ByteView data) override;

  private:
    Bytes hid_descriptor() const;
    void send();

    std::string name_;
    HidPersonality personality_;
    Uplink& uplink_;
    std::uint8_t interface_ = 0;
    std::uint8_t protocol_ = 1;
    std::uint8_t idle_ = 0;
    bool enabled_ = false;
    gadget::InPipe in_{[this] { send(); }};
    std::deque<Bytes> reports_; // wait for the host
};

} // namespace vb::mcu
