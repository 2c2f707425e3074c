#pragma once
// The device's side of an endpoint: where a host's transfers wait for the driver, and the driver's
// data for the host.

#include "host/usb.h"

#include <deque>
#include <functional>

namespace vb::gadget {

// What both directions have.
class Pipe {
  public:
    explicit Pipe(std::function<void()> on_transfer) : on_transfer_(std::move(on_transfer)) {}
    virtual ~Pipe() = default;
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    std::uint8_t address() const { return address_; }
    void set_address(std::uint8_t address) { address_ = address; }
    std::size_t packet() const { return packet_; }
    void set_packet(std::size_t packet) { packet_ = packet; }
    bool halted() const { return halted_; }
    virtual void halt(bool halted) { halted_ = halted; }
    // The host's transfers are gone, without an answer.
    virtual void drop() = 0;

  protected:
    // The host has started one: the driver may have something to do.
    void tell() { on_transfer_(); }

  private:
    std::function<void()> on_transfer_;
    std::uint8_t address_ = 0;
    std::size_t packet_ = 64;
    bool halted_ = false;
};

class InPipe : public Pipe {
  public:
    using Pipe::Pipe;

    // The host asks for so many bytes.
    void ask(std::size_t length, usb::Completion completion);
    bool asked() const { return !asked_.empty(); }
    // How the host knows the end of what is sent, where its last packet is a whole one.
    enum class End {
        unmarked, // not at all: its transfer goes on with what comes next
        marked    // by an empty packet
    };
    // Sends what follows after `sent`, packet by packet, as far as the host has asked; true once
    // all is sent. No data is one empty packet.
    bool give(ByteView data, std::size_t& sent, End end = End::unmarked);
    void halt(bool halted) override;
    void drop() override { asked_.clear(); }

  private:
    struct Asked {
        std::size_t length;
        usb::Completion completion;
        Bytes gathered;
    };

    void finish(usb::Status status);

    std::deque<Asked> asked_;
};

class OutPipe : public Pipe {
  public:
    using Pipe::Pipe;

    void offer(ByteView data, usb::Completion completion);
    bool offered() const { return !offered_.empty(); }
    // The next bytes of the host's first transfer, which is done once all of it is taken.
    Bytes take(std::size_t most);
    void halt(bool halted) override;
    void drop() override { offered_.clear(); }

  private:
    struct Offered {
        Bytes data;
        usb::Completion completion;
        std::size_t taken = 0;
    };

    void finish(usb::Status status);

    std::deque<Offered> offered_;
};

} // namespace vb::gadget
