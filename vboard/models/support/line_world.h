#pragma once
// What the world outside can do to a driver's lines and see of them: the same for every driver.

#include "core/board.h"
#include "core/lines.h"
#include "core/settings.h"

namespace vb {

// A driver of lines as the world asks about it.
class LineDriver {
  public:
    LineDriver() = default;
    virtual ~LineDriver() = default;
    LineDriver(const LineDriver&) = delete;
    LineDriver& operator=(const LineDriver&) = delete;

    virtual bool is_output(unsigned line) const = 0;
    // Configured, exported: worth listing.
    virtual bool in_use(unsigned line) const = 0;
    // Number, configuration and level.
    virtual Json show_line(unsigned line) const = 0;
    // Whatever the list of lines is to tell besides.
    virtual void add_to_list(Json&) const {}
};

// Adds NAME.drive, .show, .list, .watch and .wire, NAME being the bank's.
void add_line_verbs(Board& board, LineBank& bank, const LineDriver& driver);

// Setting "levels": an object, line number to the level the outside gives it at the start.
void set_levels(LineBank& bank, Settings& settings);

// A pin of a chip. Setting `name`: the line it hangs on, "bank:number", of a model that stands
// before this one; with none it is high. Tells the pin's level now and after every change.
void follow_line(Board& board, Settings& settings, const std::string& name,
                 const std::function<void(bool level)>& told);

} // namespace vb
