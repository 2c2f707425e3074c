// The board's network interfaces as the kernel shows them in /sys/class/net, with the link behind
// each: a cable that somebody plugs in, a PHY, and for some a link-status file of the driver's.
//
// /sys/class/net/NAME is a link to the device's folder, as in sysfs: "devices/platform/DEVICE/net/
// NAME", or "devices/virtual/net/NAME" where there is no device. In it: address, carrier (1 or 0),
// flags, ifindex, mtu, operstate ("up" or "down"), speed. Of a link that is taken down, carrier and
// speed are EINVAL.
//
// The board's own network has links of the same names, as `ip link` shows them: with the address,
// up, and without a carrier while the cable is out. Where programs take one down or change its MTU,
// the files follow. What is sent over them goes nowhere. A link that a program adds, renames or
// removes is of the network alone, as is a carrier that one sets. Where the machine makes no taps
// there are no links but `lo`, and the files show them up.
//
// "lo" is the kernel's: without an address, a speed or a cable; its operstate is "unknown".
//
// A PHY has sixteen-bit registers, 0 to 31, on pages; register 31 (0x1f) selects the page, wherever
// one is. Of page 0, register 1 says in bit 2 whether there is a link. Of page 0xdf0, register 16
// (0x10) says in bit 12 (0x1000) whether that link is a gigabit one. Both are read-only; the others
// keep what is written to them. Programs reach a PHY with `mdio`.

#include "models/kinds.h"
#include "models/support/kernel_link.h"
#include "serve/attribute.h"

#include <net/if.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>

namespace vb {

namespace {

constexpr unsigned kPhyRegisters = 32;
constexpr unsigned kPageRegister = 0x1f;
constexpr unsigned kHighestSpeed = 100'000; // Mbit/s
constexpr char kLoopback[] = "lo";

struct RegisterPlace {
    unsigned page;
    unsigned number;
    auto operator<=>(const RegisterPlace&) const = default; // NOLINT(modernize-use-nullptr)
};

constexpr RegisterPlace kBasicStatus{0, 1};
constexpr unsigned kLinkBit = 1U << 2;
constexpr RegisterPlace kLinkPartner{0xdf0, 0x10};
constexpr unsigned kGigabitBit = 1U << 12;

// As the kernel judges names of links, but that it would put a number for "%d".
bool is_link_name(const std::string& name) {
    constexpr char kNever[] = "/:% \t\n\v\f\r";
    return !name.empty() && name.size() < IFNAMSIZ && name != "." && name != ".." &&
           name.find_first_of(kNever) == std::string::npos;
}

struct Interface {
    std::string name;
    EthernetAddress address{};
    int index = 0;
    unsigned speed = 0;
    bool link = false;
    std::optional<unsigned> phy;
    unsigned page = 0;
    std::map<RegisterPlace, unsigned> registers;
    std::vector<std::shared_ptr<Attribute>> attributes; // those that a change of link changes
    std::optional<KernelLink> in_kernel;                // none where the kernel makes none

    bool is_loopback() const { return name == kLoopback; }
    // What programs may change with `ip link` is asked for when it is needed.
    unsigned flags() const;
    int mtu() const;
    bool is_up() const { return (flags() & IFF_UP) != 0; }
    bool has_carrier() const { return link && is_up(); }
    void want_up() const {
        if (!is_up()) {
            throw Attribute::CannotShow{EINVAL};
        }
    }
    const char* state() const;

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
    void enter_network() override;

  private:
    void add(Board& board, const Json& object, const std::string& where);
    void add_attributes(Tree& tree, Interface& interface, const std::string& folder,
                        const std::string& link_file);
    void add_link_verbs(Board& board);
    void add_phy_verbs(Board& board);
    Interface& at(const Json& arguments);
    Interface& cable_at(const Json& arguments);
    Interface& phy_at(const Json& arguments);

    std::map<std::string, Interface> interfaces_;
    std::vector<Interface*> in_file_order_;
};

// --- the link ---

unsigned Interface::flags() const {
    if (in_kernel) {
        return in_kernel->flags().value_or(0);
    }
    return IFF_UP | (is_loopback() ? IFF_LOOPBACK : IFF_BROADCAST | IFF_MULTICAST);
}

int Interface::mtu() const {
    const int usual = is_loopback() ? 65536 : 1500;
    return in_kernel ? in_kernel->mtu().value_or(usual) : usual;
}

const char* Interface::state() const {
    if (!has_carrier()) {
        return "down";
    }
    return is_loopback() ? "unknown" : "up";
}

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
    if (!is_link_name(name) || interfaces_.contains(name)) {
        settings.refuse("name", fmt::format("\"{}\" is no name for another interface", name));
    }
    Interface& interface = interfaces_[name];
    interface.name = name;
    in_file_order_.push_back(&interface);
    interface.index = static_cast<int>(in_file_order_.size());
    if (!interface.is_loopback()) {
        interface.address = {2, 0, 0, 0, 0, static_cast<std::uint8_t>(interfaces_.size())};
    }
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
    const auto of_link = [&](const char* name, auto show) {
        tree.put(fmt::format("{}/{}", folder, name), line_attribute(show, nullptr));
    };
    put(folder + "/carrier", [&interface] {
        interface.want_up();
        return interface.has_carrier() ? "1" : "0";
    });
    put(folder + "/operstate", [&interface] { return interface.state(); });
    if (!interface.is_loopback()) {
        put(folder + "/speed", [&interface] {
            interface.want_up();
            return interface.has_carrier() ? std::to_string(interface.speed) : "-1";
        });
    }
    of_link("flags", [&interface] { return fmt::format("{:#x}", interface.flags()); });
    of_link("ifindex", [&interface] { return std::to_string(interface.index); });
    of_link("mtu", [&interface] { return std::to_string(interface.mtu()); });
    tree.put(folder + "/address",
             fixed_attribute(fmt::format("{:02x}", fmt::join(interface.address, ":"))));
    if (!link_file.empty()) { // the driver knows of the cable alone
        put(link_file, [&interface] { return interface.link ? "1" : "0"; });
    }
}

void Network::enter_network() {
    for (Interface* interface : in_file_order_) {
        try {
            interface->in_kernel.emplace(interface->name, interface->address, interface->link);
            interface->index = interface->in_kernel->index().value_or(interface->index);
        } catch (const std::system_error&) { // a machine without taps: the files still tell
            interface->in_kernel.reset();
        }
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

Interface& Network::cable_at(const Json& arguments) {
    Interface& interface = at(arguments);
    if (interface.is_loopback()) {
        throw VerbError("the loopback interface has no cable");
    }
    return interface;
}

void Network::add_link_verbs(Board& board) {
    board.verbs().add(
        {"net.list", {}, "every interface, its cable, and whether it is up", [this](const Json&) {
             Json all = Json::array();
             for (const auto& [name, interface] : interfaces_) {
                 all.push_back({{"interface", name},
                                {"link", interface.link ? 1 : 0},
                                {"speed", interface.speed},
                                {"up", interface.is_up() ? 1 : 0}});
             }
             return all;
         }});
    board.verbs().add({"net.link",
                       {Argument::text("interface"), Argument::flag("link")},
                       "plug an interface's cable in (1) or out (0)",
                       [this](const Json& arguments) -> Json {
                           Interface& interface = cable_at(arguments);
                           interface.link = arguments["link"] != 0;
                           if (interface.in_kernel) {
                               interface.in_kernel->set_carrier(interface.link);
                           }
                           for (const auto& attribute : interface.attributes) {
                               attribute->notify();
                           }
                           return nullptr;
                       }});
    board.verbs().add({"net.speed",
                       {Argument::text("interface"), Argument::integer("speed", 1, kHighestSpeed)},
                       "let an interface's link run at so many Mbit/s",
                       [this](const Json& arguments) -> Json {
                           cable_at(arguments).speed = arguments["speed"].get<unsigned>();
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
