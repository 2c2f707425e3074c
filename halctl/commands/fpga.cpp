// halctl fpga: transfers to and from the FPGA, and its interrupts.
#include "commands/commands.h"
#include "hex.h"
#include "output_aside.h"
#include "watch_command.h"

#include <fmt/format.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <memory>

namespace halctl {

namespace {

constexpr char kNode[] = "/dev/fpga";
constexpr char kInterruptNode[] = "/dev/fpgavm";

struct FpgaArguments {
    std::uint32_t address = 0;
    std::uint32_t length = 4;
    std::string data;
    WatchLimits limits;
};

int failed(const char* what, const FpgaArguments& arguments, int error) {
    const std::array nodes = {std::string(kNode)};
    return Tool::refused(fmt::format("fpga {} {:#x}", what, arguments.address), nodes, error);
}

int run_read(Tool& tool, const FpgaArguments& arguments) {
    Bytes data(arguments.length);
    int result = 0;
    {
        const OutputAside aside;
        errno = 0;
        result = hal_fpga_read(0, arguments.address, arguments.length, data.data());
    }
    if (result < 0) {
        return failed("read", arguments, errno);
    }
    tool.output().print({{"address", arguments.address}, {"data", to_hex(data)}}, to_hex(data));
    return kExitDone;
}

int run_write(Tool& tool, const FpgaArguments& arguments) {
    const Bytes data = from_hex(arguments.data);
    int result = 0;
    {
        const OutputAside aside;
        errno = 0;
        result = hal_fpga_write(0, arguments.address, static_cast<std::uint32_t>(data.size()),
                                data.data());
    }
    if (result < 0) {
        return failed("write", arguments, errno);
    }
    tool.output().print({{"address", arguments.address}, {"data", to_hex(data)}}, "");
    return kExitDone;
}

// The library's callback carries no data of ours.
constinit std::atomic<Watch<EventTime>*> current{nullptr};

void on_interrupt(int) {
    current.load()->post(std::chrono::system_clock::now());
}

int run_watch(Tool& tool, const FpgaArguments& arguments) {
    Watch<EventTime> watch;
    current = &watch;
    if (hal_fpga_poll_init(on_interrupt) != 0) {
        return tool.failed("fpga watch", kInterruptNode);
    }
    unsigned seen = 0;
    const WatchEnd end = watch.run(arguments.limits, [&](const EventTime& time) {
        ++seen;
        print_event(tool.output(), time, {{"number", seen}}, fmt::format("interrupt {}", seen));
        return true;
    });
    hal_fpga_poll_deinit();
    return end_of_watch("fpga watch", arguments.limits, end, seen, watch.lost());
}

} // namespace

void add_fpga(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("fpga", "The FPGA, /dev/fpga and /dev/fpgavm");
    group->require_subcommand(1);
    auto arguments = std::make_shared<FpgaArguments>();

    CLI::App& read =
        tool.add_command(*group, "read", "Print bytes as hex digits", "halctl fpga read 0x100 4");
    read.add_option("ADDRESS", arguments->address, "Where, as the FPGA counts")->required();
    read.add_option("LENGTH", arguments->length, "How many bytes")->check(CLI::Range(1, 65536));
    tool.on_run(read, [&tool, arguments] { return run_read(tool, *arguments); });

    CLI::App& write =
        tool.add_command(*group, "write", "Write bytes", "halctl fpga write 0x100 deadbeef");
    write.add_option("ADDRESS", arguments->address, "Where, as the FPGA counts")->required();
    write.add_option("DATA", arguments->data, "The bytes, as hex digits")
        ->required()
        ->check(is_hex(1, 65536));
    tool.on_run(write, [&tool, arguments] { return run_write(tool, *arguments); });

    CLI::App& watch = tool.add_command(*group, "watch", "Print each interrupt as it comes",
                                       "halctl fpga watch --count 1 --timeout 10");
    add_limits(watch, arguments->limits);
    tool.on_run(watch, [&tool, arguments] { return run_watch(tool, *arguments); });
}

} // namespace halctl
