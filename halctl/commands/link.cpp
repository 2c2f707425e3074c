// halctl link: whether an Ethernet adapter has a link, as each source of it says.
#include "commands/commands.h"
#include "repeat.h"

#include <hal_bsp/ethlink.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>

namespace halctl {

namespace {

struct LinkArguments {
    std::string interface;
    RepeatOptions repeat;
};

struct Source {
    std::uint32_t type;
    const char* key;
    const char* name;
};

constexpr std::array kSources = {
    Source{HAL_ETHLINK_STATE, "state", "interface state"},
    Source{HAL_ETHLINK_FILE, "file", "link-status file"},
    Source{HAL_ETHLINK_PHY, "phy", "PHY register"},
};

// What the kernel takes as a name, less what a shell would take for itself.
std::string check_interface(const std::string& name) {
    static constexpr char kPlain[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.";
    const bool plain = !name.empty() && name.size() < 16 &&
                       name.find_first_not_of(kPlain) == std::string::npos && name[0] != '-';
    return plain ? "" : "a network interface's name is up to 15 letters, digits, '_', '-' and '.'";
}

// The table is the application's to change while nothing reads it.
class EverySource {
  public:
    EverySource() { std::copy_n(board_ethlink_info_list, HAL_ETHLINK_COUNT, kept_.begin()); }
    ~EverySource() { std::copy(kept_.begin(), kept_.end(), board_ethlink_info_list); }
    EverySource(const EverySource&) = delete;
    EverySource& operator=(const EverySource&) = delete;

    static void use(std::uint32_t type) {
        for (ethlink_info& adapter : board_ethlink_info_list) {
            adapter.type = type;
        }
    }

  private:
    std::array<ethlink_info, HAL_ETHLINK_COUNT> kept_{};
};

std::string text_of(int status) {
    return status == 0 ? "no link" : fmt::format("link ({})", status);
}

const char* reason_of(std::int32_t result) {
    switch (result) {
    case -6:
        return "the name is no adapter of this board, or part of several names";
    case -35:
        return "what the board reads it from says nothing";
    default:
        return "the commands for it cannot be run";
    }
}

std::optional<Reading> take(const std::string& interface) {
    std::uint16_t status = 0;
    if (const std::int32_t result = hal_get_ethlink_status_byname(interface.c_str(), &status);
        result != 0) {
        fmt::print(stderr, "halctl: link {}: {}\n", interface, reason_of(result));
        return std::nullopt;
    }
    Reading reading{{{"interface", interface}, {"status", status}},
                    fmt::format("{}: {}", interface, text_of(status))};
    const EverySource every;
    for (const Source& source : kSources) {
        EverySource::use(source.type);
        const bool told = hal_get_ethlink_status_byname(interface.c_str(), &status) == 0;
        reading.object[source.key] = told ? Json(status) : Json(nullptr);
        reading.text +=
            fmt::format(";  {}: {}", source.name, told ? text_of(status) : "not to be had");
    }
    return reading;
}

} // namespace

void add_link(CLI::App& app, Tool& tool) {
    CLI::App& link = tool.add_command(
        app, "link", "Print an Ethernet adapter's link: as the board reads it, then by each source",
        "halctl link eth0");
    auto arguments = std::make_shared<LinkArguments>();
    link.add_option("INTERFACE", arguments->interface, "Its name, such as eth0")
        ->required()
        ->check(CLI::Validator(check_interface, "NAME"));
    add_repeat(link, arguments->repeat);
    tool.on_run(link, [&tool, arguments] {
        return repeat(tool.output(), arguments->repeat,
                      [arguments] { return take(arguments->interface); });
    });
}

} // namespace halctl
