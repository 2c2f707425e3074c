#pragma once
// What the MCU's USB interfaces need of the rest of it.

#include "models/mcu/packet.h"

namespace vb::mcu {

class Uplink {
  public:
    Uplink() = default;
    virtual ~Uplink() = default;
    Uplink(const Uplink&) = delete;
    Uplink& operator=(const Uplink&) = delete;

    // Whether a packet for the processor has room. What comes without waiting for it has, always.
    virtual bool has_room() const = 0;
    virtual void send(Type type, Bytes value) = 0;
    // A packet of the processor's that had no room may have it now.
    virtual void go_on() = 0;
};

} // namespace vb::mcu
