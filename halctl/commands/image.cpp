// halctl image: OEM images, and the partitions they are written to.
#include "commands/commands.h"
#include "oem_image.h"
#include "progress.h"

#include <hal_bsp/md5sum.h>
#include <hal_bsp/partition.h>

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

namespace halctl {

namespace image {
namespace {

struct Arguments {
    std::string path;
    std::string other; // what is packed, or the partition
    std::uint32_t offset = 0;
    std::uint32_t length = 0; // 0: to the end of the file
    std::uint32_t delay = 0;
};

std::uint32_t length_of(const Arguments& arguments) {
    return arguments.length != 0 ? arguments.length
                                 : oem_image_length(arguments.path.c_str(), arguments.offset);
}

int run_pack(Tool& tool, const Arguments& arguments) {
    constexpr char kWhat[] = "image pack";
    const std::uint64_t size = get_kernel_partition_size(arguments.other.c_str());
    std::uint64_t length = 0;
    int result = 0;
    const int signal = run_with_progress({arguments.other, 0, size}, [&] {
        result = oem_image_pack(arguments.other.c_str(), arguments.path.c_str(), &length);
    });
    if (signal != 0) {
        unlink(arguments.path.c_str()); // half an image is none
        return tool.interrupted(kWhat, signal);
    }
    if (result != 0) {
        return tool.failed({kWhat, {arguments.other}});
    }
    tool.output().print({{"image", arguments.path}, {"length", length}}, "");
    return kExitDone;
}

int run_check(Tool& tool, const Arguments& arguments) {
    constexpr char kWhat[] = "image check";
    if (access(arguments.path.c_str(), R_OK) != 0) {
        return tool.cannot_open(kWhat, arguments.path, errno);
    }
    const std::uint32_t length = length_of(arguments);
    std::uint32_t header = 0;
    std::int32_t result = 0;
    const int signal = run_with_progress({arguments.path, arguments.offset, length}, [&] {
        result = kaOemMd5(arguments.path.c_str(), arguments.offset, length, &header);
    });
    if (signal != 0) {
        return tool.interrupted(kWhat, signal);
    }
    if (result != 1) {
        return tool.failed(kWhat, oem_image_verdict(result));
    }
    tool.output().print(
        {{"image", arguments.path}, {"header", header}, {"payload", length - header}},
        fmt::format("good: {} bytes of header, {} of payload", header, length - header));
    return kExitDone;
}

// Why a write failed: the library tells it in its log only.
int write_failed(const Tool& tool, const Arguments& arguments, std::uint32_t length,
                 const char* device) {
    const std::int32_t check = kaOemMd5(arguments.path.c_str(), arguments.offset, length, nullptr);
    return tool.failed("image write",
                       check == 1 ? fmt::format("{} cannot be written, or is too small", device)
                                  : oem_image_verdict(check));
}

int run_write(Tool& tool, const Arguments& arguments) {
    constexpr char kWhat[] = "image write";
    std::array<char, HAL_PARTITION_PATH_MAX> device{};
    if (access(arguments.path.c_str(), R_OK) != 0) {
        return tool.cannot_open(kWhat, arguments.path, errno);
    }
    if (getPartitionType(arguments.other.c_str(), device.data()) != 1) {
        return tool.failed(kWhat, fmt::format("the slot that does not run has no partition {}",
                                              in_quotes(arguments.other)));
    }
    if (access(device.data(), W_OK) != 0) {
        return tool.cannot_open(kWhat, device.data(), errno);
    }
    const std::uint32_t length = length_of(arguments);
    std::int32_t result = 0;
    const int signal = run_with_progress({arguments.path, arguments.offset, length}, [&] {
        result = hal_partition_update(arguments.path.c_str(), arguments.other.c_str(),
                                      arguments.offset, length);
    });
    if (signal != 0) {
        return tool.interrupted(kWhat, signal);
    }
    if (result != 1) {
        return write_failed(tool, arguments, length, device.data());
    }
    tool.output().print(
        {{"image", arguments.path}, {"partition", arguments.other}, {"device", device.data()}}, "");
    return kExitDone;
}

int run_backup(Tool& tool, const Arguments& arguments) {
    constexpr char kWhat[] = "image backup";
    const std::int32_t running = getNowSlot();
    const char* partition = arguments.other.c_str();
    const std::string source =
        fmt::format("/dev/block/by-name/{}_{}", partition, running == HAL_SLOT_A ? 'a' : 'b');
    if (running != HAL_SLOT_UNKNOWN && access(source.c_str(), R_OK) != 0) {
        return tool.cannot_open(kWhat, source, errno);
    }
    std::int32_t result = 0;
    const std::uint64_t size = get_kernel_partition_size(source.c_str());
    const int signal = run_with_progress({source, 0, size}, [&] {
        result = arguments.delay == 0 ? zeda_partition_backup(partition)
                                      : zeda_partition_backup_withdelay(partition, arguments.delay);
    });
    if (signal != 0) {
        return tool.interrupted(kWhat, signal);
    }
    if (result != 0) {
        return tool.failed(kWhat, tool.library_log().last_error().text);
    }
    tool.output().print({{"partition", arguments.other}, {"from", source}}, "");
    return kExitDone;
}

std::shared_ptr<Arguments> add(Command& command, Tool& tool, int (*run)(Tool&, const Arguments&)) {
    auto arguments = std::make_shared<Arguments>();
    command.on_run([&tool, arguments, run] { return run(tool, *arguments); });
    return arguments;
}

void add_image_options(Command& command, Arguments& arguments) {
    command.text("IMAGE", arguments.path, "File that holds the image");
    command.number("--offset BYTES", arguments.offset, "Where in the file the image begins");
    command.number("--length BYTES", arguments.length, "Its length").otherwise("to the end");
}

} // namespace
} // namespace image

void add_image(Command& root, Tool& tool) {
    Command& group = root.group("image", "OEM images and the partitions they go to");

    Command& pack =
        group.verb("pack", "Make an image of a payload", "halctl image pack system.bin system.img");
    const auto pack_arguments = image::add(pack, tool, image::run_pack);
    pack.text("PAYLOAD", pack_arguments->other, "What is to be written to the partition");
    pack.text("IMAGE", pack_arguments->path, "The image to make");

    Command& check = group.verb("check", "Check an image", "halctl image check system.img");
    image::add_image_options(check, *image::add(check, tool, image::run_check));

    Command& write =
        group.verb("write", "Check an image and write it to the slot that does not run",
                   "halctl image write system.img system");
    const auto write_arguments = image::add(write, tool, image::run_write);
    image::add_image_options(write, *write_arguments);
    write.text("PARTITION", write_arguments->other, "uboot, boot, system, oem, custom or vbmeta");

    Command& backup = group.verb("backup", "Copy a partition of the running slot to the other slot",
                                 "halctl image backup boot");
    const auto backup_arguments = image::add(backup, tool, image::run_backup);
    backup.word("PARTITION", backup_arguments->other, "", {"boot", "system"});
    backup
        .number<std::uint32_t>("--delay US", backup_arguments->delay,
                               "Microseconds to pause after every read and write", 1, 65535)
        .otherwise("no pause");
}

} // namespace halctl
