#pragma once
// How `halctl` and `vboard` lay out their help: under a title rows, each a name and what is to be
// said of it. Manual pages and completion are made of that.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vb {

using HelpRows = std::vector<std::pair<std::string, std::string>>;

// With an empty line before it; of no rows nothing.
std::string help_rows(std::string_view title, const HelpRows& rows);

} // namespace vb
