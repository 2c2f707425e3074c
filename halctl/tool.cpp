#include "tool.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace halctl {

CLI::App& Tool::add_command(CLI::App& parent, const std::string& name, const std::string& about,
                            const std::string& example) {
    CLI::App* command = parent.add_subcommand(name, about);
    command->add_flag("--json", output_.json(), "Print JSON, one object a line");
    command->footer("Example:\n  " + example);
    return *command;
}

void Tool::on_run(CLI::App& command, std::function<int()> run) {
    command.callback([this, run = std::move(run)] { run_ = run; });
}

int Tool::failed(std::string_view what, std::string_view node, std::span<const Hint> hints) const {
    const LibraryError last = library_log_.last_error();
    const char* reason = last.text.empty() ? "failed" : std::strerror(last.error);
    if (last.is_failed_open()) {
        fmt::print(stderr, "halctl: {}: cannot open {}: {}\n", what, node, reason);
        return kExitUnavailable;
    }
    const auto hint = std::find_if(hints.begin(), hints.end(),
                                   [&](const Hint& each) { return each.error == last.error; });
    fmt::print(stderr, "halctl: {}: {}{}\n", what, reason,
               hint == hints.end() ? "" : fmt::format(" ({})", hint->text));
    return kExitFailure;
}

int Tool::refused(std::string_view what, std::span<const std::string> nodes, int error) {
    int open_error = 0;
    for (const std::string& node : nodes) {
        const int fd = open(node.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            close(fd);
            fmt::print(stderr, "halctl: {}: {}\n", what,
                       error == 0 ? "failed" : std::strerror(error));
            return kExitFailure;
        }
        open_error = errno;
    }
    fmt::print(stderr, "halctl: {}: cannot open {}: {}\n", what, fmt::join(nodes, " or "),
               std::strerror(open_error));
    return kExitUnavailable;
}

} // namespace halctl
