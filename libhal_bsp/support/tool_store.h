// Settings that a command-line tool keeps: how modules ask such a tool and tell it.
#pragma once

#include "support/caller.h"
#include "support/command.h"

#include <array>
#include <cstdint>
#include <optional>

namespace hal {

inline constexpr int32_t kToolDone = 0;
inline constexpr int32_t kToolFailed = -35;

// A command of at most 127 characters.
using ToolCommand = CommandText<128>;

// The first line of a tool's output, terminated, without the characters that end it.
using ToolLine = std::array<char, 127>;

// Nothing where the command does not fit or cannot be started, which is logged, or where it prints
// nothing.
std::optional<ToolLine> ask_tool(const Caller& caller, const ToolCommand& command);

// Runs the command; kToolFailed where it does not fit or cannot be started, which is logged.
int32_t tell_tool(const Caller& caller, const ToolCommand& command, CommandEnd end);

// Whether there is a buffer for a value; logs where there is none.
bool has_buffer(const Caller& caller, const char* value);

} // namespace hal
