// The board's MCU, a USB device of its own, and the bridge chip by which the processor reaches it:
// a disk on the first SATA port.
//
// What is ours to choose, and what programs may rely on (models/mcu/ says more in each header):
// - The bridge has power of its own: the MCU's lines do not take the disk away. It is there
//   `appear_ms` of board time after the board's start, or, where `appears` is false, only when the
//   verb `mcu.bridge` says so.
// - The MCU follows its lines: it runs `boot_ms` after power and reset are both high.
// - The interrupt line is the program's to choose: `interrupt` is where this board has it.
// - The line `vbus` is high while the host powers its socket, whichever port of the board has it.
// - One socket of the host is there for both USB ports of the board, this one and the gadget's. Who
//   attaches first has it until it detaches; the host does not see the other.

#include "models/kinds.h"
#include "models/mcu/bridge_topology.h"
#include "models/mcu/chip.h"
#include "models/support/line_world.h"

#include "core/lines.h"

namespace vb {

namespace {

constexpr unsigned kLongestBoot = 3'600'000;
constexpr std::int64_t kMostTimes = 1'000'000;
constexpr std::int64_t kLongestFlood = 10'000; // which is kept in memory
constexpr std::int64_t kHighestType = 0xFFFFFFFF;

using mcu::BridgeDisk;
using mcu::BridgeTopology;
using mcu::Chip;

const std::vector<std::string> kFailures = {"busy", "check", "host", "timeout"};

struct Pin {
    LineBank* bank = nullptr;
    unsigned line = 0;

    void preset(bool level) const {
        if (bank != nullptr) {
            bank->preset(line, level);
        }
    }

    void set(bool level) const {
        if (bank != nullptr) {
            bank->set(line, level, "outside");
        }
    }
};

Pin pin_at(Board& board, Settings& settings, const char* name) {
    const auto place = settings.get<std::string>(name);
    if (place.empty()) {
        return {};
    }
    try {
        const auto [bank, line] = line_at(board, place);
        return {bank, line};
    } catch (const VerbError& error) {
        settings.refuse(name, error.what());
    }
}

usb::Socket* socket_of(Board& board, Settings& settings) {
    const auto name = settings.get<std::string>("host");
    auto* socket = name.empty() ? nullptr : board.parts().find<usb::Socket>(name);
    if (socket == nullptr && !name.empty()) {
        settings.refuse("host", fmt::format("no part \"{}\" stands before this one", name));
    }
    return socket;
}

Bytes hex_value(const Json& arguments, const char* name, std::size_t most) {
    auto bytes = from_hex(arguments.value(name, ""));
    if (!bytes || bytes->size() > most) {
        throw UsageError(fmt::format("{}: at most {} bytes are wanted, two hex digits each",
                                     in_capitals(name), most));
    }
    return std::move(*bytes);
}

mcu::Packet packet_of(const Json& arguments) {
    return {arguments["type"].get<std::uint32_t>(), hex_value(arguments, "value", mcu::kMostValue)};
}

class McuBridge : public Model {
  public:
    McuBridge(Board& board, Settings& settings);

  private:
    using Deed = std::function<void(const Json& arguments)>;

    void follow(Settings& settings, const char* name, Chip::Input input);
    void appear_after(std::int64_t nanoseconds);
    void add(const char* name, std::vector<Argument> arguments, const char* help, Deed deed);
    void add_verbs();
    void add_faults();
    void show_or_hide(const Json& arguments);
    Json show() const;

    Board& board_;
    usb::Socket* socket_;
    Pin interrupt_;
    Pin vbus_;
    Chip chip_;
    BridgeDisk disk_{chip_};
    BridgeTopology topology_;
    std::uint64_t appearing_ = 0; // the timer
};

McuBridge::McuBridge(Board& board, Settings& settings)
    : board_(board),
      socket_(socket_of(board, settings)),
      interrupt_(pin_at(board, settings, "interrupt")),
      vbus_(pin_at(board, settings, "vbus")),
      chip_(board,
            {socket_, [this](bool level) { interrupt_.set(level); }, [this] { topology_.go_on(); },
             settings.number("boot_ms", kLongestBoot) * kMillisecond}),
      topology_(board, disk_, settings.get<std::string>("disk")) {
    follow(settings, "power", Chip::Input::power);
    follow(settings, "program", Chip::Input::program);
    follow(settings, "reset", Chip::Input::reset);
    if (socket_ != nullptr) {
        vbus_.preset(socket_->powered());
        socket_->on_power([this](bool powered) {
            vbus_.set(powered);
            chip_.host_power(powered);
        });
    }
    const unsigned appear_ms = settings.number("appear_ms", kLongestBoot);
    if (settings.get<bool>("appears")) {
        appear_after(appear_ms * kMillisecond);
    }
    add_verbs();
    add_faults();
}

void McuBridge::follow(Settings& settings, const char* name, Chip::Input input) {
    follow_line(board_, settings, name, [this, input](bool high) { chip_.set(input, high); });
}

void McuBridge::appear_after(std::int64_t nanoseconds) {
    if (nanoseconds == 0) {
        topology_.appear(BridgeTopology::Told::no);
        return;
    }
    appearing_ = board_.after(nanoseconds, [this] {
        appearing_ = 0;
        topology_.appear();
    });
}

// --- the world outside ---

void McuBridge::add(const char* name, std::vector<Argument> arguments, const char* help,
                    Deed deed) {
    board_.verbs().add({fmt::format("mcu.{}", name), std::move(arguments), help,
                        [deed = std::move(deed)](const Json& given) -> Json {
                            deed(given);
                            return {};
                        }});
}

void McuBridge::add_verbs() {
    const Argument type = Argument::integer("type", 0, kHighestType);
    const Argument value = Argument::text("value").or_none("no bytes");
    board_.verbs().add({"mcu.show",
                        {},
                        "the MCU, what waits for the processor, its USB device, and the bridge",
                        [this](const Json&) { return show(); }});
    add("bridge",
        {Argument::word("state", {"there", "gone"}),
         Argument::integer("ms", 0, kLongestBoot).or_else(0)},
        "let the bridge disk come after so many ms, or go",
        [this](const Json& arguments) { show_or_hide(arguments); });
    add("power", {Argument::flag("on")}, "take the MCU's power away, or give it back",
        [this](const Json& arguments) { chip_.cut_power(arguments["on"] == 0); });
    add("send", {type, value}, "let the MCU have a packet for the processor",
        [this](const Json& arguments) { chip_.outbox().put(packet_of(arguments)); });
    add("block", {Argument::text("bytes")}, "let the MCU have any bytes for the processor",
        [this](const Json& arguments) {
            chip_.outbox().put_block(hex_value(arguments, "bytes", mcu::kBlock));
        });
    add("flood", {Argument::integer("count", 1, kLongestFlood), type, value},
        "let it have the same packet so many times, beyond its queue",
        [this](const Json& arguments) {
            chip_.flood(packet_of(arguments), arguments["count"].get<unsigned>());
        });
}

void McuBridge::add_faults() {
    const Argument count = Argument::integer("count", 0, kMostTimes);
    add("hang", {Argument::flag("on")}, "let the MCU answer nothing, until it is reset",
        [this](const Json& arguments) { chip_.hang(arguments["on"] == 1); });
    add("garble", {count}, "turn bits over in the next packets that are fetched",
        [this](const Json& arguments) { chip_.outbox().garble(arguments["count"]); });
    add("repeat", {count}, "the next packets that are fetched stay where they are",
        [this](const Json& arguments) { chip_.outbox().repeat(arguments["count"]); });
    add("fail", {count, Argument::word("how", kFailures).or_else("check")},
        "the next commands to the MCU's block fail: busy and check condition are SCSI statuses, "
        "host and timeout those of the host adapter",
        [this](const Json& arguments) {
            const auto how = std::find(kFailures.begin(), kFailures.end(), arguments["how"]);
            disk_.fail(arguments["count"],
                       static_cast<BridgeDisk::Failure>(how - kFailures.begin()));
        });
}

void McuBridge::show_or_hide(const Json& arguments) {
    board_.cancel(std::exchange(appearing_, 0));
    if (arguments["state"] == "gone") {
        topology_.vanish();
    } else if (const auto ms = arguments["ms"].get<std::int64_t>(); ms > 0) {
        appear_after(ms * kMillisecond);
    } else {
        topology_.appear();
    }
}

Json McuBridge::show() const {
    Json shown = chip_.show();
    shown["bridge"] = topology_.there();
    shown["failing"] = disk_.failures();
    return shown;
}

constexpr SettingRow kMcuBridgeSettings[] = {
    {"disk", R"("sda")", "the kernel's name for the bridge"},
    {"appears", "true", "the disk is found without help"},
    {"appear_ms", "0", "after the board's start"},
    {"power", R"("gpio:492")", "a line; one that is not said is high"},
    {"reset", R"("gpio:493")", "the same; low is reset"},
    {"program", R"("gpio:494")", "the same; low at the end of a reset starts the loader"},
    {"boot_ms", "200", "from reset to work"},
    {"interrupt", R"("sysgpio:97")", "the line that says that a packet is ready"},
    {"vbus", R"("sysgpio:96")", "the line that says that the host powers the bus"},
    {"host", R"("host")", "the part at the other end of the cable; it stands before this one"},
};

} // namespace

const ModelKind kMcuBridge{"mcu_bridge",
                           "the MCU with its USB device, and the bridge disk that leads to it",
                           kMcuBridgeSettings, make_model<McuBridge>};

} // namespace vb
