#pragma once
// What every watch command has: its limits as options, its time stamps, its last words.

#include "output.h"
#include "watch.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <string>
#include <string_view>

namespace halctl {

using EventTime = std::chrono::system_clock::time_point;

// Adds --count and --timeout.
void add_limits(CLI::App& command, WatchLimits& limits);

// Prints one event with its time in front: "time" in JSON, in seconds since 1970.
void print_event(const Output& output, EventTime time, const Json& fields, std::string_view text);

// Says what was missed, and returns the exit code.
int end_of_watch(std::string_view what, const WatchLimits& limits, WatchEnd end, unsigned seen,
                 unsigned long lost);

} // namespace halctl
