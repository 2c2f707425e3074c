#include "watch_command.h"

#include "exit_codes.h"
#include "terminal.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <csignal>

namespace halctl {

namespace {

constexpr int kDiedOfPipe = kDiedOfSignal + SIGPIPE;

void print_in_place(const std::string& text) {
    std::fprintf(terminal_out(), "\r%s\033[K", text.c_str());
    std::fflush(terminal_out());
}

} // namespace

void add_limits(Command& command, WatchLimits& limits) {
    command
        .number("--count EVENTS", limits.count,
                "End after so many; exit code 1 if --timeout comes first", 1U, 1'000'000'000U)
        .otherwise("no limit");
    command.real("--timeout SECONDS", limits.seconds, "End after so long", 0.001, 1e6)
        .otherwise("no limit");
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

int end_of_watch(const Tool& tool, std::string_view what, const WatchLimits& limits,
                 const WatchReport& report) {
    if (report.end == WatchEnd::reader_gone) {
        return kDiedOfPipe;
    }
    if (report.lost > 0) {
        tool.output().warn(
            fmt::format("{}: {} events came too fast to be printed", what, report.lost));
    }
    if (report.end == WatchEnd::timeout && limits.count > 0) {
        return tool.failed(what, fmt::format("{} of {} events came within {} s", report.seen,
                                             limits.count, limits.seconds));
    }
    return kExitDone;
}

void add_sampling(Command& command, SampleOptions& options) {
    command.real("--interval SECONDS", options.interval, "Time between readings", 0.01, 3600);
    add_limits(command, options.limits);
}

int watch_readings(const Tool& tool, std::string_view what, const SampleOptions& options,
                   const std::function<std::variant<Reading, int>()>& take) {
    struct Never {};
    Watch<Never> watch; // for the signal, the time and the reader: nothing is ever posted
    const bool in_place = !tool.output().json() && is_terminal(terminal_out());
    WatchReport report;
    Json shown;
    double left = options.limits.seconds > 0 ? options.limits.seconds : 1e9;
    int status = kExitDone;
    while (left > 0) {
        const auto taken = take();
        if (std::holds_alternative<int>(taken)) {
            status = std::get<int>(taken);
            break;
        }
        const auto& reading = std::get<Reading>(taken);
        if (reading.object != shown) {
            ++report.seen;
            shown = reading.object;
            if (!in_place) {
                print_event(tool.output(), std::chrono::system_clock::now(), reading.object,
                            reading.text);
            }
        }
        if (in_place) {
            print_in_place(reading.text);
        }
        if (report.seen == options.limits.count) {
            break;
        }
        const double pause = std::min(options.interval, left);
        report.end = watch.run({0, pause}, [](Never) { return true; });
        if (report.end != WatchEnd::timeout) {
            break;
        }
        left -= pause;
    }
    if (in_place) {
        std::fputs("\n", terminal_out());
    }
    const bool whole = options.limits.count == 0 || report.seen == options.limits.count;
    report.end = whole && report.end == WatchEnd::timeout ? WatchEnd::count : report.end;
    return status != kExitDone ? status : end_of_watch(tool, what, options.limits, report);
}

int print_reading(const Tool& tool, const std::variant<Reading, int>& taken) {
    if (const int* status = std::get_if<int>(&taken)) {
        return *status;
    }
    const auto& reading = std::get<Reading>(taken);
    tool.output().print(reading.object, reading.text);
    return kExitDone;
}

} // namespace halctl
