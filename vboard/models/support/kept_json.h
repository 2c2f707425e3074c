#pragma once
// A value that is there again at the next start of the board, for models whose state is small.

#include "core/board.h"

namespace vb {

class KeptJson {
  public:
    // `name` is the name of its file among what the board keeps. std::runtime_error where that
    // holds something else.
    KeptJson(const Board& board, const std::string& name, Json at_first);

    const Json& value() const { return value_; }
    // Stored when it returns; std::system_error where it cannot be.
    void store(Json value);

  private:
    UniqueFd file_;
    Json value_;
};

} // namespace vb
