// halctl tbar watch: a T-bar's positions as they come, on a terminal as a bar that moves.
#include "commands/tbar.h"
#include "terminal.h"
#include "watch_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <memory>

namespace halctl::tbar {

namespace {

constexpr std::size_t kBarWidth = 40;

struct Movement {
    EventTime time;
    std::array<std::uint8_t, HAL_TBAR_DATA_SIZE> bytes{};
};

struct WatchArguments {
    std::uint8_t number = 0;
    WatchLimits limits;
};

// The library's callback carries no data of ours.
constinit std::atomic<Watch<Movement>*> movements{nullptr};

void on_data(const std::uint8_t* data) {
    Movement movement{std::chrono::system_clock::now(), {}};
    std::copy_n(data, movement.bytes.size(), movement.bytes.begin());
    movements.load()->post(movement);
}

// Draws over what it drew before.
void draw_bar(const Data& data) {
    const std::size_t filled =
        std::min<std::size_t>(kBarWidth, (data.position * kBarWidth + kHighest / 2) / kHighest);
    const std::string bar = fmt::format("\r[{:#>{}}{:->{}}] {}\033[K", "", filled, "",
                                        kBarWidth - filled, text_of(data));
    std::fputs(bar.c_str(), terminal_out());
    std::fflush(terminal_out());
}

int run_watch(Tool& tool, const WatchArguments& arguments) {
    const bool draws = is_terminal(terminal_out()) && !tool.output().json();
    Watch<Movement> watch;
    movements = &watch;
    const Open tbar(hal_tbar_init(on_data, arguments.number));
    if (!tbar) {
        return failed(tool, "tbar watch", arguments.number);
    }
    tool.library_log().show_errors();
    WatchReport report;
    report.end = watch.run(arguments.limits, [&](const Movement& movement) {
        const Data data = data_of(movement.bytes);
        if (draws) {
            draw_bar(data);
        } else {
            print_event(tool.output(), movement.time, json_of(arguments.number, data),
                        fmt::format("tbar {}  {}", arguments.number, text_of(data)));
        }
        ++report.seen;
        return true;
    });
    if (draws && report.seen > 0) {
        std::fputs("\n", terminal_out());
    }
    report.lost = watch.lost();
    return end_of_watch(tool, "tbar watch", arguments.limits, report);
}

} // namespace

void add_watch(Command& group, Tool& tool) {
    auto arguments = std::make_shared<WatchArguments>();
    Command& command =
        group.verb("watch", "Print a T-bar's positions as it moves; a bar in place on a terminal",
                   "halctl tbar watch 0 --count 1 --timeout 10");
    add_number(command, arguments->number);
    add_limits(command, arguments->limits);
    command.on_run([&tool, arguments] { return run_watch(tool, *arguments); });
}

} // namespace halctl::tbar
