#pragma once
// A host's driver of one HID interface: reads its report descriptor, takes its input reports, sends
// the state of the lamps.

#include "host/descriptors.h"
#include "host/hid_input.h"

#include <deque>

namespace vb::host {

class HidInterface {
  public:
    HidInterface(Board& board, std::string host, Wire& wire, HidInput& input, Interface interface)
        : board_(board),
          host_(std::move(host)),
          wire_(wire),
          input_(input),
          interface_(std::move(interface)) {}

    void start();
    void suspend();
    void resume();
    // Tells a keyboard which lamps are lit. False where it has none.
    bool send_locks();

    Json show() const;
    // Every field of its reports.
    Json fields() const;

  private:
    void read_descriptor();
    void poll();
    void take(const Reply& reply);
    void send_next();
    void note(const Json& details) const;
    std::int64_t interval() const;

    Board& board_;
    std::string host_;
    Wire& wire_;
    HidInput& input_;
    Interface interface_;
    HidDescriptor descriptor_;
    bool ready_ = false; // its descriptor has been read
    bool suspended_ = false;
    bool polling_ = false;
    unsigned failures_ = 0;     // one after another
    std::deque<Bytes> output_;  // reports; the first is under way
    std::uint64_t reports_ = 0; // that came
};

} // namespace vb::host
