#include "tool.h"

#include <fmt/format.h>

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

int Tool::failed(std::string_view what, std::string_view node, std::string_view hint) const {
    const LibraryError last = library_log_.last_error();
    if (last.is_failed_open()) {
        fmt::print(stderr, "halctl: {}: cannot open {}: {}\n", what, node,
                   std::strerror(last.error));
        return kExitUnavailable;
    }
    fmt::print(stderr, "halctl: {}: {}{}{}\n", what,
               last.text.empty() ? "failed" : std::strerror(last.error), hint.empty() ? "" : ": ",
               hint);
    return kExitFailure;
}

} // namespace halctl
