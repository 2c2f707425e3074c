#include "tool.h"

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
    int missing = 0; // errno, where none of the nodes is there
    const bool none_there = std::none_of(nodes.begin(), nodes.end(), [&](const std::string& node) {
        const bool there = access(node.c_str(), R_OK) == 0;
        missing = there ? 0 : errno;
        return there;
    });
    // No driver of the board answers a request with these: it was the open that failed.
    const bool unopened = none_there || error == ENOENT || error == EACCES;
    error = none_there ? missing : error;
    const char* reason = error == 0 ? "failed" : std::strerror(error);
    if (unopened) {
        fmt::print(stderr, "halctl: {}: cannot open {}: {}\n", what, fmt::join(nodes, " or "),
                   reason);
        return kExitUnavailable;
    }
    fmt::print(stderr, "halctl: {}: {}\n", what, reason);
    return kExitFailure;
}

} // namespace halctl
