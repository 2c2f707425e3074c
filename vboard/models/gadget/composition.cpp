#include "models/gadget/composition.h"

#include "models/gadget/os_descriptors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace vb::gadget {

namespace {

// The longer of two that begin alike comes first: what a text begins with counts.
struct SpeedName {
    const char* name;
    usb::Speed speed; // that a controller for high speed makes of it
};
constexpr std::array kSpeeds = {
    SpeedName{"super-speed-plus", usb::Speed::high}, SpeedName{"super-speed", usb::Speed::high},
    SpeedName{"high-speed", usb::Speed::high}, SpeedName{"full-speed", usb::Speed::full},
    SpeedName{"low-speed", usb::Speed::low}};

bool is_decimal_coded(std::uint16_t version) {
    for (unsigned digits = version; digits != 0; digits >>= 4) {
        if ((digits & 0xFU) > 9) {
            return false;
        }
    }
    return true;
}

} // namespace

Gadget::Gadget(Port& port, const std::string& name)
    : Item(name),
      port_(port),
      functions_(std::make_shared<Functions>(port)),
      configurations_(std::make_shared<Configurations>(*this)),
      texts_(std::make_shared<Strings>(
          std::vector<const char*>{"manufacturer", "product", "serialnumber"})) {
    add_number("bDeviceClass", fields_.device_class);
    add_number("bDeviceSubClass", fields_.subclass);
    add_number("bDeviceProtocol", fields_.protocol);
    add_number("bMaxPacketSize0", fields_.packet);
    add_number("idVendor", fields_.vendor);
    add_number("idProduct", fields_.product);
    add_version("bcdDevice", fields_.version);
    add_version("bcdUSB", fields_.usb);
    add_bytes(
        "UDC", [this] { return (bound() ? controller_->name() : "") + "\n"; },
        [this](const WriteCall& call) { return set_controller(call.data); });
    add(
        "max_speed", [this] { return kSpeeds[fastest_].name; },
        [this](std::string_view text) { return set_speed(text); });
    add_standard(functions_);
    add_standard(configurations_);
    add_standard(texts_);
    add_standard(std::make_shared<OsDescriptors>(*this));
}

template <class Number>
void Gadget::add_number(const char* name, Number& number) {
    add(
        name,
        [&number] { return fmt::format("0x{:0{}x}", number, static_cast<int>(2 * sizeof number)); },
        [&number](std::string_view text) { return configfs::store_number(text, number); });
}

void Gadget::add_version(const char* name, std::uint16_t& version) {
    add(
        name, [&version] { return fmt::format("0x{:04x}", version); },
        [&version](std::string_view text) {
            std::uint16_t value = 0;
            int error = configfs::store_number(text, value);
            if (error == 0 && !is_decimal_coded(value)) {
                error = EINVAL;
            }
            version = error == 0 ? value : version;
            return error;
        });
}

int Gadget::set_speed(std::string_view text) {
    for (std::size_t i = 0; i < kSpeeds.size() && !bound(); ++i) {
        if (text.starts_with(kSpeeds[i].name)) {
            fastest_ = i;
            speed_ = kSpeeds[i].speed;
            return 0;
        }
    }
    return EINVAL;
}

int Gadget::set_controller(ByteView bytes) {
    if (std::find(bytes.begin(), bytes.end(), 0) != bytes.end()) {
        return EOVERFLOW;
    }
    const std::string_view name = configfs::line_of(bytes);
    if (!name.empty() && name != "none") {
        return bound() ? EBUSY : bind(name);
    }
    if (!bound()) {
        return ENODEV;
    }
    unbind();
    return 0;
}

int Gadget::bind(std::string_view name) {
    const auto found =
        std::find_if(port_.controllers.begin(), port_.controllers.end(),
                     [&](const auto& controller) { return controller->name() == name; });
    if (found == port_.controllers.end()) {
        return ENODEV;
    }
    if ((*found)->busy()) {
        return EBUSY;
    }
    std::vector<Configuration> configurations;
    std::vector<const Strings*> texts;
    for (const auto& item : configurations_->all()) {
        configurations.push_back({item->options(), 0, item->functions(), {}, {}});
        texts.push_back(&item->texts());
    }
    const bool lacks = std::any_of(configurations.begin(), configurations.end(),
                                   [](const auto& each) { return each.functions.empty(); });
    if (configurations.empty() || lacks) {
        return EINVAL;
    }
    const int error = device_.bind(*texts_, std::move(configurations), texts);
    if (error == 0) {
        controller_ = found->get();
        controller_->connect(device_, this->name());
    }
    return error;
}

void Gadget::unbind() {
    if (bound()) {
        std::exchange(controller_, nullptr)->disconnect();
        device_.unbind();
    }
}

Json Gadget::show() const {
    Json configurations = Json::array();
    for (const auto& item : configurations_->all()) {
        Json functions = Json::array();
        for (const auto& function : item->functions()) {
            functions.push_back({{"function", function->name()}, {"node", function->node()}});
        }
        configurations.push_back({{"configuration", item->name()}, {"functions", functions}});
    }
    return {{"gadget", name()},
            {"controller", bound() ? controller_->name() : ""},
            {"configurations", configurations}};
}

// --- all gadgets ---

int Gadgets::make(const std::string& name, std::shared_ptr<configfs::Item>& made) {
    made = std::make_shared<Gadget>(port_, name);
    return 0;
}

Json Gadgets::show() const {
    Json gadgets = Json::array();
    for_each([&](const std::string&, const std::shared_ptr<Entry>& entry) {
        gadgets.push_back(dynamic_cast<const Gadget&>(*entry).show());
    });
    return gadgets;
}

} // namespace vb::gadget
