#pragma once
// What hands do: reports of a keyboard, two mice and a touch screen.

#include <usb_carrier.h>

#include <array>
#include <string>

namespace usb {

// All devices that there are, with the IDs of their reports.
extern const hal_hid_info kDevices;

class Hands {
  public:
    explicit Hands(const Carrier& carrier) : carrier_(carrier) {}

    // On a US keyboard; what has no key there is left out. These return false where a report does
    // not get to the host.
    bool type(const std::string& text);
    bool move_both_mice();
    bool drag_two_fingers();

  private:
    template <std::size_t Size>
    bool send(hal_hid_dev dev, std::array<uint8_t, Size> report);
    bool touch(bool down, unsigned step);

    const Carrier& carrier_;
};

} // namespace usb
