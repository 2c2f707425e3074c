// halctl tbar: the T-bar faders of the front panel.
#include "commands/tbar.h"
#include "commands/commands.h"

#include <fmt/format.h>

#include <array>
#include <memory>

namespace halctl {

namespace {

struct TbarArguments {
    std::uint32_t number = 0;
    std::uint32_t lock = 0;
};

// For the commands that ask by themselves.
OpenTbar open_tbar(std::uint32_t number) {
    return OpenTbar(hal_tbar_init([](const std::uint8_t*) {}, static_cast<std::uint8_t>(number)));
}

int run_read(Tool& tool, const TbarArguments& arguments) {
    const OpenTbar tbar = open_tbar(arguments.number);
    std::array<std::uint8_t, HAL_TBAR_DATA_SIZE> bytes{};
    if (!tbar || hal_tbar_read_data(tbar.get(), bytes.data()) < 0) {
        return tbar_failed(tool, "tbar read", arguments.number);
    }
    const TbarData data = tbar_data(bytes);
    tool.output().print(json_of(arguments.number, data), text_of(data));
    return kExitDone;
}

int run_lock(Tool& tool, const TbarArguments& arguments) {
    const OpenTbar tbar = open_tbar(arguments.number);
    if (!tbar || hal_tbar_set_lock(tbar.get(), static_cast<std::uint16_t>(arguments.lock)) < 0) {
        return tbar_failed(tool, "tbar lock", arguments.number);
    }
    tool.output().print({{"tbar", arguments.number}, {"lock", arguments.lock}}, "");
    return kExitDone;
}

} // namespace

TbarData tbar_data(std::span<const std::uint8_t> bytes) {
    return {std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8, (bytes[2] & 1) != 0,
            (bytes[2] & 2) != 0};
}

Json json_of(std::uint32_t number, const TbarData& data) {
    return {{"tbar", number},
            {"position", data.position},
            {"moving", data.moving},
            {"locked", data.locked}};
}

std::string text_of(const TbarData& data) {
    return fmt::format("{}{}{}", data.position, data.moving ? "  moving" : "",
                       data.locked ? "  locked" : "");
}

void add_tbar_number(CLI::App& command, std::uint32_t& number) {
    command.add_option("N", number, "Number of the T-bar")->required()->check(CLI::Range(0, 255));
}

int tbar_failed(const Tool& tool, const char* what, std::uint32_t number) {
    return tool.failed(fmt::format("{} {}", what, number), fmt::format("/dev/tbar{}", number));
}

void add_tbar(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("tbar", "T-bar faders, /dev/tbar0 and on");
    group->require_subcommand(1);
    auto arguments = std::make_shared<TbarArguments>();

    CLI::App& read =
        tool.add_command(*group, "read", "Print a T-bar's position", "halctl tbar read 0");
    add_tbar_number(read, arguments->number);
    tool.on_run(read, [&tool, arguments] { return run_read(tool, *arguments); });

    CLI::App& lock = tool.add_command(*group, "lock", "Hold a T-bar where it is, or let go of it",
                                      "halctl tbar lock 0 1");
    add_tbar_number(lock, arguments->number);
    lock.add_option("VALUE", arguments->lock, "1 to 255 holds it, 0 lets go")
        ->required()
        ->check(CLI::Range(0, 255));
    tool.on_run(lock, [&tool, arguments] { return run_lock(tool, *arguments); });

    add_tbar_watch(*group, tool);
}

} // namespace halctl
