// halctl i2c: registers of chips on the board's I2C buses.
#include "commands/commands.h"
#include "hex.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <memory>

namespace halctl {

namespace {

struct I2cArguments {
    std::uint8_t bus = 0;
    std::uint8_t address = 0;
    std::string reg;
    std::string data;
    std::uint16_t length = 1;
};

constexpr unsigned kFirstAddress = 0x08; // below and above are addresses of special meaning
constexpr unsigned kLastAddress = 0x77;

// The library takes the address as it stands on the bus: shifted, with room for the direction.
std::uint8_t on_bus(unsigned address) {
    return static_cast<std::uint8_t>(address << 1);
}

int failed(const std::string& what, unsigned bus, int error) {
    const std::array nodes = {fmt::format("/dev/i2c-{}", bus), fmt::format("/dev/i2c/{}", bus)};
    return Tool::refused(what, nodes, error);
}

int failed(const char* what, const I2cArguments& arguments, int error) {
    return failed(fmt::format("i2c {} {} {:#04x}", what, arguments.bus, arguments.address),
                  arguments.bus, error);
}

int run_read(Tool& tool, const I2cArguments& arguments) {
    const Bytes reg = from_hex(arguments.reg);
    Bytes data(arguments.length);
    errno = 0;
    if (i2c_readnumbytes(arguments.bus, on_bus(arguments.address), reg.data(),
                         static_cast<std::uint16_t>(reg.size()), data.data(),
                         arguments.length) != 0) {
        return failed("read", arguments, errno);
    }
    tool.output().print({{"bus", arguments.bus},
                         {"address", arguments.address},
                         {"register", arguments.reg},
                         {"data", to_hex(data)}},
                        to_hex(data));
    return kExitDone;
}

int run_write(Tool& tool, const I2cArguments& arguments) {
    const Bytes reg = from_hex(arguments.reg);
    const Bytes data = from_hex(arguments.data);
    errno = 0;
    if (i2c_writenumbytes(arguments.bus, on_bus(arguments.address), reg.data(),
                          static_cast<std::uint16_t>(reg.size()), data.data(),
                          static_cast<std::uint16_t>(data.size())) != 0) {
        return failed("write", arguments, errno);
    }
    tool.output().print({{"bus", arguments.bus},
                         {"address", arguments.address},
                         {"register", arguments.reg},
                         {"data", to_hex(data)}},
                        "");
    return kExitDone;
}

// Every address is asked for one byte. An answer of any kind counts; a bus that does not exist
// shows at the first.
int run_scan(Tool& tool, const I2cArguments& arguments) {
    Json found = Json::array();
    std::string text;
    for (unsigned address = kFirstAddress; address <= kLastAddress; ++address) {
        const std::uint8_t reg = 0;
        std::uint8_t data = 0;
        errno = 0;
        if (i2c_readnumbytes(arguments.bus, on_bus(address), &reg, 1, &data, 1) == 0) {
            found.push_back(address);
            text += fmt::format("{}0x{:02x}", text.empty() ? "" : " ", address);
        } else if (errno != ENXIO && errno != EREMOTEIO) {
            return failed(fmt::format("i2c scan {}", arguments.bus), arguments.bus, errno);
        }
    }
    tool.output().print({{"bus", arguments.bus}, {"addresses", found}},
                        text.empty() ? "nobody answers" : text);
    return kExitDone;
}

void add_chip(CLI::App& command, I2cArguments& arguments) {
    command.add_option("BUS", arguments.bus, "Number of the bus")->required();
    command.add_option("ADDRESS", arguments.address, "The chip's 7-bit address, as 0x54")
        ->required()
        ->check(CLI::Range(0, 0x7F));
    command
        .add_option("REGISTER", arguments.reg,
                    "Register, one or two bytes in the order they are sent")
        ->required()
        ->check(is_hex(1, 2));
}

} // namespace

void add_i2c(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("i2c", "Chips on the I2C buses, /dev/i2c-N");
    group->require_subcommand(1);
    auto arguments = std::make_shared<I2cArguments>();

    CLI::App& read = tool.add_command(*group, "read", "Print registers of a chip as hex digits",
                                      "halctl i2c read 2 0x54 0000 2");
    add_chip(read, *arguments);
    read.add_option("LENGTH", arguments->length, "How many bytes")->check(CLI::Range(1, 8192));
    tool.on_run(read, [&tool, arguments] { return run_read(tool, *arguments); });

    CLI::App& write = tool.add_command(*group, "write", "Write registers of a chip",
                                       "halctl i2c write 2 0x54 0004 20ef");
    add_chip(write, *arguments);
    write.add_option("DATA", arguments->data, "The bytes, as hex digits")
        ->required()
        ->check(is_hex(1, 1024));
    tool.on_run(write, [&tool, arguments] { return run_write(tool, *arguments); });

    CLI::App& scan = tool.add_command(
        *group, "scan", "List the addresses that answer (reads register 0 of every chip)",
        "halctl i2c scan 2");
    scan.add_option("BUS", arguments->bus, "Number of the bus")->required();
    tool.on_run(scan, [&tool, arguments] { return run_scan(tool, *arguments); });
}

} // namespace halctl
