#pragma once
// The MCU itself: three lines decide whether it runs, a mailbox is its way to the processor.
//
// - It runs while power and reset are high, after its boot time. Where the programming line is low
//   when it leaves reset, its loader runs, which answers nothing.
// - What it had is forgotten when it stops: packets, USB, function info. Numbers begin at 1 again.
// - The queue for the processor has room for 64 packets; what the host's disk driver sends waits
//   for room, all else always has it. 16 reports of each HID interface and 16 KiB of disk replies
//   wait for the host; a packet beyond those waits in the processor's SG_IO.

#include "models/mcu/bridge_disk.h"
#include "models/mcu/outbox.h"
#include "models/mcu/usb_side.h"

namespace vb::mcu {

class Chip : public Mailbox, public Uplink {
  public:
    enum class Input { power, reset, program };
    enum class State { off, reset, booting, loader, running };

    struct Wiring {
        usb::Socket* socket;
        std::function<void(bool level)> interrupt;
        std::function<void()> go_on; // the processor's commands may be tried again
        std::int64_t boot_time;
    };

    Chip(Board& board, Wiring wiring);

    // --- its pins ---
    void set(Input input, bool level);
    void host_power(bool on) { usb_.power(on); }

    // --- the mailbox ---
    bool ready() const override { return state_ == State::running; }
    std::optional<Bytes> fetch() override;
    bool take(ByteView block) override;

    // --- its own interfaces ---
    bool has_room() const override { return outbox_.has_room(); }
    void send(Type type, Bytes value) override;
    void go_on() override { wiring_.go_on(); }

    // --- what can go wrong with it ---
    void cut_power(bool cut);
    void hang(bool hangs);
    Outbox& outbox();
    // Without a word in the trace for each.
    void flood(const Packet& packet, unsigned times);
    Json show() const;

  private:
    bool powered() const { return levels_[0] && !cut_; }
    void look_at_pins(bool was_up);
    void stop();
    void trace(const char* state);
    void trace(const char* direction, const Packet& packet);

    Board& board_;
    Wiring wiring_;
    std::array<bool, 3> levels_{};
    bool cut_ = false;
    bool hangs_ = false;
    State state_ = State::off;
    std::uint64_t boot_ = 0; // the timer
    Outbox outbox_;
    UsbSide usb_;
    std::uint64_t taken_ = 0;
    std::uint64_t fetched_ = 0;
};

} // namespace vb::mcu
