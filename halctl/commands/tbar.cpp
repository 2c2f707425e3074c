// halctl tbar: the T-bar faders of the front panel.
#include "commands/tbar.h"
#include "commands/commands.h"

#include <fmt/format.h>

#include <array>
#include <memory>

namespace halctl {

namespace tbar {

namespace {

struct Arguments {
    std::uint8_t number = 0;
    std::uint16_t lock = 0;
};

// For the commands that ask by themselves.
Open open_quietly(std::uint8_t number) {
    return Open(hal_tbar_init([](const std::uint8_t*) {}, number));
}

int run_get(Tool& tool, const Arguments& arguments) {
    const Open tbar = open_quietly(arguments.number);
    std::array<std::uint8_t, HAL_TBAR_DATA_SIZE> bytes{};
    if (!tbar || hal_tbar_read_data(tbar.get(), bytes.data()) < 0) {
        return failed(tool, "tbar get", arguments.number);
    }
    const Data data = data_of(bytes);
    tool.output().print(json_of(arguments.number, data), text_of(data));
    return kExitDone;
}

int run_lock(Tool& tool, const Arguments& arguments) {
    const Open tbar = open_quietly(arguments.number);
    if (!tbar || hal_tbar_set_lock(tbar.get(), arguments.lock) < 0) {
        return failed(tool, "tbar lock", arguments.number);
    }
    tool.output().print({{"tbar", arguments.number}, {"lock", arguments.lock}}, "");
    return kExitDone;
}

} // namespace

Data data_of(std::span<const std::uint8_t> bytes) {
    return {std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8, (bytes[2] & 1) != 0,
            (bytes[2] & 2) != 0};
}

Json json_of(unsigned number, const Data& data) {
    return {{"tbar", number},
            {"position", data.position},
            {"moving", data.moving},
            {"locked", data.locked}};
}

std::string text_of(const Data& data) {
    return fmt::format("{}{}{}", data.position, data.moving ? "  moving" : "",
                       data.locked ? "  locked" : "");
}

void add_number(Command& command, std::uint8_t& number) {
    command.number("N", number, "Number of the T-bar");
}

int failed(const Tool& tool, const char* what, unsigned number) {
    return tool.failed({fmt::format("{} {}", what, number), {fmt::format("/dev/tbar{}", number)}});
}

} // namespace tbar

void add_tbar(Command& root, Tool& tool) {
    Command& group = root.group("tbar", "T-bar faders, /dev/tbar0 and on");
    auto arguments = std::make_shared<tbar::Arguments>();

    Command& get = group.verb("get", "Print a T-bar's position", "halctl tbar get 0");
    tbar::add_number(get, arguments->number);
    get.on_run([&tool, arguments] { return tbar::run_get(tool, *arguments); });

    Command& lock =
        group.verb("lock", "Hold a T-bar where it is, or let go of it", "halctl tbar lock 0 1");
    tbar::add_number(lock, arguments->number);
    lock.number<std::uint16_t>("VALUE", arguments->lock, "0 lets go, all else holds it", 0, 255);
    lock.on_run([&tool, arguments] { return tbar::run_lock(tool, *arguments); });

    tbar::add_watch(group, tool);
}

} // namespace halctl
