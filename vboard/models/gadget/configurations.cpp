#include "models/gadget/configurations.h"

#include "models/gadget/composition.h"
#include "models/gadget/mass_function.h"

#include <algorithm>
#include <cerrno>

namespace vb::gadget {

namespace {

constexpr std::size_t kLongestName = 39;
constexpr std::uint8_t kMustBeSet = 0x80; // of a configuration's attributes
constexpr std::uint8_t kMayBeSet = 0xE0;
constexpr unsigned kMostPowerUnits = 255; // of 8 mA

// "TYPE.INSTANCE" in two; an errno where it is not that.
int split_name(const std::string& name, std::string& type, std::string& instance) {
    if (name.size() > kLongestName) {
        return ENAMETOOLONG;
    }
    const std::size_t dot = name.find('.');
    if (dot == std::string::npos) {
        return EINVAL;
    }
    type = name.substr(0, dot);
    instance = name.substr(dot + 1);
    return 0;
}

} // namespace

// --- functions ---

int Functions::make(const std::string& name, std::shared_ptr<configfs::Item>& made) {
    std::string type;
    std::string instance;
    if (const int error = split_name(name, type, instance); error != 0) {
        return error;
    }
    std::shared_ptr<FunctionItem> item;
    int error = ENOENT; // no module has such a function
    if (type == "hid") {
        error = make_hid_item(port_.board, port_.hid_minors, name, item);
    } else if (type == "mtp") {
        error = make_mass_item(port_.board, port_.mass_taken, name, item);
    }
    made = item;
    return error;
}

void Functions::drop(configfs::Item& item) {
    dynamic_cast<FunctionItem&>(item).retire();
}

bool Functions::has(const configfs::Item& item) const {
    return find(item.name()).get() == &item;
}

// --- configurations ---

ConfigurationItem::ConfigurationItem(Gadget& gadget, const std::string& name, std::uint8_t value)
    : Item(name),
      gadget_(gadget),
      texts_(std::make_shared<Strings>(std::vector<const char*>{"configuration"})) {
    options_.value = value;
    add(
        "MaxPower", [this] { return std::to_string(options_.power); },
        [this](std::string_view text) { return set_power(text); });
    add(
        "bmAttributes", [this] { return fmt::format("0x{:02x}", options_.attributes); },
        [this](std::string_view text) { return set_attributes(text); });
    add_standard(texts_);
}

int ConfigurationItem::set_power(std::string_view text) {
    std::uint16_t power = 0;
    int error = configfs::store_number(text, power);
    if (error == 0 && (power + 7U) / 8 > kMostPowerUnits) {
        error = ERANGE;
    }
    options_.power = error == 0 ? power : options_.power;
    return error;
}

int ConfigurationItem::set_attributes(std::string_view text) {
    std::uint8_t attributes = 0;
    int error = configfs::store_number(text, attributes);
    if (error == 0 && ((attributes & kMustBeSet) == 0 || (attributes & ~kMayBeSet) != 0)) {
        error = EINVAL;
    }
    options_.attributes = error == 0 ? attributes : options_.attributes;
    return error;
}

std::vector<std::shared_ptr<Function>> ConfigurationItem::functions() const {
    std::vector<std::shared_ptr<Function>> functions;
    for (const Linked& linked : linked_) {
        functions.push_back(linked.function);
    }
    return functions;
}

int ConfigurationItem::link(configfs::Item& target) {
    auto* function = dynamic_cast<FunctionItem*>(&target);
    if (gadget_.bound() || function == nullptr || !gadget_.functions().has(target)) {
        return EINVAL;
    }
    if (std::any_of(linked_.begin(), linked_.end(),
                    [&](const Linked& linked) { return linked.item == &target; })) {
        return EEXIST;
    }
    linked_.push_back({&target, function->make_function()});
    return 0;
}

// A gadget that loses a function is bound no longer.
void ConfigurationItem::unlink(configfs::Item& target) {
    gadget_.unbind();
    std::erase_if(linked_, [&](const Linked& linked) { return linked.item == &target; });
    dynamic_cast<FunctionItem&>(target).drop_function();
}

int Configurations::make(const std::string& name, std::shared_ptr<configfs::Item>& made) {
    std::string label;
    std::string number;
    std::uint8_t value = 0;
    int error = split_name(name, label, number);
    if (error == 0) {
        error = label.empty() ? EINVAL : configfs::store_number(number, value);
    }
    if (error != 0 || value == 0) {
        return error != 0 ? error : EINVAL;
    }
    if (std::any_of(all_.begin(), all_.end(),
                    [&](const auto& each) { return each->options().value == value; })) {
        return EBUSY;
    }
    made = all_.emplace_back(std::make_shared<ConfigurationItem>(gadget_, name, value));
    return 0;
}

void Configurations::drop(configfs::Item& item) {
    std::erase_if(all_, [&](const auto& each) { return each.get() == &item; });
}

} // namespace vb::gadget
