#pragma once
// Commands that print a value, and with --watch go on printing it: in place on a terminal, as a
// line whenever it has changed elsewhere.

#include "tool.h"

#include <functional>
#include <string>

namespace halctl {

struct Reading {
    Json object;
    std::string text; // one line
};

struct RepeatOptions {
    bool watch = false;
    double interval = 1; // seconds
    double seconds = 0;  // --watch ends after so long; 0: no limit
};

// Adds --watch, --interval and --timeout.
void add_repeat(CLI::App& command, RepeatOptions& options);

// Takes a reading and prints it, once or until a signal or the time-out; returns the exit code.
// `take` returns none where it failed, and has said why: that ends it.
int repeat(Output& output, const RepeatOptions& options,
           const std::function<std::optional<Reading>()>& take);

} // namespace halctl
