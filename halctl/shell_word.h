#pragma once
// Texts that the library hands to a shell as they stand.

#include <CLI/CLI.hpp>

#include <string>

namespace halctl {

// The text as one word of a shell's command line, whatever characters it has: quoted where that is
// needed.
std::string shell_word(const std::string& text);

// Lets pass names of which a shell and a tool make nothing else.
CLI::Validator is_setting_name();

// Lets pass what a setting can have as its value: a line of text that no tool takes for an option.
CLI::Validator is_setting_value();

} // namespace halctl
