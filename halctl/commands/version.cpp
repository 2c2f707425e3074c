// halctl version
#include "commands/commands.h"

#include <hal_bsp/hal_bsp.h>

#include <fmt/format.h>

namespace halctl {

void add_version(Command& root, Tool& tool) {
    Command& version =
        root.verb("version", "Print the versions of tool and library", "halctl version");
    version.on_run([&tool] {
        tool.output().print(
            {{"halctl", HALCTL_VERSION}, {"library", hal_bsp_version()}, {"build", VER_STR}},
            fmt::format("halctl {}\nlibhal_bsp {}\n{}", HALCTL_VERSION, hal_bsp_version(),
                        VER_STR));
        return kExitDone;
    });
}

} // namespace halctl
