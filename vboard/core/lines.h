#pragma once
// The electrical side of GPIO lines: a bank of numbered lines with levels, and wires between them.
// Which program may set a line, and who is told of an edge, is the business of the models.

#include "core/json.h"

#include <functional>
#include <string>
#include <vector>

namespace vb {

class LineBank {
  public:
    using Watcher = std::function<void(unsigned line, bool level)>;
    // Told of every change, for the trace: the line, its new level, who set it.
    using Reporter = std::function<void(unsigned line, bool level, const char* by)>;

    LineBank(std::string name, unsigned count, Reporter reporter)
        : name_(std::move(name)),
          levels_(count, false),
          line_watchers_(count),
          reporter_(std::move(reporter)) {}

    const std::string& name() const { return name_; }
    unsigned count() const { return static_cast<unsigned>(levels_.size()); }
    bool level(unsigned line) const { return levels_.at(line); }

    // `by` says who: "program", "outside" or "wire". A level that is there already changes nothing.
    void set(unsigned line, bool level, const char* by);

    // The level a line has when the board starts: no change, nobody is told.
    void preset(unsigned line, bool level) { levels_.at(line) = level; }

    // Called after every change of any line, or of one line.
    void watch_all(Watcher watcher) { watchers_.push_back(std::move(watcher)); }
    void watch(unsigned line, Watcher watcher) {
        line_watchers_.at(line).push_back(std::move(watcher));
    }

  private:
    std::string name_;
    std::vector<bool> levels_;
    std::vector<Watcher> watchers_;
    std::vector<std::vector<Watcher>> line_watchers_;
    Reporter reporter_;
};

class Board;

// Offers a bank of so many lines to all of the board.
LineBank& add_lines(Board& board, const std::string& name, unsigned count);
// The bank and number of a line written "bank:line"; VerbError where there is no such line.
std::pair<LineBank*, unsigned> line_at(Board& board, const std::string& place);
// Joins two lines: `to` follows `from`. Each is written "bank:line".
void wire(Board& board, const std::string& from, const std::string& to);

} // namespace vb
