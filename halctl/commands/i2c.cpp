// halctl i2c: registers of chips on the board's I2C buses.
#include "commands/commands.h"
#include "hex.h"

#include <hal_bsp/i2c.h>

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace halctl {

namespace i2c {
namespace {

struct Arguments {
    std::uint8_t bus = 0;
    std::uint8_t address = 0;
    Bytes reg;
    Bytes data;
    std::uint16_t length = 1;
};

constexpr unsigned kFirstAddress = 0x08; // below and above are addresses of special meaning
constexpr unsigned kLastAddress = 0x77;

// The library takes the address as it stands on the bus: shifted, with room for the direction.
std::uint8_t on_bus(unsigned address) {
    return static_cast<std::uint8_t>(address << 1);
}

// The two patterns that the library tries.
std::vector<std::string> nodes_of(unsigned bus) {
    return {fmt::format("/dev/i2c-{}", bus), fmt::format("/dev/i2c/{}", bus)};
}

int failed(const Tool& tool, const char* what, const Arguments& arguments) {
    return tool.failed({fmt::format("i2c {} {} {:#04x}", what, arguments.bus, arguments.address),
                        nodes_of(arguments.bus)});
}

Json json_of(const Arguments& arguments, const Bytes& data) {
    return {{"bus", arguments.bus},
            {"address", arguments.address},
            {"register", to_hex(arguments.reg)},
            {"data", to_hex(data)}};
}

int run_read(Tool& tool, const Arguments& arguments) {
    Bytes data(arguments.length);
    if (i2c_readnumbytes(arguments.bus, on_bus(arguments.address), arguments.reg.data(),
                         static_cast<std::uint16_t>(arguments.reg.size()), data.data(),
                         arguments.length) != 0) {
        return failed(tool, "read", arguments);
    }
    tool.output().print(json_of(arguments, data), to_hex(data));
    return kExitDone;
}

int run_write(Tool& tool, const Arguments& arguments) {
    if (i2c_writenumbytes(arguments.bus, on_bus(arguments.address), arguments.reg.data(),
                          static_cast<std::uint16_t>(arguments.reg.size()), arguments.data.data(),
                          static_cast<std::uint16_t>(arguments.data.size())) != 0) {
        return failed(tool, "write", arguments);
    }
    tool.output().print(json_of(arguments, arguments.data), "");
    return kExitDone;
}

// What a failed transfer says of the bus and not of the address: its node cannot be opened.
bool is_of_the_bus(int error) {
    return error == ENOENT || error == EACCES || error == ENODEV;
}

// Every address is asked for one byte. Adapters have several words for silence (ENXIO, EREMOTEIO,
// ETIMEDOUT, EIO): none of them ends the scan.
int run_scan(Tool& tool, const Arguments& arguments) {
    Json found = Json::array();
    std::string text;
    for (unsigned address = kFirstAddress; address <= kLastAddress; ++address) {
        const std::uint8_t reg = 0;
        std::uint8_t data = 0;
        errno = 0;
        if (i2c_readnumbytes(arguments.bus, on_bus(address), &reg, 1, &data, 1) == 0) {
            found.push_back(address);
            text += fmt::format("{}0x{:02x}", text.empty() ? "" : " ", address);
        } else if (is_of_the_bus(errno)) {
            return tool.failed(
                {fmt::format("i2c scan {}", arguments.bus), nodes_of(arguments.bus)});
        }
    }
    tool.output().print({{"bus", arguments.bus}, {"addresses", found}},
                        text.empty() ? "nobody answers" : text);
    return kExitDone;
}

void add_chip(Command& command, Arguments& arguments) {
    command.number("BUS", arguments.bus, "Number of the bus");
    command.number<std::uint8_t>("ADDRESS", arguments.address, "The chip's 7-bit address, as 0x54",
                                 0, 0x7F);
    command.hex("REGISTER", arguments.reg, "The register, in the order its bytes are sent", 1, 2);
}

} // namespace
} // namespace i2c

void add_i2c(Command& root, Tool& tool) {
    Command& group = root.group("i2c", "Chips on the I2C buses, /dev/i2c-N");
    auto arguments = std::make_shared<i2c::Arguments>();

    Command& read = group.verb("read", "Print registers of a chip as hex digits",
                               "halctl i2c read 2 0x54 0000 2");
    i2c::add_chip(read, *arguments);
    read.number<std::uint16_t>("[LENGTH]", arguments->length, "How many bytes", 1, 8192);
    read.on_run([&tool, arguments] { return i2c::run_read(tool, *arguments); });

    Command& write =
        group.verb("write", "Write registers of a chip", "halctl i2c write 2 0x54 0004 20ef");
    i2c::add_chip(write, *arguments);
    write.hex("DATA", arguments->data, "What is written", 1, 1024);
    write.on_run([&tool, arguments] { return i2c::run_write(tool, *arguments); });

    Command& scan =
        group.verb("scan", "List the addresses that answer (reads register 0 of every chip)",
                   "halctl i2c scan 2");
    scan.number("BUS", arguments->bus, "Number of the bus");
    scan.on_run([&tool, arguments] { return i2c::run_scan(tool, *arguments); });
}

} // namespace halctl
