#pragma once
// What a board keeps over its restarts: files by name. They lie in a folder of the user's, or in
// memory, where they vanish with the launcher, however that ends.

#include "core/unique_fd.h"

#include <map>
#include <string>

namespace vb {

class KeptState {
  public:
    // An empty `folder` stands for memory; a folder is made where there is none, and is this
    // board's alone. std::system_error where it cannot be.
    explicit KeptState(const std::string& folder);

    // For the board's process: the file of this name, empty where it is new. std::system_error
    // where it cannot be had.
    UniqueFd open(const std::string& name);

    // For the launcher, after a start of the board has ended: takes what that made in memory.
    void collect();

  private:
    UniqueFd open_in_memory(const std::string& name);

    UniqueFd folder_;
    std::map<std::string, UniqueFd> files_; // in memory
    UniqueFd to_launcher_;
    UniqueFd from_board_;
};

} // namespace vb
