#pragma once
// Bytes as people write them: "deadbeef".

#include <CLI/CLI.hpp>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace halctl {

using Bytes = std::vector<std::uint8_t>;

std::string to_hex(std::span<const std::uint8_t> bytes);

// The bytes of a text that is_hex has let pass.
Bytes from_hex(const std::string& text);

// Lets pass pairs of hexadecimal digits, as many as `least` to `most` bytes.
CLI::Validator is_hex(std::size_t least, std::size_t most);

} // namespace halctl
