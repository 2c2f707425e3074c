// halctl otg: the USB device port as a whole.
#include "commands/commands.h"
#include "commands/otg_port.h"

#include <hal_bsp/otg.h>

#include <fmt/format.h>

#include <memory>

namespace halctl {

namespace otg {
namespace {

struct Arguments {
    port::UsbIds ids;
    double timeout = 0; // 0: does not wait for a host
};

template <class T, class None>
Json or_null(const T& value, const None& none) {
    return value == none ? Json() : Json(value);
}

Json number_or_null(const std::optional<int>& number) {
    return number ? Json(*number) : Json();
}

std::string shown(const std::optional<int>& number) {
    return number ? std::to_string(*number) : "?";
}

int print_state(const Tool& tool) {
    const port::State state = port::look();
    const std::string nothing;
    Json object = {{"controller", or_null(state.controller, nothing)},
                   {"connection", or_null(state.connection, nothing)},
                   {"vendor", or_null(state.vendor, nothing)},
                   {"product", or_null(state.product, nothing)},
                   {"functions", state.functions},
                   {"usbsta", number_or_null(state.usbsta)},
                   {"hidsee", number_or_null(state.hidsee)},
                   {"masssee", number_or_null(state.masssee)}};
    std::string text = "down";
    if (!state.controller.empty()) {
        text = fmt::format("up on {}: {}, {}:{}, {}", state.controller, state.connection,
                           state.vendor, state.product, fmt::join(state.functions, " "));
    }
    tool.output().print(object, fmt::format("{}\nusbsta {}, hidsee {}, masssee {}", text,
                                            shown(state.usbsta), shown(state.hidsee),
                                            shown(state.masssee)));
    return kExitDone;
}

int run_status(Tool& tool) {
    const auto status = port::missing(tool, "otg status");
    return status ? *status : print_state(tool);
}

int run_up(Tool& tool, const Arguments& arguments) {
    port::Port port(tool, "otg up", usb::kSocGadget);
    if (const auto status = port.bring_up(arguments.ids)) {
        return *status;
    }
    port.keep();
    // The listener writes `masssee` last.
    const auto configured = [] {
        const port::State state = port::look();
        return state.usbsta == HAL_OTG_CONFIGURED && state.masssee == 1;
    };
    if (arguments.timeout > 0) {
        if (const auto status = port.wait_until(
                configured, arguments.timeout,
                fmt::format("no host has configured the port within {} s", arguments.timeout))) {
            return *status;
        }
    }
    if (tool.output().json()) {
        print_state(tool);
    }
    return kExitDone;
}

int run_down(Tool& tool) {
    constexpr char kWhat[] = "otg down";
    if (const auto status = port::missing(tool, kWhat)) {
        return *status;
    }
    hal_otg_init(nullptr, 0, nullptr); // the listener, which keeps the mailboxes
    hal_otg_stop(0);
    if (const port::State state = port::look(); !state.controller.empty()) {
        return tool.failed(kWhat, fmt::format("it is still bound to {}", state.controller));
    }
    if (tool.output().json()) {
        print_state(tool);
    }
    return kExitDone;
}

} // namespace
} // namespace otg

void add_otg(Command& root, Tool& tool) {
    Command& group = root.group("otg", "The USB device port: what a host at its other end sees");

    Command& status =
        group.verb("status",
                   "Print what the port is: its controller, what the host made of it, "
                   "the IDs and functions of the gadget, and the library's mailboxes",
                   "halctl otg status");
    status.on_run([&tool] { return otg::run_status(tool); });

    // The examples of what changes the port are for a board: a desk may have a gadget of its own.
    Command& up = group.verb("up", "Bring the port up as keyboard, mice and touch screen; it stays",
                             "vboard run --speed 20 -- halctl otg up --vendor 0x1d6b --timeout 9");
    auto arguments = std::make_shared<otg::Arguments>();
    up.number("--vendor ID", arguments->ids.vendor, "idVendor of the USB device")
        .otherwise("0x1d6b");
    up.number("--product ID", arguments->ids.product, "idProduct of the USB device")
        .otherwise("0x0104");
    port::add_timeout(up, arguments->timeout).otherwise("no wait");
    up.on_run([&tool, arguments] { return otg::run_up(tool, *arguments); });

    Command& down = group.verb("down", "Take the port down; the host sees the device go",
                               "vboard run --speed 20 -- halctl otg down");
    down.on_run([&tool] { return otg::run_down(tool); });
}

} // namespace halctl
