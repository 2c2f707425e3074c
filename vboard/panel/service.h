#pragma once
// What the panel answers a page, whatever carries question and answer.

#include "client/client.h"

#include <filesystem>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace vb::panel {

struct Reply {
    int status;
    std::string body; // JSON
};

Reply failed(int status, const std::string& error);

class Service {
  public:
    // `images` is the folder of images of sticks, if there is one.
    Service(int launcher, std::optional<std::filesystem::path> images)
        : launcher_(launcher), images_(std::move(images)) {}

    // Asks the board a question, as the control protocol has it. 400 where that is none or wrong,
    // 409 where the board refuses, 503 where there is none.
    Reply ask(const std::string& question_text) const;
    // Every verb of the board.
    Reply verbs() const;
    // The files of the folder.
    Reply images() const;

  private:
    bool follows(Client& board, const std::string& verb) const;

    int launcher_;
    std::optional<std::filesystem::path> images_;
    mutable std::mutex mutex_;
    mutable std::optional<std::set<std::string>> following_; // verbs; the same at each start
};

} // namespace vb::panel
