// halctl tbar watch: a T-bar's positions as they come, on a terminal as a bar that moves.
#include "commands/tbar.h"
#include "watch_command.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <memory>

namespace halctl {

namespace {

constexpr std::size_t kBarWidth = 40;

struct Movement {
    EventTime time;
    std::array<std::uint8_t, HAL_TBAR_DATA_SIZE> bytes;
};

struct WatchArguments {
    std::uint32_t number = 0;
    WatchLimits limits;
};

// The library's callback carries no data of ours.
constinit std::atomic<Watch<Movement>*> current{nullptr};

void on_data(const std::uint8_t* data) {
    Movement movement{std::chrono::system_clock::now(), {}};
    std::copy_n(data, movement.bytes.size(), movement.bytes.begin());
    current.load()->post(movement);
}

// Draws over what it drew before.
void draw_bar(const TbarData& data) {
    const std::size_t filled = std::min<std::size_t>(
        kBarWidth, (data.position * kBarWidth + kTbarHighest / 2) / kTbarHighest);
    fmt::print("\r[{:#>{}}{:->{}}] {}\033[K", "", filled, "", kBarWidth - filled, text_of(data));
    std::fflush(stdout);
}

int run_watch(Tool& tool, const WatchArguments& arguments) {
    const bool draws = isatty(STDOUT_FILENO) == 1 && !tool.output().json();
    Watch<Movement> watch;
    current = &watch;
    const OpenTbar tbar(hal_tbar_init(on_data, static_cast<std::uint8_t>(arguments.number)));
    if (!tbar) {
        return tbar_failed(tool, "tbar watch", arguments.number);
    }
    tool.library_log().show_errors();
    unsigned seen = 0;
    const WatchEnd end = watch.run(arguments.limits, [&](const Movement& movement) {
        const TbarData data = tbar_data(movement.bytes);
        if (draws) {
            draw_bar(data);
        } else {
            print_event(tool.output(), movement.time, json_of(arguments.number, data),
                        fmt::format("tbar {}  {}", arguments.number, text_of(data)));
        }
        ++seen;
        return true;
    });
    if (draws && seen > 0) {
        fmt::print("\n");
    }
    return end_of_watch("tbar watch", arguments.limits, end, seen, watch.lost());
}

} // namespace

void add_tbar_watch(CLI::App& group, Tool& tool) {
    auto arguments = std::make_shared<WatchArguments>();
    CLI::App& command = tool.add_command(
        group, "watch", "Print a T-bar's positions as it moves; a bar in place on a terminal",
        "halctl tbar watch 0 --count 1 --timeout 10");
    add_tbar_number(command, arguments->number);
    add_limits(command, arguments->limits);
    tool.on_run(command, [&tool, arguments] { return run_watch(tool, *arguments); });
}

} // namespace halctl
