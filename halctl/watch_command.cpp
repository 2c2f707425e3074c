#include "watch_command.h"

#include "exit_codes.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

namespace halctl {

void add_limits(CLI::App& command, WatchLimits& limits) {
    command
        .add_option("--count", limits.count,
                    "End after so many events; exit code 1 if --timeout comes first")
        ->check(CLI::Range(1U, 1'000'000'000U));
    command.add_option("--timeout", limits.seconds, "End after so many seconds")
        ->check(CLI::Range(0.001, 1e6));
}

void print_event(const Output& output, EventTime time, const Json& fields, std::string_view text) {
    const auto micros = std::chrono::time_point_cast<std::chrono::microseconds>(time);
    const auto since_1970 = micros.time_since_epoch().count();
    Json object = {{"time", static_cast<double>(since_1970) / 1e6}};
    object.update(fields);
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    output.print(object, fmt::format("{:%H:%M:%S}.{:06}  {}", fmt::localtime(seconds),
                                     since_1970 % 1'000'000, text));
}

int end_of_watch(std::string_view what, const WatchLimits& limits, WatchEnd end, unsigned seen,
                 unsigned long lost) {
    if (lost > 0) {
        fmt::print(stderr, "halctl: {}: {} events came too fast to be printed\n", what, lost);
    }
    if (end == WatchEnd::timeout && limits.count > 0) {
        fmt::print(stderr, "halctl: {}: {} of {} events came within {} s\n", what, seen,
                   limits.count, limits.seconds);
        return kExitFailure;
    }
    return kExitDone;
}

} // namespace halctl
