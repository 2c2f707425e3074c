// The board's network interfaces as the kernel shows them in /sys/class/net, with the link behind
// each: a cable that somebody plugs in, a PHY, and for some a link-status file of the driver's.
//
// /sys/class/net/NAME is a link to the device's folder, as in sysfs: "devices/platform/DEVICE/net/
// NAME", or "devices/virtual/net/NAME" where there is no device. In it: address, carrier (1 or 0),
// operstate ("up" or "down"), speed. Nothing goes through these interfaces: they are not those of
// the board's network.
//
// A PHY has sixteen-bit registers, 0 to 31, on pages; register 31 (0x1f) selects the page, wherever
// one is. Of page 0, register 1 says in bit 2 whether there is a link. Of page 0xdf0, register 16
// (0x10) says in bit 12 (0x1000) whether that link is a gigabit one. Both are read-only; the others
// keep what is written to them. Programs reach a PHY with `mdio`.

#include "models/kinds.h"
#include "serve/attribute.h"

#include <optional>

namespace vb {

namespace {

constexpr unsigned kPhyRegisters = 32;
constexpr unsigned kPageRegister = 0x1f;
constexpr unsigned kHighestSpeed = 100'000; // Mbit/s

struct RegisterPlace {
    unsigned page;
    unsigned number;
    auto operator<=>(const RegisterPlace&) const = default; // NOLINT(modernize-use-nullptr)
};

constexpr RegisterPlace kBasicStatus{0, 1};
constexpr unsigned kLinkBit = 1U << 2;
constexpr RegisterPlace kLinkPartner{0xdf0, 0x10};
constexpr unsigned kGigabitBit = 1U << 12;

struct Interface {
    std::string name;
    unsigned speed = 0;
    bool link = false;
    std::optional<unsigned> phy;
    unsigned page = 0;
    std::map<RegisterPlace, unsigned> registers;
    std::vector<std::shared_ptr<Attribute>> attributes; // those that a change of link changes

    unsigned read(unsigned number) const;
    void write(unsigned number, unsigned value);
};

constexpr SettingRow kInterfaceSettings[] = {
    {"name", nullptr, ""},
    {"device", R"("")", "its name in sysfs; a virtual interface without it"},
    {"link_file", R"("")", "path of the driver's link-status file: 1 or 0"},
    {"phy", "null", "the PHY's address, 0 to 31; without it there is none"},
    {"speed", "1000", "Mbit/s"},
    {"link", "true", "the cable is plugged in at the start"},
};

class Network : public Model {
  public:
    Network(Board& board, Settings& settings);

  private:
    void add(Board& board, const Json& object, const std::string& where);
    void add_attributes(Tree& tree, Interface& interface, const std::string& folder,
                        const std::string& link_file);
    void add_link_verbs(Board& board);
    void add_phy_verbs(Board& board);
    Interface& at(const Json& arguments);
    Interface& phy_at(const Json& arguments);

    std::map<std::string, Interface> interfaces_;
};

// --- the PHY ---

unsigned Interface::read(unsigned number) const {
    const RegisterPlace place{page, number};
    if (number == kPageRegister) {
        return page;
    }
    if (place == kBasicStatus) {
        return link ? kLinkBit : 0;
    }
    if (place == kLinkPartner) {
        return link && speed >= 1000 ? kGigabitBit : 0;
    }
    const auto found = registers.find(place);
    return found == registers.end() ? 0 : found->second;
}

void Interface::write(unsigned number, unsigned value) {
    if (number == kPageRegister) {
        page = value;
    } else {
        registers[{page, number}] = value;
    }
}

// --- the interfaces ---

Network::Network(Board& board, Settings& settings) {
    const auto list = settings.get<std::vector<Json>>("interfaces");
    for (std::size_t i = 0; i < list.size(); ++i) {
        add(board, list[i], fmt::format("interfaces[{}]", i));
    }
    add_link_verbs(board);
    add_phy_verbs(board);
}

void Network::add(Board& board, const Json& object, const std::string& where) {
    Settings settings(object, where, kInterfaceSettings);
    const auto name = settings.get<std::string>("name");
    if (name.empty() || name.find('/') != std::string::npos || interfaces_.contains(name)) {
        settings.refuse("name", fmt::format("\"{}\" is no name for another interface", name));
    }
    Interface& interface = interfaces_[name];
    interface.name = name;
    interface.speed = settings.number("speed", kHighestSpeed);
    interface.link = settings.get<bool>("link");
    if (settings.says("phy")) {
        interface.phy = settings.number("phy", kPhyRegisters - 1);
    }
    const auto device = settings.get<std::string>("device");
    const auto link_file = settings.get<std::string>("link_file");

    const std::string folder =
        (device.empty() ? std::string("virtual") : "platform/" + device) + "/net/" + name;
    add_attributes(board.tree(), interface, "/sys/devices/" + folder, link_file);
    board.tree().put("/sys/class/net/" + name,
                     std::make_shared<Symlink>("../../devices/" + folder));
}

void Network::add_attributes(Tree& tree, Interface& interface, const std::string& folder,
                             const std::string& link_file) {
    const auto put = [&](const std::string& path, ShowLine show) {
        interface.attributes.push_back(line_attribute(std::move(show), nullptr));
        tree.put(path, interface.attributes.back());
    };
    const auto carrier = [&interface] { return interface.link ? "1" : "0"; };
    put(folder + "/carrier", carrier);
    put(folder + "/operstate", [&interface] { return interface.link ? "up" : "down"; });
    put(folder + "/speed",
        [&interface] { return interface.link ? std::to_string(interface.speed) : "-1"; });
    tree.put(folder + "/address",
             fixed_attribute(fmt::format("02:00:00:00:00:{:02x}", interfaces_.size())));
    if (!link_file.empty()) {
        put(link_file, carrier);
    }
}

// --- the world ---

Interface& Network::at(const Json& arguments) {
    const auto name = arguments["interface"].get<std::string>();
    const auto found = interfaces_.find(name);
    if (found == interfaces_.end()) {
        throw VerbError(fmt::format("there is no interface {}", name));
    }
    return found->second;
}

void Network::add_link_verbs(Board& board) {
    board.verbs().add({"net.list", {}, "every interface and its link", [this](const Json&) {
                           Json all = Json::array();
                           for (const auto& [name, interface] : interfaces_) {
                               all.push_back({{"interface", name},
                                              {"link", interface.link ? 1 : 0},
                                              {"speed", interface.speed}});
                           }
                           return all;
                       }});
    board.verbs().add({"net.link",
                       {Argument::text("interface"), Argument::flag("link")},
                       "plug an interface's cable in (1) or out (0)",
                       [this](const Json& arguments) -> Json {
                           Interface& interface = at(arguments);
                           interface.link = arguments["link"] != 0;
                           for (const auto& attribute : interface.attributes) {
                               attribute->notify();
                           }
                           return nullptr;
                       }});
    board.verbs().add({"net.speed",
                       {Argument::text("interface"), Argument::integer("speed", 1, kHighestSpeed)},
                       "let an interface's link run at so many Mbit/s",
                       [this](const Json& arguments) -> Json {
                           at(arguments).speed = arguments["speed"].get<unsigned>();
                           return nullptr;
                       }});
}

Interface& Network::phy_at(const Json& arguments) {
    Interface& interface = at(arguments);
    if (!interface.phy || arguments["phy"] != *interface.phy) {
        throw VerbError(fmt::format("{} has no PHY {}", interface.name, arguments["phy"].dump()));
    }
    return interface;
}

void Network::add_phy_verbs(Board& board) {
    const Argument interface = Argument::text("interface");
    const Argument phy = Argument::integer("phy", 0, kPhyRegisters - 1);
    const Argument number = Argument::integer("register", 0, kPhyRegisters - 1);
    board.verbs().add({"mdio.read",
                       {interface, phy, number},
                       "read a register of a PHY, on its page",
                       [this](const Json& arguments) -> Json {
                           return phy_at(arguments).read(arguments["register"].get<unsigned>());
                       }});
    board.verbs().add({"mdio.write",
                       {interface, phy, number, Argument::integer("value", 0, 0xFFFF)},
                       "write a register of a PHY, on its page; register 31 is the page",
                       [this](const Json& arguments) -> Json {
                           phy_at(arguments).write(arguments["register"].get<unsigned>(),
                                                   arguments["value"].get<unsigned>());
                           return nullptr;
                       }});
}

constexpr SettingRow kNetworkSettings[] = {
    {"interfaces", nullptr, "a list", kInterfaceSettings},
};

} // namespace

const ModelKind kNetwork{"network", "network interfaces, their links and PHYs", kNetworkSettings,
                         make_model<Network>};

} // namespace vb
