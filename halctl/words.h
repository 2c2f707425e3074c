#pragma once
// Words of the command line: how they are read as values, and how they are shown when they are
// none.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace halctl {

// The text as it can be shown, whatever it holds: without control characters and what is no UTF-8,
// and without its end where it has many more bytes than `most`.
std::string readable(std::string_view text, std::size_t most);

// A word, readable and in quotes.
std::string in_quotes(std::string_view word);

// Digits, or "0x" and hexadecimal digits, and nothing else; none where it is not that or does not
// fit.
std::optional<std::uint64_t> whole_number(std::string_view word);

// A finite decimal number, "1.5e6" included; none where it is not that.
std::optional<double> real_number(std::string_view word);

} // namespace halctl
