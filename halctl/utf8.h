#pragma once
// Texts of the command line as code points.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace halctl {

// Nothing where the text is no UTF-8.
std::optional<std::vector<std::uint32_t>> code_points(const std::string& text);

} // namespace halctl
