// halctl ptp: the PTP daemons.
#include "commands/commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>

namespace halctl {

namespace {

constexpr std::size_t kLongestName = 15; // of a network interface

struct PtpArguments {
    std::string master;
    std::string slave;
};

// The name goes into a shell's command line.
CLI::Validator is_interface() {
    return {[](const std::string& name) {
                const auto plain = [](char c) {
                    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
                };
                const bool good = !name.empty() && name.size() <= kLongestName &&
                                  name.front() != '-' &&
                                  std::all_of(name.begin(), name.end(), plain);
                return good ? "" : "\"" + name + "\" is no name of a network interface";
            },
            "INTERFACE"};
}

int run_on(Tool& tool, const PtpArguments& arguments) {
    const bool master = !arguments.master.empty();
    const std::string& interface = master ? arguments.master : arguments.slave;
    gen_sys_param p{};
    p.is_master = master ? 1 : 0;
    interface.copy(p.eth_name, sizeof p.eth_name - 1);
    if (ptp_switch_on(&p) < 0) {
        return tool.failed("ptp on", "/bin/sh");
    }
    tool.output().print({{"role", master ? "master" : "slave"}, {"interface", interface}}, "");
    return kExitDone;
}

int run_off(Tool& tool) {
    gen_sys_param p{};
    ptp_switch_off(&p);
    tool.output().print({{"role", nullptr}}, "");
    return kExitDone;
}

} // namespace

void add_ptp(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("ptp", "Time synchronisation by PTP");
    group->require_subcommand(1);
    auto arguments = std::make_shared<PtpArguments>();

    // The examples are for a board: tried on a desk they would end that machine's own daemons.
    CLI::App& on = tool.add_command(*group, "on", "Start the PTP daemons, afresh where they run",
                                    "vboard run -- sh -c 'halctl ptp on --slave eth1; ps'");
    auto* role = on.add_option_group("role");
    role->add_option("--master", arguments->master, "Give the time on this network interface")
        ->check(is_interface());
    role->add_option("--slave", arguments->slave, "Take the time from it")->check(is_interface());
    role->require_option(1);
    tool.on_run(on, [&tool, arguments] { return run_on(tool, *arguments); });

    CLI::App& off =
        tool.add_command(*group, "off", "End the PTP daemons", "vboard run -- halctl ptp off");
    tool.on_run(off, [&tool] { return run_off(tool); });
}

} // namespace halctl
