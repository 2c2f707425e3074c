// halctl version
#include "commands/commands.h"

#include <fmt/format.h>

namespace halctl {

void add_version(CLI::App& app, Tool& tool) {
    CLI::App& command = tool.add_command(app, "version", "Print the versions of tool and library",
                                         "halctl version");
    tool.on_run(command, [&tool] {
        tool.output().print({{"halctl", HALCTL_VERSION}, {"library", VER_STR}},
                            fmt::format("halctl {}\n{}", HALCTL_VERSION, VER_STR));
        return kExitDone;
    });
}

} // namespace halctl
