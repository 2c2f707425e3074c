// The USB device port: the kernel's gadget framework in /sys/kernel/config/usb_gadget with the
// functions "hid" and "mtp", the controllers in /sys/class/udc, the device android0, and the nodes
// /dev/hidgN and /dev/mass.
//
// A gadget is put together and bound as the kernel has it; models/gadget/ says in each header what
// is ours to choose. In short:
// - "none" in UDC unbinds. An unknown controller is ENODEV, a gadget without a configuration, or
//   with one that has no function, EINVAL.
// - A write takes 4095 bytes at most: the rest of a longer report descriptor takes its place.
// - usbsta, hidsee and masssee of android0 take any number of 32 bits. Its uevents are CONNECTED at
//   the host's first reset, CONFIGURED each time it configures the device, CONNECTED again when it
//   takes the configuration back, DISCONNECTED when the gadget is unbound or the cable is pulled,
//   and, before a new CONNECTED, when the host resets what it had configured.

#include "models/gadget/composition.h"
#include "models/kinds.h"

#include <algorithm>

namespace vb {

namespace {

class UsbGadget : public Model {
  public:
    UsbGadget(Board& board, Settings& settings);

  private:
    Json show() const;

    gadget::Port port_;
    std::shared_ptr<gadget::Gadgets> gadgets_;
};

UsbGadget::UsbGadget(Board& board, Settings& settings)
    : port_{board}, gadgets_(std::make_shared<gadget::Gadgets>(port_)) {
    using Names = std::vector<std::string>;
    const auto host = settings.get<std::string>("host");
    for (const std::string& name : settings.get<Names>("controllers")) {
        const bool first = port_.controllers.empty();
        if (name.empty() || name == "none" || name.find('/') != std::string::npos) {
            settings.refuse("controllers", fmt::format("\"{}\" is no name", name));
        }
        port_.controllers.push_back(std::make_unique<gadget::Controller>(
            board, port_.android, name, first ? host : std::string()));
    }
    board.tree().put("/sys/kernel/config/usb_gadget", gadgets_);
    board.verbs().add({"usb.gadget",
                       {},
                       "what the gadgets are made of, what is bound, and how it is with the host",
                       [this](const Json&) { return show(); }});
}

Json UsbGadget::show() const {
    Json controllers = Json::array();
    for (const auto& controller : port_.controllers) {
        controllers.push_back({{"controller", controller->name()},
                               {"gadget", controller->gadget()},
                               {"state", controller->state()}});
    }
    return {{"controllers", controllers},
            {"gadgets", gadgets_->show()},
            {"android0", port_.android.state()}};
}

constexpr SettingRow kUsbGadgetSettings[] = {
    {"controllers", R"(["usb-device.0"])", "their names; the first has the port's socket"},
    {"host", R"("host")", "the part at the other end of the cable"},
};

} // namespace

const ModelKind kUsbGadget{"usb_gadget",
                           "the USB device port: `/sys/kernel/config/usb_gadget`, "
                           "`/sys/class/udc`, `android0`, `/dev/hidgN`, `/dev/mass`",
                           kUsbGadgetSettings, make_model<UsbGadget>};

} // namespace vb
