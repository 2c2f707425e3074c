#pragma once
// The USB device port, the SoC's own or the MCU's, for the commands that use it. The library's
// threads end with the program, the gadget in configfs stays, and so does what the MCU does: so a
// command brings the port up by itself, and takes it down again unless it was up before. Of the
// MCU's nothing tells whether it was.

#include "tool.h"
#include "watch.h"

#include <usb_carrier.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halctl::port {

// --- what is there, as the kernel tells it ---

struct State {
    std::string vendor; // "0x1d6b"; empty, like the product: no gadget has been made
    std::string product;
    std::string controller;             // that the gadget is bound to; empty: to none
    std::string connection;             // "configured", as the kernel names it
    std::vector<std::string> functions; // that are in the configuration
    std::optional<int> usbsta;          // the library's mailboxes
    std::optional<int> hidsee;
    std::optional<int> masssee;
};

State look();

// The exit code where the board has no such port, and why has been said.
std::optional<int> missing(const Tool& tool, const std::string& what,
                           const usb::Carrier& carrier = usb::kSocGadget);

// The IDs of the reports, 0 where there is no such device. A device that was made earlier, perhaps
// by another program, keeps its own; the MCU is always told anew.
struct ReportIds {
    std::uint8_t keyboard = 1;
    std::uint8_t absolute_mouse = 2;
    std::uint8_t relative_mouse = 1;
    std::uint8_t touch_screen = 1;
};

ReportIds report_ids(const usb::Carrier& carrier);

// --- having it ---

struct UsbIds {
    std::uint16_t vendor = 0x1D6B; // the Linux Foundation's composite gadget
    std::uint16_t product = 0x0104;
};

// Those that a port has where nothing is said.
UsbIds ids_via(std::string_view way);

// Adds --via.
Parameter& add_way(Command& command, std::string& way);

// Adds --timeout.
Parameter& add_timeout(Command& command, double& seconds);

// Make it before the library starts its threads. What returns an exit code has said why.
class Port {
  public:
    Port(Tool& tool, std::string what, const usb::Carrier& carrier);
    // Takes the port down, unless it was up before or is to stay.
    ~Port();
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    // Attaches it with all its HID devices, with the IDs that it has where none are given.
    std::optional<int> bring_up(const std::optional<UsbIds>& ids);
    // Leaves the port up.
    void keep() { was_up_ = true; }
    bool was_up() const { return was_up_; }

    // Waits until it is so.
    std::optional<int> wait_until(const std::function<bool()>& is_so, double seconds,
                                  const std::string& otherwise);
    // Waits until the host has configured the device and reports can be written.
    std::optional<int> wait_for_host(double seconds);
    // The same without a limit: false when a signal came first.
    bool waited_for_host();
    // Waits until it is so: false when a signal came first.
    bool waited_until(const std::function<bool()>& is_so);
    // The same with a limit and whatever signals come.
    bool waited_for(const std::function<bool()>& is_so, double seconds);

    // Runs a call of the library's on a thread of its own. A signal cancels it, half a second after
    // is_stopping() has become true.
    std::optional<int> run(const std::function<void()>& call);
    // The same: false when a signal came first.
    bool ran(const std::function<void()>& call);
    bool is_stopping() const { return stopping_; }

  private:
    struct Done {};

    bool pause_interrupted();

    Tool& tool_;
    std::string what_;
    const usb::Carrier& carrier_;
    Watch<Done> watch_{false};
    bool was_up_;
    bool touched_ = false;
    std::atomic<bool> stopping_{false};
};

} // namespace halctl::port
