#pragma once
// Uevents: what the kernel tells of its objects over netlink, told of the board's. Programs listen
// as they do on a machine (libudev, `udevadm monitor --kernel`, a socket of their own) and hear
// only what is sent in the board's own network namespace.

#include "core/trace.h"
#include "core/unique_fd.h"

#include <map>
#include <string>

namespace vb {

class Uevents {
  public:
    using Values = std::map<std::string, std::string>;

    explicit Uevents(Trace& trace) : trace_(trace) {}

    // Tells of an object: "ACTION=" and "DEVPATH=" come first, then the values; the kernel adds
    // "SEQNUM=". What it tells of has to be there already. VerbError where it cannot be sent.
    void send(const std::string& action, const std::string& path, const Values& values);

    // The same of any texts, a line each; the first is the header, "ACTION@DEVPATH".
    void send_lines(std::string lines);

  private:
    Trace& trace_;
    UniqueFd socket_;
};

} // namespace vb
