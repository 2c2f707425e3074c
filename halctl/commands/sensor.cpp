// halctl sensor: packets and images over the sensor link of the USB device port.
#include "commands/commands.h"
#include "hex.h"
#include "watch_command.h"

#include <hal_bsp/otg.h>
#include <hal_bsp/sensor_usb.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>
#include <variant>

namespace halctl {

namespace sensor {
namespace {

constexpr char kNode[] = "/dev/sensor_usb";
constexpr std::size_t kMost = HAL_SENSOR_USB_PACKET_SIZE;
constexpr char kPacketKind[] = "1 to 4096 bytes as pairs of hexadecimal digits, or @FILE";
static_assert(kMost == 4096);

// --- what comes ---

struct Heard {
    EventTime time;
    std::variant<Bytes, hal_sensor_usb_state> what;
};

// From the library's threads to the command's. A packet is too long for the pipe of a watch, of
// which each event goes through in one piece: there go marks, one for each that waits here.
class Inbox {
  public:
    struct Mark {};

    // Before the link is opened; where it is not for a watch, signals end the command as any.
    void mark_in(Watch<Mark>& watch) { watch_ = &watch; }

    void add(std::variant<Bytes, hal_sensor_usb_state> what) {
        constexpr std::size_t kRoom = 1024;
        const std::lock_guard guard(mutex_);
        if (waiting_.size() >= kRoom) {
            ++lost_;
            return;
        }
        waiting_.push_back({std::chrono::system_clock::now(), std::move(what)});
        if (watch_ != nullptr) {
            watch_->post({});
        }
    }
    Heard take() {
        const std::lock_guard guard(mutex_);
        Heard first = std::move(waiting_.front());
        waiting_.pop_front();
        return first;
    }
    std::deque<Heard> take_all() {
        const std::lock_guard guard(mutex_);
        return std::exchange(waiting_, {});
    }
    unsigned long lost() const {
        const std::lock_guard guard(mutex_);
        return lost_;
    }

  private:
    Watch<Mark>* watch_ = nullptr;
    mutable std::mutex mutex_;
    std::deque<Heard> waiting_;
    unsigned long lost_ = 0;
};

// The library's callbacks carry no data of ours. It is there to the end: the state thread may be
// about to call when the link is closed.
Inbox& inbox() {
    static auto& only = *new Inbox;
    return only;
}

void on_packet(hal_sensor_usb_data* packet) {
    inbox().add(Bytes(packet->data, packet->data + packet->len));
}

void on_state(hal_sensor_usb_state* state) {
    inbox().add(*state);
}

// The open link.
class Link {
  public:
    explicit Link(hal_sensor_usb_state_callback on_state)
        : open_(hal_sensor_usb_init(on_packet, on_state) == 0) {}
    ~Link() { hal_sensor_usb_deinit(); }
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    std::optional<int> refused(const Tool& tool, const char* what) const {
        return open_ ? std::nullopt : std::optional(tool.failed({what, {kNode}}));
    }

  private:
    bool open_;
};

const char* name_of(int state) {
    switch (state) {
    case HAL_OTG_CONFIGURED:
        return "configured";
    case HAL_OTG_CONNECTED:
        return "connected";
    case HAL_OTG_DISCONNECTED:
        return "disconnected";
    default:
        return nullptr;
    }
}

Json json_of(int state) {
    const char* const name = name_of(state);
    return name == nullptr ? Json() : Json(name);
}

void print(const Output& output, const Heard& heard) {
    if (const auto* const data = std::get_if<Bytes>(&heard.what)) {
        const std::string hex = to_hex(*data);
        print_event(output, heard.time, {{"length", data->size()}, {"data", hex}},
                    fmt::format("packet  {} bytes  {}", data->size(), hex));
        return;
    }
    const auto& state = std::get<hal_sensor_usb_state>(heard.what);
    const char* const before = name_of(state.prev);
    print_event(output, heard.time,
                {{"state", json_of(state.cur)}, {"before", json_of(state.prev)}},
                fmt::format("host  {}, was {}", name_of(state.cur),
                            before == nullptr ? "unknown" : before));
}

int run_watch(Tool& tool, const WatchLimits& limits) {
    constexpr char kWhat[] = "sensor watch";
    static auto& watch = *new Watch<Inbox::Mark>; // as long as the inbox
    inbox().mark_in(watch);
    WatchReport report;
    {
        const Link link(on_state);
        if (const auto status = link.refused(tool, kWhat)) {
            return *status;
        }
        report.end = watch.run(limits, [&](Inbox::Mark) {
            print(tool.output(), inbox().take());
            ++report.seen;
            return true;
        });
    }
    report.lost = inbox().lost();
    return end_of_watch(tool, kWhat, limits, report);
}

// --- what goes ---

struct Arguments {
    std::string packet;
    std::uint32_t arg0 = 0;
    std::uint32_t arg1 = 0;
    hal_sensor_image_pkt image{};
    Bytes flags;
};

Complaint is_no_packet(const std::string& word) {
    if (word.starts_with('@') && word.size() > 1) {
        return "";
    }
    const auto bytes = from_hex(word);
    return bytes && !bytes->empty() && bytes->size() <= kMost
               ? ""
               : fmt::format("{} is not {}", in_quotes(word), kPacketKind);
}

// The exit code where it cannot be sent, and why has been said.
std::variant<Bytes, int> bytes_of(const Tool& tool, const char* what, const std::string& packet) {
    if (!packet.starts_with('@')) {
        return *from_hex(packet);
    }
    const std::string path = packet.substr(1);
    Bytes bytes(kMost + 1);
    errno = 0;
    std::FILE* const file = std::fopen(path.c_str(), "re");
    if (file == nullptr) {
        return tool.cannot_open(what, path, errno);
    }
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file));
    const int error = std::ferror(file) != 0 ? errno : 0;
    std::fclose(file);
    if (error != 0) {
        return tool.cannot_open(what, path, error);
    }
    if (bytes.size() > kMost) {
        return tool.failed(what, fmt::format("{} has more than {} bytes", path, kMost));
    }
    return bytes;
}

// Makes one request. A link that is open takes what the host sends: what came meanwhile is told.
int with_link(const Tool& tool, const char* what, const Json& object,
              const std::function<std::int32_t()>& request) {
    std::int32_t result = 0;
    {
        const Link link(nullptr);
        if (const auto status = link.refused(tool, what)) {
            return *status;
        }
        result = request();
    }
    for (const Heard& heard : inbox().take_all()) {
        const auto& data = std::get<Bytes>(heard.what);
        tool.output().warn(fmt::format("{}: a packet of {} bytes came meanwhile: {}", what,
                                       data.size(), to_hex(data)));
    }
    if (result < 0) {
        return tool.failed({what, {kNode}});
    }
    tool.output().print(object, "");
    return kExitDone;
}

int run_send(Tool& tool, const Arguments& arguments) {
    constexpr char kWhat[] = "sensor send";
    const auto bytes = bytes_of(tool, kWhat, arguments.packet);
    if (const int* status = std::get_if<int>(&bytes)) {
        return *status;
    }
    const auto& data = std::get<Bytes>(bytes);
    const hal_sensor_usb_pkt packet{static_cast<std::uint32_t>(data.size()), data.data(),
                                    arguments.arg0, arguments.arg1};
    return with_link(tool, kWhat,
                     {{"length", packet.len}, {"arg0", packet.arg0}, {"arg1", packet.arg1}},
                     [&] { return hal_send_protocol_pkt(&packet); });
}

int run_image(Tool& tool, const Arguments& arguments) {
    const hal_sensor_image_pkt& image = arguments.image;
    return with_link(tool, "sensor image",
                     {{"first", image.value0}, {"second", image.value8}, {"third", image.value16}},
                     [&] { return hal_send_image_pkt(&image); });
}

int run_flags(Tool& tool, const Arguments& arguments) {
    return with_link(tool, "sensor flags", {{"flags", to_hex(arguments.flags)}},
                     [&] { return hal_clear_flag(arguments.flags.data()); });
}

std::shared_ptr<Arguments> add(Command& command, Tool& tool, int (*run)(Tool&, const Arguments&)) {
    auto arguments = std::make_shared<Arguments>();
    command.on_run([&tool, arguments, run] { return run(tool, *arguments); });
    return arguments;
}

} // namespace
} // namespace sensor

void add_sensor(Command& root, Tool& tool) {
    Command& group =
        root.group("sensor", "The sensor link to a host on the USB device port, /dev/sensor_usb.\n"
                             "Each of these takes the packets that the host sends while it runs");

    auto limits = std::make_shared<WatchLimits>();
    Command& watch = group.verb("watch", "Print each packet of the host's, and each state it is in",
                                "halctl sensor watch --count 2 --timeout 10");
    add_limits(watch, *limits);
    watch.on_run([&tool, limits] { return sensor::run_watch(tool, *limits); });

    Command& send = group.verb("send", "Send a packet", "halctl sensor send 0102deadbeef --arg0 7");
    const auto packet = sensor::add(send, tool, sensor::run_send);
    send.text("PACKET", packet->packet, "What is in it; of @FILE all, up to 4096 bytes",
              sensor::kPacketKind, sensor::is_no_packet);
    send.number("--arg0 N", packet->arg0, "For the driver, which says what it is");
    send.number("--arg1 N", packet->arg1, "The same");

    Command& image =
        group.verb("image", "Send an image: the record with which the driver fetches it",
                   "halctl sensor image 1 0x10000000 4096");
    const auto record = sensor::add(image, tool, sensor::run_image);
    image.number("FIRST", record->image.value0, "For the driver, which says what it is");
    image.number("SECOND", record->image.value8, "The same");
    image.number("THIRD", record->image.value16, "The same");

    Command& flags = group.verb("flags", "Clear flags of the driver", "halctl sensor flags 0100");
    flags.hex("BYTES", sensor::add(flags, tool, sensor::run_flags)->flags,
              "The driver says what they are", 2, 2);
}

} // namespace halctl
