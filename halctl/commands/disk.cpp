// halctl disk: the disk that the board is to the host on its USB device port.
#include "commands/commands.h"
#include "commands/otg_port.h"
#include "scsi_disk.h"

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>

namespace halctl {

namespace disk {
namespace {

constexpr char kServe[] = "disk serve";

struct Arguments {
    std::string via;
    std::string image;
    bool read_only = false;
    double timeout = 10;
};

struct Close {
    void operator()(scsi_disk* disk) const { scsi_disk_close(disk); }
};
using Image = std::unique_ptr<scsi_disk, Close>;

// The library's callback carries no data of ours.
constinit std::atomic<scsi_disk*> served{nullptr};
constinit std::atomic<bool> withdrawn{false};

void on_event(hal_mass_data* event) {
    if (scsi_disk_take(served.load(), event)) {
        withdrawn = true;
    }
}

// Ends the worker, which notices that at the host's next command, or when the port goes down.
void withdraw(port::Port& port, const usb::Carrier& carrier) {
    constexpr double kHostsNextCommand = 1;
    constexpr double kWorkersEnd = 10;
    const auto is_idle = [&] { return !carrier.has_disk(); };
    carrier.remove_disk();
    if (!port.waited_for([&] { return withdrawn || is_idle(); }, kHostsNextCommand)) {
        carrier.detach();
    }
    // What it has to do with the gadget is done then.
    port.waited_for(is_idle, kWorkersEnd);
    if (port.was_up() && port::look().controller.empty()) {
        static_cast<void>(port.bring_up(std::nullopt)); // it says what is wrong
    }
}

Json object_of(const Arguments& arguments, bool serving) {
    return {{"image", arguments.image}, {"read_only", arguments.read_only}, {"serving", serving}};
}

// Until a signal comes. When a host goes the library ends the disk; it is added anew for the next.
std::optional<int> serve(Tool& tool, port::Port& port, const Arguments& arguments) {
    const usb::Carrier& carrier = usb::carrier_via(arguments.via);
    std::int32_t result = 0;
    const auto add = [&] {
        withdrawn = false;
        result = carrier.add_disk(on_event);
    };
    if (const auto status = port.run(add)) {
        return status;
    }
    bool had_host = false;
    do {
        if (result != 0 || (withdrawn && !had_host)) {
            return tool.failed(kServe, "the disk cannot be added to the device");
        }
        had_host = true;
        if (!withdrawn) { // as it is already where the next host was quick to go
            tool.output().print(object_of(arguments, true),
                                fmt::format("serving {}", arguments.image));
        }
    } while (port.waited_until([&] { return !carrier.has_disk(); }) && port.waited_for_host() &&
             port.ran(add));
    return std::nullopt;
}

int run_serve(Tool& tool, const Arguments& arguments) {
    if (access(arguments.image.c_str(), R_OK | (arguments.read_only ? 0 : W_OK)) != 0) {
        return tool.cannot_open(kServe, arguments.image, errno);
    }
    // There to the end: when the disk is not withdrawn in time, the library may still call.
    static Image image;
    const usb::Carrier& carrier = usb::carrier_via(arguments.via);
    image.reset(scsi_disk_open(arguments.image.c_str(), arguments.read_only, carrier.write_disk,
                               carrier.disk_data));
    if (!image) {
        return tool.failed(kServe, fmt::format("{}: {}", in_quotes(arguments.image),
                                               errno == EINVAL ? "its size is no number of sectors"
                                                               : std::strerror(errno)));
    }
    served = image.get();
    port::Port port(tool, kServe, carrier);
    if (const auto status = port.bring_up(std::nullopt)) {
        return *status;
    }
    if (const auto status = port.wait_for_host(arguments.timeout)) {
        return *status;
    }
    const auto failure = serve(tool, port, arguments);
    withdraw(port, carrier);
    if (failure) {
        return *failure;
    }
    const scsi_disk_counts counts = scsi_disk_count(image.get());
    Json object = object_of(arguments, false);
    object["commands"] = counts.commands;
    object["bytes_read"] = counts.bytes_read;
    object["bytes_written"] = counts.bytes_written;
    tool.output().print(object,
                        fmt::format("{} commands, {} bytes read, {} bytes written", counts.commands,
                                    counts.bytes_read, counts.bytes_written));
    return kExitDone;
}

} // namespace
} // namespace disk

void add_disk(Command& root, Tool& tool) {
    Command& group = root.group("disk", "A disk for the host on the USB device port, which is "
                                        "brought up if it is not");
    Command& serve = group.verb("serve",
                                "Be a disk with the contents of an image for each host "
                                "that comes, until a signal",
                                "halctl disk serve disk.img --read-only");
    auto arguments = std::make_shared<disk::Arguments>();
    serve.text("IMAGE", arguments->image, "File or partition of whole sectors of 512 bytes");
    serve.flag("--read-only", arguments->read_only, "Let the host not write to it");
    port::add_way(serve, arguments->via);
    port::add_timeout(serve, arguments->timeout);
    serve.on_run([&tool, arguments] { return disk::run_serve(tool, *arguments); });
}

} // namespace halctl
