// halctl image: OEM images, and the partitions they are written to.
#include "commands/commands.h"
#include "oem_image.h"
#include "output_aside.h"
#include "progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>

namespace halctl {

namespace {

struct ImageArguments {
    std::string path;
    std::string other; // what is packed, or the partition
    std::uint32_t offset = 0;
    std::uint32_t length = 0; // 0: to the end of the file
    std::uint32_t delay = 0;
};

int fail(const char* what, const std::string& reason) {
    fmt::print(stderr, "halctl: image {}: {}\n", what, reason);
    return kExitFailure;
}

int cannot_open(const char* what, const std::string& path) {
    fmt::print(stderr, "halctl: image {}: cannot open {}: {}\n", what, path, std::strerror(errno));
    return kExitUnavailable;
}

// How long the image is; images of 4 GiB and more are beyond the library.
std::uint32_t length_of(const ImageArguments& arguments) {
    if (arguments.length != 0) {
        return arguments.length;
    }
    const std::uint64_t size = get_kernel_partition_size(arguments.path.c_str());
    const std::uint64_t rest = size - std::min<std::uint64_t>(size, arguments.offset);
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>(rest, std::numeric_limits<std::uint32_t>::max()));
}

std::string what_is_wrong(std::int32_t check) {
    return check == -2 ? "the digest in the header is not the payload's" : "there is no OEM image";
}

int run_pack(Tool& tool, const ImageArguments& arguments) {
    std::uint64_t length = 0;
    int result = 0;
    {
        const Progress progress(arguments.other, 0,
                                get_kernel_partition_size(arguments.other.c_str()));
        result = oem_image_pack(arguments.other.c_str(), arguments.path.c_str(), &length);
    }
    if (result != 0) {
        return fail("pack", errno == 0 ? "failed" : std::strerror(errno));
    }
    tool.output().print({{"image", arguments.path}, {"length", length}}, "");
    return kExitDone;
}

int run_check(Tool& tool, const ImageArguments& arguments) {
    if (access(arguments.path.c_str(), R_OK) != 0) {
        return cannot_open("check", arguments.path);
    }
    const std::uint32_t length = length_of(arguments);
    std::uint32_t header = 0;
    std::int32_t result = 0;
    {
        const Progress progress(arguments.path, arguments.offset, length);
        result = kaOemMd5(arguments.path.c_str(), arguments.offset, length, &header);
    }
    if (result != 1) {
        return fail("check", what_is_wrong(result));
    }
    tool.output().print(
        {{"image", arguments.path}, {"header", header}, {"payload", length - header}},
        fmt::format("good: {} bytes of header, {} of payload", header, length - header));
    return kExitDone;
}

// Why a write failed: the library tells it in its log only.
int write_failed(const ImageArguments& arguments, std::uint32_t length, const char* device) {
    const std::int32_t check = kaOemMd5(arguments.path.c_str(), arguments.offset, length, nullptr);
    return fail("write", check == 1 ? fmt::format("{} cannot be written, or is too small", device)
                                    : what_is_wrong(check));
}

int run_write(Tool& tool, const ImageArguments& arguments) {
    std::array<char, HAL_PARTITION_PATH_MAX> device{};
    if (access(arguments.path.c_str(), R_OK) != 0) {
        return cannot_open("write", arguments.path);
    }
    if (getPartitionType(arguments.other.c_str(), device.data()) != 1) {
        return fail("write", fmt::format("the slot that does not run has no partition \"{}\"",
                                         arguments.other));
    }
    if (access(device.data(), W_OK) != 0) {
        return cannot_open("write", device.data());
    }
    const std::uint32_t length = length_of(arguments);
    std::int32_t result = 0;
    {
        const Progress progress(arguments.path, arguments.offset, length);
        result = hal_partition_update(arguments.path.c_str(), arguments.other.c_str(),
                                      arguments.offset, length);
    }
    if (result != 1) {
        return write_failed(arguments, length, device.data());
    }
    tool.output().print(
        {{"image", arguments.path}, {"partition", arguments.other}, {"device", device.data()}}, "");
    return kExitDone;
}

int run_backup(Tool& tool, const ImageArguments& arguments) {
    const std::int32_t running = getNowSlot();
    const std::string source =
        fmt::format("/dev/block/by-name/{}_{}", arguments.other, running == HAL_SLOT_A ? 'a' : 'b');
    if (running != HAL_SLOT_UNKNOWN && access(source.c_str(), R_OK) != 0) {
        return cannot_open("backup", source);
    }
    std::int32_t result = 0;
    {
        const Progress progress(source, 0, get_kernel_partition_size(source.c_str()));
        const OutputAside aside; // sysctl says what it has set
        const char* partition = arguments.other.c_str();
        result = arguments.delay == 0 ? zeda_partition_backup(partition)
                                      : zeda_partition_backup_withdelay(partition, arguments.delay);
    }
    if (result != 0) {
        return fail("backup", tool.library_log().last_error().text);
    }
    tool.output().print({{"partition", arguments.other}, {"from", source}}, "");
    return kExitDone;
}

using Arguments = std::shared_ptr<ImageArguments>;

Arguments add(CLI::App& command, Tool& tool, int (*run)(Tool&, const ImageArguments&)) {
    auto arguments = std::make_shared<ImageArguments>();
    tool.on_run(command, [&tool, arguments, run] { return run(tool, *arguments); });
    return arguments;
}

void add_image_options(CLI::App& command, ImageArguments& arguments) {
    command.add_option("IMAGE", arguments.path, "File that holds the image")->required();
    command.add_option("--offset", arguments.offset, "Where in the file the image begins");
    command.add_option("--length", arguments.length, "Its length; to the end if not said");
}

} // namespace

void add_image(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("image", "OEM images and the partitions they go to");
    group->require_subcommand(1);

    CLI::App& pack = tool.add_command(*group, "pack", "Make an image of a payload",
                                      "halctl image pack system.bin system.img");
    const Arguments pack_arguments = add(pack, tool, run_pack);
    pack.add_option("PAYLOAD", pack_arguments->other, "What is to be written to the partition")
        ->required();
    pack.add_option("IMAGE", pack_arguments->path, "The image to make")->required();

    CLI::App& check =
        tool.add_command(*group, "check", "Check an image", "halctl image check system.img");
    add_image_options(check, *add(check, tool, run_check));

    CLI::App& write = tool.add_command(*group, "write",
                                       "Check an image and write it to the slot that does not run",
                                       "halctl image write system.img system");
    const Arguments write_arguments = add(write, tool, run_write);
    add_image_options(write, *write_arguments);
    write
        .add_option("PARTITION", write_arguments->other,
                    "uboot, boot, system, oem, custom or vbmeta")
        ->required();

    CLI::App& backup =
        tool.add_command(*group, "backup", "Copy a partition of the running slot to the other slot",
                         "halctl image backup boot");
    const Arguments backup_arguments = add(backup, tool, run_backup);
    backup.add_option("PARTITION", backup_arguments->other, "boot or system")
        ->required()
        ->check(CLI::IsMember({"boot", "system"}));
    backup
        .add_option("--delay", backup_arguments->delay,
                    "Microseconds to pause after every read and write")
        ->check(CLI::Range(1, 65535));
}

} // namespace halctl
