// halctl mcu: the MCU, its USB device port, and the bridge disk that leads to it.
#include "commands/mcu.h"
#include "commands/commands.h"
#include "commands/otg_port.h"

#include <hal_bsp/mcu.h>
#include <hal_bsp/sysgpio.h>

#include <fcntl.h>
#include <fmt/format.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <span>

namespace halctl {

namespace mcu {
namespace {

namespace fs = std::filesystem;

constexpr char kLines[] = "/dev/drvgpio";
constexpr char kBridge[] =
    "/sys/devices/platform/soc/10390000.sata/ata1/host0/target0:0:0/0:0:0:0/block";

struct Arguments {
    port::UsbIds ids = port::ids_via("mcu");
    double timeout = 0; // 0: does not wait for a host
};

// --- the bridge disk ---

class Disk {
  public:
    explicit Disk(int flags) {
        std::error_code error;
        const fs::directory_iterator first(kBridge, error);
        if (!error && first != fs::directory_iterator()) {
            path_ = "/dev/" + first->path().filename().string();
        }
        fd_ = open(path_.c_str(), flags | O_CLOEXEC);
    }
    ~Disk() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Disk(const Disk&) = delete;
    Disk& operator=(const Disk&) = delete;

    explicit operator bool() const { return fd_ >= 0; }
    const std::string& path() const { return path_; }

    // The SCSI status, or -1 with errno.
    int command(std::span<std::uint8_t> command, int direction,
                std::span<std::uint8_t> data) const {
        sg_io_hdr request{};
        request.interface_id = 'S';
        request.cmdp = command.data();
        request.cmd_len = static_cast<unsigned char>(command.size());
        request.dxfer_direction = direction;
        request.dxferp = data.data();
        request.dxfer_len = static_cast<unsigned int>(data.size());
        return ioctl(fd_, SG_IO, &request) < 0 ? -1 : request.status;
    }

  private:
    std::string path_ = kBridge;
    int fd_;
};

std::string text_in(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text.push_back(byte >= ' ' && byte < 0x7F ? static_cast<char>(byte) : '?');
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

// --- commands ---

int unanswered(const Tool& tool, const char* what, int status) {
    return tool.failed(
        what, status < 0
                  ? std::strerror(errno)
                  : fmt::format("SCSI status {}; does the MCU run? Try `halctl mcu up`", status));
}

Json level_of(std::uint32_t line) {
    const std::int32_t level = util_gpio_get(line);
    return level < 0 ? Json() : Json(level);
}

int print_info(const Tool& tool, const char* what) {
    constexpr std::uint32_t kVbusLine = 96;
    constexpr std::uint8_t kInquiry = 0x12;
    const Disk disk(O_RDONLY);
    if (!disk) {
        return tool.cannot_open(what, disk.path(), errno);
    }
    std::array<std::uint8_t, sizeof inquiry_data> answer{};
    std::array<std::uint8_t, 6> inquiry{kInquiry, 0, 0, 0, sizeof inquiry_data, 0};
    if (const int status = disk.command(inquiry, SG_DXFER_FROM_DEV, answer); status != 0) {
        return unanswered(tool, what, status);
    }
    const std::span<const std::uint8_t> names(answer);
    const bool known = std::equal(answer.begin(), answer.end(), std::begin(inquiry_data));
    const Json object = {{"disk", disk.path()},
                         {"vendor", text_in(names.subspan(8, 8))},
                         {"product", text_in(names.subspan(16, 16))},
                         {"revision", text_in(names.subspan(32, 4))},
                         {"bridge", known},
                         {"vbus", level_of(kVbusLine)},
                         {"interrupt", level_of(usb::kMcuInterruptLine)}};
    const auto shown = [&](const char* key) {
        const Json& value = object.at(key);
        return value.is_null() ? "?" : value.is_string() ? value.get<std::string>() : value.dump();
    };
    tool.output().print(object, fmt::format("{}: {}, {}, {}{}\nVBUS {}, interrupt {}", disk.path(),
                                            shown("vendor"), shown("product"), shown("revision"),
                                            known ? "" : " (not the bridge)", shown("vbus"),
                                            shown("interrupt")));
    return kExitDone;
}

// What the command has changed, for programs.
int done(const Tool& tool, const char* what) {
    return tool.output().json() ? print_info(tool, what) : kExitDone;
}

int run_info(Tool& tool) {
    const auto status = missing(tool, "mcu info");
    return status ? *status : print_info(tool, "mcu info");
}

int run_reset(Tool& tool) {
    constexpr char kWhat[] = "mcu reset";
    port::Port port(tool, kWhat, usb::kMcuBridge);
    std::int32_t result = 0;
    if (const auto status = port.run([&] { result = mcu_hard_rst(); })) {
        return *status;
    }
    if (result < 0) {
        return tool.failed({.what = kWhat, .nodes = {kLines}});
    }
    tool.output().print({{"reset", true}}, "");
    return kExitDone;
}

int run_recover(Tool& tool) {
    constexpr char kWhat[] = "mcu recover";
    if (const auto status = missing(tool, kWhat)) {
        return *status;
    }
    port::Port port(tool, kWhat, usb::kMcuBridge);
    std::int32_t result = 0;
    if (const auto status = port.run([&] { result = mcu_recover(); })) {
        return *status;
    }
    return result == 0 ? done(tool, kWhat) : tool.failed(kWhat, "the bridge disk does not open");
}

int run_up(Tool& tool, const Arguments& arguments) {
    constexpr char kWhat[] = "mcu up";
    port::Port port(tool, kWhat, usb::kMcuBridge);
    if (const auto status = port.bring_up(arguments.ids)) {
        return *status;
    }
    port.keep();
    if (arguments.timeout > 0) {
        if (const auto status = port.wait_for_host(arguments.timeout)) {
            return *status;
        }
    }
    return done(tool, kWhat);
}

// One packet: bringing the bridge up for it would reset the MCU first.
int run_down(Tool& tool) {
    constexpr char kWhat[] = "mcu down";
    if (const auto status = missing(tool, kWhat)) {
        return *status;
    }
    const Disk disk(O_RDWR);
    if (!disk) {
        return tool.cannot_open(kWhat, disk.path(), errno);
    }
    constexpr std::array<std::uint8_t, 2> kDetach{};
    std::array<std::uint8_t, MCU_BLOCK_BYTES> block{};
    make_tlv_packet(block.data(), kDetach.data(), kDetach.size(), MCU_USB_CONTROL);
    std::array<std::uint8_t, 10> write{0x2A};
    write[8] = MCU_BLOCK_BYTES / 512;
    const int status = disk.command(write, SG_DXFER_TO_DEV, block);
    return status == 0 ? done(tool, kWhat) : unanswered(tool, kWhat, status);
}

} // namespace

std::optional<int> missing(const Tool& tool, const std::string& what) {
    for (const char* place : {kLines, kBridge}) {
        if (access(place, R_OK) != 0) {
            return tool.cannot_open(what, place, errno);
        }
    }
    return std::nullopt;
}

} // namespace mcu

void add_mcu(Command& root, Tool& tool) {
    Command& group = root.group("mcu", "The MCU, whose USB device port is another way to the host");

    Command& info = group.verb("info", "Print the bridge disk that leads to the MCU, and two lines",
                               "halctl mcu info");
    info.on_run([&tool] { return mcu::run_info(tool); });

    // The examples of what changes the MCU are for a board: a desk may have such lines, too.
    Command& reset = group.verb("reset", "Reset the MCU; its USB device is detached then",
                                "vboard run --speed 20 -- halctl mcu reset");
    reset.on_run([&tool] { return mcu::run_reset(tool); });

    Command& up = group.verb("up", "Bring its port up as keyboard, mice and touch screen; it stays",
                             "vboard run --speed 20 -- halctl mcu up --timeout 9");
    auto arguments = std::make_shared<mcu::Arguments>();
    up.number("--vendor ID", arguments->ids.vendor, "idVendor of the USB device")
        .otherwise("0x2323");
    up.number("--product ID", arguments->ids.product, "idProduct of the USB device")
        .otherwise("0x5757");
    port::add_timeout(up, arguments->timeout).otherwise("no wait");
    up.on_run([&tool, arguments] { return mcu::run_up(tool, *arguments); });

    Command& down = group.verb("down", "Take its port down; the host sees the device go",
                               "vboard run --speed 20 -- halctl mcu down");
    down.on_run([&tool] { return mcu::run_down(tool); });

    Command& recover =
        group.verb("recover",
                   "Reset the MCU, open the bridge disk anew and attach the USB device, as the "
                   "library does after a command that failed",
                   "vboard run --speed 20 -- halctl mcu recover");
    recover.on_run([&tool] { return mcu::run_recover(tool); });
}

} // namespace halctl
