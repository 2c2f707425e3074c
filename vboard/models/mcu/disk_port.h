#pragma once
// The disk interface of the MCU's USB device. It knows no command: what the host sends goes to the
// processor, command wrappers and data apart, and what the processor replies goes to the host, a
// packet of the bridge as a packet of the bus.
//
// - Data follow a wrapper that announces some, until all are there or a packet is short.
// - A new command drops what is left of the reply to the one before.

#include "models/gadget/function.h"
#include "models/mcu/uplink.h"

namespace vb::mcu {

class DiskPort : public gadget::Function {
  public:
    explicit DiskPort(Uplink& uplink) : uplink_(uplink) {}

    bool enabled() const { return enabled_; }
    bool has_room() const;
    void reply(Bytes part);
    // There is room for what the host sends.
    void take_more();

    const std::string& name() const override { return name_; }
    std::string node() const override { return {}; }
    int bind(gadget::Allocation& allocation) override;
    void unbind() override {}
    bool enable(usb::Speed speed) override;
    void disable() override;
    Bytes descriptors(usb::Speed speed) const override;
    std::optional<Bytes> control(const usb::Setup& setup, ByteView data) override;

  private:
    void send();
    void take_command();
    void take_data();
    void drop_reply();

    std::string name_ = "disk";
    Uplink& uplink_;
    std::uint8_t interface_ = 0;
    bool enabled_ = false;
    bool taking_ = false;
    bool sending_ = false;
    gadget::InPipe in_{[this] { send(); }};
    gadget::OutPipe out_{[this] { take_more(); }};
    std::uint32_t wanted_ = 0; // data of the current command that have not come yet
    std::deque<Bytes> reply_;
    std::size_t sent_ = 0; // of its first part
    std::size_t kept_ = 0; // bytes of all parts
};

} // namespace vb::mcu
