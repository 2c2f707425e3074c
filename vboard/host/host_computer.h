#pragma once
// A USB host computer: one socket, in which a device may be.
//
// It does what a host does and nothing more. It finds a device attached, resets the bus, reads
// descriptors and configures; takes what the device's HID interfaces report as keys, pointers and
// fingers; drives its disk. Its owner steers it with the verbs of its name, pulls the cable and
// puts it in again.

#include "core/settings.h"
#include "host/session.h"

namespace vb::host {

class HostComputer final : public usb::Socket {
  public:
    HostComputer(Board& board, Settings& settings);

    bool attach(usb::Device& device) override;
    void detach(usb::Device& device) override;
    bool powered() const override { return plugged_; }
    void on_power(std::function<void(bool powered)> listener) override;

    const std::string& name() const { return desk_.name; }

    // --- for the verbs, which throw VerbError where it is not the time for them ---
    Json show() const;
    void plug(bool plugged);
    void reset();
    void suspend();
    void resume();
    void configure(std::optional<std::int64_t> after);
    void set_lock(unsigned lamp, bool lit);
    HidInput& input() { return desk_.input; }
    Json fields() const;
    Disk& disk() const;

  private:
    void begin_session();
    void end_session(bool device_gone);
    void session_failed(const std::string& error);
    Session& awake_session() const;

    Desk desk_;
    bool plugged_;
    usb::Device* device_ = nullptr; // attached, whether plugged or not
    std::shared_ptr<Session> session_;
    unsigned failures_ = 0; // one after another, of the device
    std::uint8_t last_address_ = 0;
    std::vector<std::function<void(bool powered)>> power_listeners_;
};

} // namespace vb::host
