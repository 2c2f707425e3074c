// halctl vendor: numbered items of the vendor storage.
#include "commands/commands.h"
#include "hex.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <memory>

namespace halctl {

namespace {

constexpr char kNode[] = "/dev/vendor_storage";

constexpr std::array kHints = {
    Hint{ENOENT, "there is no such item"},
    Hint{ENOSPC, "there is no room for another item"},
};

struct VendorArguments {
    std::uint32_t id = 0;
    std::uint32_t length = HAL_VENDOR_ITEM_SIZE;
    std::string data;
};

int failed(const Tool& tool, const char* what, const VendorArguments& arguments) {
    return tool.failed(fmt::format("vendor {} {}", what, arguments.id), kNode, kHints);
}

int run_read(Tool& tool, const VendorArguments& arguments) {
    Bytes data(HAL_VENDOR_ITEM_SIZE);
    if (hal_vendor_read(arguments.id, data.data(), arguments.length) != 0) {
        return failed(tool, "read", arguments);
    }
    data.resize(arguments.length);
    tool.output().print({{"id", arguments.id}, {"data", to_hex(data)}}, to_hex(data));
    return kExitDone;
}

int run_write(Tool& tool, const VendorArguments& arguments) {
    const Bytes data = from_hex(arguments.data);
    if (hal_vendor_write(arguments.id, data.data(), static_cast<std::uint32_t>(data.size())) != 0) {
        return failed(tool, "write", arguments);
    }
    tool.output().print({{"id", arguments.id}, {"data", to_hex(data)}}, "");
    return kExitDone;
}

void add_id(CLI::App& command, VendorArguments& arguments) {
    command.add_option("ID", arguments.id, "The item's number")
        ->required()
        ->check(CLI::Range(0, 65535));
}

} // namespace

void add_vendor(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("vendor", "The items of the vendor storage");
    group->require_subcommand(1);
    auto arguments = std::make_shared<VendorArguments>();

    CLI::App& read = tool.add_command(*group, "read", "Print an item's bytes as hex digits",
                                      "halctl vendor read 1 4");
    add_id(read, *arguments);
    read.add_option("LENGTH", arguments->length, "How many bytes (64); 00 behind a shorter item")
        ->check(CLI::Range(1, HAL_VENDOR_ITEM_SIZE));
    tool.on_run(read, [&tool, arguments] { return run_read(tool, *arguments); });

    CLI::App& write =
        tool.add_command(*group, "write", "Write an item", "halctl vendor write 1 deadbeef");
    add_id(write, *arguments);
    write.add_option("DATA", arguments->data, "The bytes, as hex digits")
        ->required()
        ->check(is_hex(1, HAL_VENDOR_ITEM_SIZE));
    tool.on_run(write, [&tool, arguments] { return run_write(tool, *arguments); });
}

} // namespace halctl
