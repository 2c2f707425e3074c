// halctl vendor: numbered items of the vendor storage.
#include "commands/commands.h"
#include "hex.h"

#include <hal_bsp/vendor.h>

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <memory>

namespace halctl {

namespace vendor {
namespace {

constexpr char kNode[] = "/dev/vendor_storage";

constexpr std::array kHints = {
    Hint{ENOENT, "there is no such item"},
    Hint{ENOSPC, "there is no room for another item"},
};

struct Arguments {
    std::uint32_t id = 0;
    std::uint32_t length = HAL_VENDOR_ITEM_SIZE;
    Bytes data;
};

int failed(const Tool& tool, const char* what, std::uint32_t id) {
    return tool.failed({fmt::format("vendor {} {}", what, id), {kNode}, kHints});
}

int run_read(Tool& tool, const Arguments& arguments) {
    Bytes data(HAL_VENDOR_ITEM_SIZE);
    if (hal_vendor_read(arguments.id, data.data(), arguments.length) != 0) {
        return failed(tool, "read", arguments.id);
    }
    data.resize(arguments.length);
    tool.output().print({{"id", arguments.id}, {"data", to_hex(data)}}, to_hex(data));
    return kExitDone;
}

int run_write(Tool& tool, const Arguments& arguments) {
    const Bytes& data = arguments.data;
    if (hal_vendor_write(arguments.id, data.data(), static_cast<std::uint32_t>(data.size())) != 0) {
        return failed(tool, "write", arguments.id);
    }
    tool.output().print({{"id", arguments.id}, {"data", to_hex(data)}}, "");
    return kExitDone;
}

} // namespace
} // namespace vendor

void add_vendor(Command& root, Tool& tool) {
    Command& group = root.group("vendor", "The items of the vendor storage");
    auto arguments = std::make_shared<vendor::Arguments>();

    Command& read =
        group.verb("read", "Print an item's bytes as hex digits", "halctl vendor read 1 4");
    read.number("ID", arguments->id, "The item", 0U, 65535U);
    read.number<std::uint32_t>("[LENGTH]", arguments->length,
                               "How many bytes; 00 behind a shorter item", 1, HAL_VENDOR_ITEM_SIZE);
    read.on_run([&tool, arguments] { return vendor::run_read(tool, *arguments); });

    Command& write = group.verb("write", "Write an item", "halctl vendor write 1 deadbeef");
    write.number("ID", arguments->id, "The item", 0U, 65535U);
    write.hex("DATA", arguments->data, "What it is to hold", 1, HAL_VENDOR_ITEM_SIZE);
    write.on_run([&tool, arguments] { return vendor::run_write(tool, *arguments); });
}

} // namespace halctl
