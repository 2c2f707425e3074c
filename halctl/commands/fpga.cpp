// halctl fpga: transfers to and from the FPGA, and its interrupts.
#include "commands/commands.h"
#include "hex.h"
#include "watch_command.h"

#include <hal_bsp/fpga.h>

#include <fmt/format.h>

#include <atomic>
#include <memory>

namespace halctl {

namespace fpga {
namespace {

struct Arguments {
    std::uint32_t address = 0;
    std::uint32_t length = 4;
    Bytes data;
    WatchLimits limits;
};

int failed(const Tool& tool, const char* what, std::uint32_t address) {
    return tool.failed({fmt::format("fpga {} {:#x}", what, address), {"/dev/fpga"}});
}

int run_read(Tool& tool, const Arguments& arguments) {
    Bytes data(arguments.length);
    if (hal_fpga_read(0, arguments.address, arguments.length, data.data()) < 0) {
        return failed(tool, "read", arguments.address);
    }
    tool.output().print({{"address", arguments.address}, {"data", to_hex(data)}}, to_hex(data));
    return kExitDone;
}

int run_write(Tool& tool, Arguments& arguments) {
    if (hal_fpga_write(0, arguments.address, static_cast<std::uint32_t>(arguments.data.size()),
                       arguments.data.data()) < 0) {
        return failed(tool, "write", arguments.address);
    }
    tool.output().print({{"address", arguments.address}, {"data", to_hex(arguments.data)}}, "");
    return kExitDone;
}

// The library's callback carries no data of ours.
constinit std::atomic<Watch<EventTime>*> interrupts{nullptr};

void on_interrupt(int) {
    interrupts.load()->post(std::chrono::system_clock::now());
}

int run_watch(Tool& tool, const WatchLimits& limits) {
    Watch<EventTime> watch;
    interrupts = &watch;
    if (hal_fpga_poll_init(on_interrupt) != 0) {
        return tool.failed({"fpga watch", {"/dev/fpgavm"}});
    }
    WatchReport report;
    report.end = watch.run(limits, [&](const EventTime& time) {
        ++report.seen;
        print_event(tool.output(), time, {{"number", report.seen}},
                    fmt::format("interrupt {}", report.seen));
        return true;
    });
    hal_fpga_poll_deinit();
    report.lost = watch.lost();
    return end_of_watch(tool, "fpga watch", limits, report);
}

} // namespace
} // namespace fpga

void add_fpga(Command& root, Tool& tool) {
    Command& group = root.group("fpga", "The FPGA, /dev/fpga and /dev/fpgavm");
    auto arguments = std::make_shared<fpga::Arguments>();

    Command& read = group.verb("read", "Print bytes as hex digits", "halctl fpga read 0x100 4");
    read.number("ADDRESS", arguments->address, "Where, as the FPGA counts");
    read.number<std::uint32_t>("[LENGTH]", arguments->length, "How many bytes", 1, 65536);
    read.on_run([&tool, arguments] { return fpga::run_read(tool, *arguments); });

    Command& write = group.verb("write", "Write bytes", "halctl fpga write 0x100 deadbeef");
    write.number("ADDRESS", arguments->address, "Where, as the FPGA counts");
    write.hex("DATA", arguments->data, "What is written", 1, 65536);
    write.on_run([&tool, arguments] { return fpga::run_write(tool, *arguments); });

    Command& watch = group.verb("watch", "Print each interrupt as it comes",
                                "halctl fpga watch --count 1 --timeout 10");
    add_limits(watch, arguments->limits);
    watch.on_run([&tool, arguments] { return fpga::run_watch(tool, arguments->limits); });
}

} // namespace halctl
