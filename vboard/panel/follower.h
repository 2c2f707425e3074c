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

    // From now on.
    void start(int launcher);
    void stop() { client_.reset(); }
    bool runs() const { return client_.has_value(); }

    // What has come; `newest` is the number of the board's newest event. ClientError where the
    // board is gone.
    Batch take(int launcher, std::uint64_t newest);

  private:
    void sort_in(std::string line, Batch& batch);

    std::optional<Client> client_;
    std::uint64_t last_ = 0; // the number of the last event that came; 0: none did
};

} // namespace vb::panel
