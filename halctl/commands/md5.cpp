// halctl md5: digest of a range of a file or partition.
#include "commands/commands.h"
#include "hex.h"
#include "progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>

namespace halctl {

namespace {

struct Md5Arguments {
    std::string path;
    std::uint64_t offset = 0;
    std::optional<std::uint64_t> size;
};

int run_md5(Tool& tool, const Md5Arguments& arguments) {
    if (access(arguments.path.c_str(), R_OK) != 0) {
        fmt::print(stderr, "halctl: md5: cannot open {}: {}\n", arguments.path,
                   std::strerror(errno));
        return kExitUnavailable;
    }
    const std::uint64_t whole = get_kernel_partition_size(arguments.path.c_str());
    const std::uint64_t size = arguments.size.value_or(whole - std::min(whole, arguments.offset));
    std::array<std::uint8_t, HAL_MD5_BYTES> digest{};
    std::int32_t result = 0;
    {
        const Progress progress(arguments.path, arguments.offset, size);
        result = checkdata(arguments.path.c_str(), digest.data(), arguments.offset, size);
    }
    if (result != 1) {
        fmt::print(stderr, "halctl: md5: {} does not hold {} bytes from {} on\n", arguments.path,
                   size, arguments.offset);
        return kExitFailure;
    }
    tool.output().print({{"file", arguments.path},
                         {"offset", arguments.offset},
                         {"size", size},
                         {"md5", to_hex(digest)}},
                        fmt::format("{}  {}", to_hex(digest), arguments.path));
    return kExitDone;
}

} // namespace

void add_md5(CLI::App& app, Tool& tool) {
    auto arguments = std::make_shared<Md5Arguments>();
    CLI::App& command = tool.add_command(app, "md5", "Print the MD5 digest of a file or partition",
                                         "halctl md5 /dev/block/by-name/boot_a --size 4096");
    command.add_option("FILE", arguments->path, "The file")->required();
    command.add_option("--offset", arguments->offset, "Where to begin");
    command.add_option("--size", arguments->size, "How many bytes; to the end if not said");
    tool.on_run(command, [&tool, arguments] { return run_md5(tool, *arguments); });
}

} // namespace halctl
