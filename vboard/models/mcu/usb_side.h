#pragma once
// The MCU as a USB device: what the host finds in its socket after the processor has told the MCU
// to attach, and where the processor's packets go from there.
//
// The host's socket may be taken by another port of the board. Then nobody sees this one attach;
// the processor has to try again.

#include "models/gadget/composite_device.h"
#include "models/mcu/disk_port.h"
#include "models/mcu/hid_port.h"

namespace vb {
class Board;
}

namespace vb::mcu {

class UsbSide {
  public:
    // Without a socket it attaches to nothing.
    UsbSide(Board& board, usb::Socket* socket, Uplink& uplink);
    UsbSide(const UsbSide&) = delete;
    UsbSide& operator=(const UsbSide&) = delete;
    ~UsbSide() = default;

    // Whether there is room for a packet; where not, it has to wait.
    bool has_room_for(const Packet& packet) const;
    // Does what a packet says.
    void take(const Packet& packet);
    // The firmware starts again, and has let go of the host.
    void reset();
    // Whether the host powers the bus.
    void power(bool on);
    // There is room for what the host sends.
    void take_more();
    Json show() const;

  private:
    void control(ByteView value);
    void set_info(ByteView value);
    void attach(bool with_disk);
    void detach();
    void report(HidPort* port, ByteView report);
    void reply(const Packet& packet);
    HidPort* port_of(std::uint32_t type) const;
    void follow(gadget::DeviceState state);
    void trace(const Json& details);

    Board& board_;
    usb::Socket* socket_;
    Uplink& uplink_;
    FunctionInfo info_;
    usb::Speed speed_ = usb::Speed::high;
    gadget::DeviceFields fields_;
    gadget::CompositeDevice device_{fields_, speed_};
    gadget::Strings texts_;
    gadget::Strings no_texts_{{}};
    bool attached_ = false;
    std::shared_ptr<HidPort> keyboard_; // while attached, as the others
    std::shared_ptr<HidPort> mouse_;
    std::shared_ptr<HidPort> touch_;
    std::shared_ptr<DiskPort> disk_;
};

} // namespace vb::mcu
