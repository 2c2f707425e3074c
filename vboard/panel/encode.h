#pragma once
// Bytes as browsers take them.

#include <string>

namespace vb::panel {

std::string base64_of_hex(const std::string& digits);

} // namespace vb::panel
