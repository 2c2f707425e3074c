#pragma once
// The table of all models, and the board file that says which of them a board has.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

// The board file of the standard board, as it is compiled in.
extern const char kDefaultBoard[];

// Puts the models and wires of a board file onto a board:
//   {"name": TEXT, "models": [{"model": KIND, SETTING: VALUE...}...],
//    "wires": [{"from": "bank:line", "to": "bank:line"}...]}
// SettingsError says what is wrong with the file, and where.
void build_board(Board& board, const std::string& board_file_text);

// The kinds of models there are: "model" (its name), "about", "settings" (in a line) and "rows"
// (the same, each with more about it).
Json describe_models();

// The same for programs: each "model", "about" and "settings", a list of "name", "required",
// "default", "about" and, where it has objects in it, "each".
Json models_as_data();

} // namespace vb
