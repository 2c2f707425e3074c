#pragma once
// What a host has to do with a device from one reset of the bus to the next.

#include "host/disk.h"
#include "host/enumeration.h"
#include "host/hid_interface.h"

namespace vb::host {

// The host's wishes, and what it remembers whatever device comes and goes.
struct Desk {
    Board& board;
    std::string name;
    HidInput input;
    std::optional<std::int64_t> configure_after; // nanoseconds; nothing: never
    std::int64_t disk_wait;
    std::uint64_t disk_jobs = 0;

    void note(const Json& details) const;
};

class Session {
  public:
    enum class State { attached, addressed, configured, failed };
    // The device cannot be brought up.
    using Failed = std::function<void(const std::string& error)>;

    Session(Desk& desk, usb::Device& device, std::uint8_t address, Failed failed);

    void start() { enumeration_.start(); }
    // The end of it. It must not be destroyed before all that is under way has returned.
    void end(bool device_gone);
    // The host has changed its mind about when to configure.
    void configure_in_time();
    void suspend();
    void resume();

    State state() const { return state_; }
    bool suspended() const { return suspended_; }
    // False where no interface has lamps.
    bool send_locks();
    Disk* disk() const { return disk_.get(); }
    Json show() const;
    Json fields() const;

  private:
    void enumerated(const std::string& error);
    void configure();
    void start_interfaces();

    Desk& desk_;
    std::shared_ptr<Wire> wire_;
    Enumeration enumeration_;
    Failed failed_;
    State state_ = State::attached;
    bool suspended_ = false;
    std::uint64_t intent_ = 0; // which wish to configure counts
    std::vector<std::unique_ptr<HidInterface>> hid_;
    std::unique_ptr<Disk> disk_;
};

} // namespace vb::host
