// halctl md5: digest of a range of a file or partition.
#include "commands/commands.h"
#include "hex.h"
#include "progress.h"

#include <hal_bsp/md5sum.h>
#include <hal_bsp/partition.h>

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <optional>

namespace halctl {

namespace md5 {
namespace {

struct Arguments {
    std::string path;
    std::uint64_t offset = 0;
    std::optional<std::uint64_t> size;
};

bool is_folder(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The library takes a range that begins past the end for one of no bytes.
int run_md5(Tool& tool, const Arguments& arguments) {
    if (access(arguments.path.c_str(), R_OK) != 0) {
        return tool.cannot_open("md5", arguments.path, errno);
    }
    if (is_folder(arguments.path)) {
        return tool.cannot_open("md5", arguments.path, EISDIR);
    }
    const std::uint64_t whole = get_kernel_partition_size(arguments.path.c_str());
    const std::uint64_t rest = whole < arguments.offset ? 0 : whole - arguments.offset;
    const std::uint64_t size = arguments.size.value_or(rest);
    if (arguments.offset > whole || size > rest) {
        return tool.failed("md5", fmt::format("{} has {} bytes: not {} from {} on", arguments.path,
                                              whole, size, arguments.offset));
    }
    std::array<std::uint8_t, HAL_MD5_BYTES> digest{};
    std::int32_t result = 0;
    const int signal = run_with_progress({arguments.path, arguments.offset, size}, [&] {
        result = checkdata(arguments.path.c_str(), digest.data(), arguments.offset, size);
    });
    if (signal != 0) {
        return tool.interrupted("md5", signal);
    }
    if (result != 1) {
        return tool.failed({"md5", {arguments.path}, {}, "cannot read all of it"});
    }
    tool.output().print({{"file", arguments.path},
                         {"offset", arguments.offset},
                         {"size", size},
                         {"md5", to_hex(digest)}},
                        fmt::format("{}  {}", to_hex(digest), arguments.path));
    return kExitDone;
}

} // namespace
} // namespace md5

void add_md5(Command& root, Tool& tool) {
    auto arguments = std::make_shared<md5::Arguments>();
    Command& command = root.verb("md5", "Print the MD5 digest of a file or partition",
                                 "halctl md5 /dev/block/by-name/boot_a --size 4096");
    command.text("FILE", arguments->path, "The file");
    command.number("--offset BYTES", arguments->offset, "Where to begin");
    command.number("--size BYTES", arguments->size, "How much").otherwise("to the end");
    command.on_run([&tool, arguments] { return md5::run_md5(tool, *arguments); });
}

} // namespace halctl
