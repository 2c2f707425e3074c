#pragma once
// The board's own /dev/log: what programs send to the system log becomes an event of the trace.

#include "core/board.h"
#include "core/unique_fd.h"

namespace vb {

class SyslogSocket {
  public:
    // Binds a datagram socket at this path; std::system_error where it cannot.
    SyslogSocket(Board& board, const std::string& path);

    // Takes in what has come. Called before every deed on the board, so that a message stands in
    // the trace before whatever its sender did next.
    void catch_up();
    // Watches the socket for the rest of the process's life.
    void serve();

  private:
    void drain();

    Board& board_;
    UniqueFd socket_;
    Bytes buffer_;
};

// Splits "<134>Nov 24 22:03:09 libhal_bsp[12]: text" into priority, ident, pid and text.
Json parse_syslog(std::string_view message);

} // namespace vb
