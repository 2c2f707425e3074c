#include "models/stick/kernel_device.h"

#include "serve/attribute.h"

#include <algorithm>
#include <cerrno>
#include <fmt/format.h>

namespace vb::stick {

namespace {

std::string up(std::size_t levels) {
    std::string text;
    for (std::size_t i = 0; i < levels; ++i) {
        text += "../";
    }
    return text;
}

std::string value_of(const Keys& keys, std::string_view name) {
    const auto found =
        std::find_if(keys.begin(), keys.end(), [&](const auto& key) { return key.first == name; });
    return found == keys.end() ? "" : found->second;
}

std::size_t depth_of(std::string_view path) {
    return static_cast<std::size_t>(std::count(path.begin(), path.end(), '/'));
}

void add_lines(std::string& lines, const Keys& keys) {
    for (const auto& [name, value] : keys) {
        lines += fmt::format("\n{}={}", name, value);
    }
}

} // namespace

KernelDevice::KernelDevice(Board& board, Description description)
    : board_(board), description_(std::move(description)) {}

// Where the device is listed besides.
std::vector<std::string> KernelDevice::links() const {
    const std::string& subsystem = description_.subsystem;
    const std::string name(split_path(description_.path).second);
    const Keys& identity = description_.identity;
    const bool block = subsystem == "class/block";
    std::vector<std::string> links = {fmt::format(
        "/sys/{}/{}{}", subsystem, subsystem.starts_with("bus/") ? "devices/" : "", name)};
    if (block && value_of(identity, "DEVTYPE") == "disk") {
        links.push_back("/sys/block/" + name);
    }
    if (const std::string number = value_of(identity, "MAJOR"); !number.empty()) {
        links.push_back(fmt::format("/sys/dev/{}/{}:{}", block ? "block" : "char", number,
                                    value_of(identity, "MINOR")));
    }
    return links;
}

void KernelDevice::appear(Told told) {
    Tree& tree = board_.tree();
    const std::string folder = "/sys" + path();
    for (const auto& [name, text] : description_.attributes) {
        tree.put(fmt::format("{}/{}", folder, name), fixed_attribute(text));
    }
    tree.put(folder + "/uevent",
             std::make_shared<Attribute>([this] { return show_uevent(); },
                                         [this](WriteCall& call) {
                                             return synthesize(
                                                 {reinterpret_cast<const char*>(call.data.data()),
                                                  call.data.size()});
                                         }));
    tree.put(folder + "/subsystem",
             std::make_shared<Symlink>(up(depth_of(path())) + description_.subsystem));
    for (const std::string& link : links()) {
        tree.put(link, std::make_shared<Symlink>(up(depth_of(link) - 2) + path().substr(1)));
    }
    if (told == Told::yes) {
        tell("add");
    }
}

void KernelDevice::vanish() {
    for (const std::string& link : links()) {
        board_.remove(link);
    }
    board_.remove("/sys" + path());
    tell("remove");
}

void KernelDevice::bind(const std::string& driver, Told told) {
    driver_ = driver;
    board_.tree().put(fmt::format("/sys{}/driver", path()),
                      std::make_shared<Symlink>(fmt::format("{}{}/drivers/{}", up(depth_of(path())),
                                                            description_.subsystem, driver)));
    if (told == Told::yes) {
        tell("bind");
    }
}

void KernelDevice::unbind() {
    driver_.clear();
    board_.remove(fmt::format("/sys{}/driver", path()));
    tell("unbind");
}

// --- what is told of it ---

Keys KernelDevice::keys() const {
    Keys keys = description_.identity;
    if (!driver_.empty()) {
        keys.emplace_back("DRIVER", driver_);
    }
    keys.insert(keys.end(), description_.more.begin(), description_.more.end());
    return keys;
}

std::string KernelDevice::show_uevent() const {
    std::string lines;
    for (const auto& [name, value] : keys()) {
        lines += fmt::format("{}={}\n", name, value);
    }
    return lines;
}

void KernelDevice::tell(const std::string& action, const Keys& why) {
    std::string lines =
        fmt::format("{0}@{1}\nACTION={0}\nDEVPATH={1}\nSUBSYSTEM={2}", action, path(),
                    description_.subsystem.substr(description_.subsystem.find('/') + 1));
    add_lines(lines, why);
    Keys of_device = keys();
    if (action == "unbind") { // the kernel takes it away, lest a module be loaded for it
        std::erase_if(of_device, [](const auto& key) { return key.first == "MODALIAS"; });
    }
    add_lines(lines, of_device);
    try {
        board_.uevents().send_lines(std::move(lines));
    } catch (const VerbError& error) {
        board_.trace().add("bug", {{"node", path()}, {"text", error.what()}});
    }
}

// An action that is written to "uevent" is told as if it had happened.
int KernelDevice::synthesize(std::string_view action) {
    for (const char* known :
         {"add", "remove", "change", "move", "online", "offline", "bind", "unbind"}) {
        if (is_word(action, known)) {
            tell(known, {{"SYNTH_UUID", "0"}});
            return 0;
        }
    }
    return EINVAL;
}

} // namespace vb::stick
