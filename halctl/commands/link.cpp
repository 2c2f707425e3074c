// halctl link: whether an Ethernet adapter has a link, as each source of it says.
#include "commands/commands.h"
#include "shell_word.h"
#include "watch_command.h"

#include <hal_bsp/ethlink.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>

namespace halctl {

namespace link {
namespace {

struct Arguments {
    std::string interface;
    SampleOptions sampling;
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

// What the library's results mean; -6 is the one of a name that the board does not have.
constexpr std::int32_t kNoAdapter = -6;

int failed(const Tool& tool, const std::string& interface, std::int32_t result) {
    const std::string what = "link " + interface;
    if (result == kNoAdapter) {
        return tool.output().complain(
            kExitUnavailable, what,
            "the name is no adapter of this board, or part of several names");
    }
    return tool.failed(what, result == -35 ? "what the board reads it from says nothing"
                                           : "the commands for it cannot be run");
}

std::variant<Reading, int> take(const Tool& tool, const std::string& interface) {
    std::uint16_t status = 0;
    if (const std::int32_t result = hal_get_ethlink_status_byname(interface.c_str(), &status);
        result != 0) {
        return failed(tool, interface, result);
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

void add_interface(Command& command, std::string& interface) {
    command.text("INTERFACE", interface, "Which", kInterfaceName, check_interface_name);
}

} // namespace
} // namespace link

void add_link(Command& root, Tool& tool) {
    Command& group = root.group("link", "Ethernet links: as the board reads them, then by each "
                                        "source");
    group.short_for("get");
    auto arguments = std::make_shared<link::Arguments>();

    Command& get = group.verb("get", "Print an adapter's link", "halctl link get eth0");
    link::add_interface(get, arguments->interface);
    get.on_run(
        [&tool, arguments] { return print_reading(tool, link::take(tool, arguments->interface)); });

    Command& watch = group.verb("watch", "Print an adapter's link as it changes",
                                "halctl link watch eth0 --timeout 1");
    link::add_interface(watch, arguments->interface);
    add_sampling(watch, arguments->sampling);
    watch.on_run([&tool, arguments] {
        return watch_readings(tool, "link watch", arguments->sampling,
                              [&] { return link::take(tool, arguments->interface); });
    });
}

} // namespace halctl
