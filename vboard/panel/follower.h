#pragma once
// The one who follows the trace for all pages. What comes waits in its connection until it is
// taken, a batch at each look. A board that tells more than anybody can read is not asked for all
// of it: who is far behind lets go, and follows anew from there.

#include "client/client.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vb::panel {

class Follower {
  public:
    struct Batch {
        std::vector<std::string> events; // JSON texts
        std::uint64_t lost = 0;          // that nobody gets
    };

    // From now on, or with what the board remembers of the time since it started.
    void start(int launcher, bool from_its_start);
    void stop() { client_.reset(); }
    bool runs() const { return client_.has_value(); }

    // What has come; `newest` is the number of the board's newest event. ClientError where the
    // board is gone.
    Batch take(int launcher, std::uint64_t newest);

  private:
    void sort_in(std::string line, Batch& batch);

    std::optional<Client> client_;
    std::vector<std::string> early_;        // what came before it followed
    std::optional<std::uint64_t> expected_; // the number of the next event, where it is known
};

} // namespace vb::panel
