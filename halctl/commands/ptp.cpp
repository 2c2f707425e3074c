// halctl ptp: the PTP daemons.
#include "commands/commands.h"
#include "shell_word.h"

#include <hal_bsp/ptp.h>

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <vector>

namespace halctl {

namespace ptp {
namespace {

struct Arguments {
    std::string master;
    std::string slave;
};

int run_on(Tool& tool, const Arguments& arguments) {
    const bool master = !arguments.master.empty();
    const std::string& interface = master ? arguments.master : arguments.slave;
    gen_sys_param p{};
    p.is_master = master ? 1 : 0;
    interface.copy(p.eth_name, sizeof p.eth_name - 1);
    if (ptp_switch_on(&p) < 0) {
        return tool.failed({"ptp on", {"/bin/sh"}});
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

// --- status: the library remembers nothing of it between processes, the process table does ---

using Words = std::vector<std::string>;

Words words_of(const std::filesystem::path& process) {
    std::ifstream file(process / "cmdline");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    Words words;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\0', at), text.size());
        words.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

// The words behind the name of a program, be it run by a shell or by itself.
std::optional<Words> options_of(const Words& words, std::string_view program) {
    const auto name = std::find_if(words.begin(), words.end(), [&](const std::string& word) {
        return std::filesystem::path(word).filename() == program;
    });
    return name - words.begin() < 2 && name != words.end()
               ? std::optional(Words(name + 1, words.end()))
               : std::nullopt;
}

std::optional<Words> find_daemon(std::string_view program) {
    std::error_code ignored;
    for (const auto& process : std::filesystem::directory_iterator("/proc", ignored)) {
        if (auto options = options_of(words_of(process.path()), program)) {
            return options;
        }
    }
    return std::nullopt;
}

int run_status(Tool& tool) {
    const std::optional<Words> ptp4l = find_daemon("ptp4l");
    const bool phc2sys = find_daemon("phc2sys").has_value();
    Json object = {{"ptp4l", ptp4l.has_value()}, {"phc2sys", phc2sys}};
    object["role"] = nullptr;
    object["interface"] = nullptr;
    std::string text = phc2sys ? "off, but phc2sys runs" : "off";
    if (ptp4l) {
        const bool slave = std::find(ptp4l->begin(), ptp4l->end(), "-s") != ptp4l->end();
        const auto i = std::find(ptp4l->begin(), ptp4l->end(), "-i");
        const std::string interface = ptp4l->end() - i > 1 ? *(i + 1) : "?";
        object["role"] = slave ? "slave" : "master";
        object["interface"] = interface;
        text = fmt::format("{} on {}{}", slave ? "slave" : "master", interface,
                           phc2sys ? "" : ", but phc2sys does not run");
    }
    tool.output().print(object, text);
    return kExitDone;
}

} // namespace
} // namespace ptp

void add_ptp(Command& root, Tool& tool) {
    Command& group = root.group("ptp", "Time synchronisation by PTP");
    auto arguments = std::make_shared<ptp::Arguments>();

    // The examples are for a board: tried on a desk they would end that machine's own daemons.
    Command& on = group.verb("on", "Start the PTP daemons, afresh where they run",
                             "vboard run -- sh -c 'halctl ptp on --slave eth1; halctl ptp status'");
    on.text("--master INTERFACE", arguments->master, "Give the time on it", kInterfaceName,
            check_interface_name);
    on.text("--slave INTERFACE", arguments->slave, "Take the time from it", kInterfaceName,
            check_interface_name);
    on.check([arguments]() -> Complaint {
        const bool one = arguments->master.empty() != arguments->slave.empty();
        return one ? "" : "one of --master and --slave is wanted";
    });
    on.on_run([&tool, arguments] { return ptp::run_on(tool, *arguments); }, LibraryPrints::nowhere);

    Command& off = group.verb("off", "End the PTP daemons", "vboard run -- halctl ptp off");
    off.on_run([&tool] { return ptp::run_off(tool); });

    Command& status =
        group.verb("status", "Print whether the daemons run, and how", "halctl ptp status");
    status.on_run([&tool] { return ptp::run_status(tool); });
}

} // namespace halctl
