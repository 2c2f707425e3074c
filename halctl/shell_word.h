#pragma once
// Texts that the library hands to a shell as they stand.

#include "command.h"

#include <string>

namespace halctl {

// The text as one word of a shell's command line, whatever characters it has: quoted where that is
// needed.
std::string shell_word(const std::string& text);

// Each says what is wrong with a word, if anything is, and has its kind in words.
inline constexpr char kInterfaceName[] = "a network interface's name, such as eth0";
Complaint check_interface_name(const std::string& name);

// Names of which a shell and a tool make nothing else.
inline constexpr char kSettingName[] = "a name of letters, digits, '_', '.', ':' and '-'";
Complaint check_setting_name(const std::string& name);

inline constexpr char kSettingValue[] = "a line of text";
Complaint check_setting_value(const std::string& value);

} // namespace halctl
