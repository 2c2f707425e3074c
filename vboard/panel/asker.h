#pragma once
// The one who looks at the board for all pages, ten times a second while there are any.

#include "client/client.h"
#include "panel/follower.h"
#include "panel/pages.h"
#include "panel/views.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace vb::panel {

class Asker {
  public:
    Asker(int launcher, Pages& pages) : launcher_(launcher), pages_(pages) {}

    [[noreturn]] void run();

  private:
    struct Known {
        View view;
        std::string answer; // as the board gave it; empty: it was not asked yet
        std::string value;  // as pages get it
    };

    void look();
    void meet_board();
    void lose_board();
    Follower::Batch take_events();
    void ask_views(const Follower::Batch& batch);
    bool is_due(const Known& known, const Follower::Batch& batch) const;
    void note(Known& known, std::string answer);
    void tell(const Follower::Batch& batch);
    std::string state(bool whole) const;

    const int launcher_;
    Pages& pages_;
    std::optional<Client> board_; // while it lives
    Follower follower_;
    unsigned starts_ = 0;
    bool is_new_start_ = false; // the board has started before the pages' eyes
    bool board_changed_ = true;
    std::vector<Known> known_;
    std::set<std::string> changed_; // names of views
    unsigned looks_ = 0;
};

} // namespace vb::panel
