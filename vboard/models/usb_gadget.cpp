#include "models/usb_gadget.h"

#include "models/gadget/composition.h"

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
    const auto host = settings.get<std::string>("host", "host");
    for (const std::string& name : settings.get<Names>("controllers", {"usb-device.0"})) {
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

} // namespace

std::unique_ptr<Model> make_usb_gadget(Board& board, Settings& settings) {
    return std::make_unique<UsbGadget>(board, settings);
}

} // namespace vb
