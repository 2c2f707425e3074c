#pragma once
// What every watch command has: its limits as options, its time stamps, its last words.

#include "tool.h"
#include "watch.h"

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <variant>

namespace halctl {

using EventTime = std::chrono::system_clock::time_point;

// Adds --count and --timeout.
void add_limits(Command& command, WatchLimits& limits);

// Prints one event with its time in front: "time" in JSON, in seconds since 1970.
void print_event(const Output& output, EventTime time, const Json& fields, std::string_view text);

// How a watch went.
struct WatchReport {
    WatchEnd end = WatchEnd::count;
    unsigned seen = 0;
    unsigned long lost = 0;
};

// Says what was missed, and returns the exit code.
int end_of_watch(const Tool& tool, std::string_view what, const WatchLimits& limits,
                 const WatchReport& report);

// --- values that have to be asked for ---

struct Reading {
    Json object;
    std::string text; // one line
};

struct SampleOptions {
    WatchLimits limits;
    double interval = 1; // seconds
};

// Adds --interval, --count and --timeout.
void add_sampling(Command& command, SampleOptions& options);

// Takes a reading at each interval and prints it when it has changed, on a terminal in place.
// `take` gives the exit code where it failed, and has said why: that ends it.
int watch_readings(const Tool& tool, std::string_view what, const SampleOptions& options,
                   const std::function<std::variant<Reading, int>()>& take);

// The same once.
int print_reading(const Tool& tool, const std::variant<Reading, int>& taken);

} // namespace halctl
