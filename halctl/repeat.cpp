#include "repeat.h"

#include "watch.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

namespace halctl {

void add_repeat(CLI::App& command, RepeatOptions& options) {
    CLI::Option* watch =
        command.add_flag("--watch", options.watch, "Go on, and show each change, until Ctrl-C");
    command.add_option("--interval", options.interval, "With --watch: seconds between readings")
        ->check(CLI::Range(0.01, 3600.0))
        ->needs(watch);
    command.add_option("--timeout", options.seconds, "With --watch: end after so many seconds")
        ->check(CLI::Range(0.001, 1e6))
        ->needs(watch);
}

int repeat(Output& output, const RepeatOptions& options,
           const std::function<std::optional<Reading>()>& take) {
    struct Never {};
    const Watch<Never> watch; // for the signal: nothing is ever posted
    const bool in_place = options.watch && !output.json() && isatty(STDOUT_FILENO) == 1;
    Json shown;
    double left = options.seconds > 0 ? options.seconds : 1e9;
    while (true) {
        const std::optional<Reading> reading = take();
        if (!reading) {
            return kExitFailure;
        }
        if (in_place) {
            fmt::print("\r{}\033[K", reading->text);
            std::fflush(stdout);
        } else if (reading->object != shown) {
            output.print(reading->object, reading->text);
            shown = reading->object;
        }
        if (!options.watch) {
            return kExitDone;
        }
        const double pause = std::min(options.interval, left);
        const WatchEnd end = watch.run({0, pause}, [](Never) { return true; });
        left -= pause;
        if (end == WatchEnd::signal || left <= 0) {
            break;
        }
    }
    if (in_place) {
        fmt::print("\n");
    }
    return kExitDone;
}

} // namespace halctl
