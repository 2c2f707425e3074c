#pragma once
// Sockets by abstract name: they leave nothing in any file system, and a network namespace has
// its own set of names.

#include "core/unique_fd.h"

#include <string>

namespace vb {

// The name under which the control socket listens inside a board.
inline constexpr char kInnerControlName[] = "vboard";
// And outside: this, then the launcher's process number.
inline constexpr char kOuterControlPrefix[] = "vboard/";

// Both set errno and return an empty descriptor where they fail.
UniqueFd listen_at(const std::string& abstract_name);
UniqueFd connect_to(const std::string& abstract_name);

// A connected stream that carries one JSON text a line.
class LineStream {
  public:
    explicit LineStream(UniqueFd socket) : socket_(std::move(socket)) {}

    // False where the other end is gone.
    bool send(std::string line);
    bool receive(std::string& line);
    // The same without waiting.
    enum class Came { line, nothing, end };
    Came take(std::string& line) { return take(line, false); }
    int descriptor() const { return socket_.get(); }

  private:
    Came take(std::string& line, bool wait);

    UniqueFd socket_;
    std::string received_;
};

} // namespace vb
