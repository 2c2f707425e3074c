#pragma once
// The device android0: three numbers in which programs leave word for each other, and the uevents
// that say how it is with the host.

#include "serve/attribute.h"

namespace vb {
class Board;
}

namespace vb::gadget {

enum class Connection { disconnected, connected, configured };

class AndroidUsb {
  public:
    explicit AndroidUsb(Board& board);

    // How it is now: told to whoever listens, also where it is the same again.
    void report(Connection connection);
    const char* state() const;

  private:
    void add_number(const std::string& name, int first);

    Board& board_;
    Connection connection_ = Connection::disconnected;
};

} // namespace vb::gadget
