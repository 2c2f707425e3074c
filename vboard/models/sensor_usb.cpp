// The sensor link over the USB device port, by default at /dev/sensor_usb: packets both ways with a
// host, and image data for the driver.
//
// What is ours to choose, and what programs may rely on. Records are little-endian, whatever the
// size field of a request's number says:
//       CMD_SUSB_RECV_PROTO_DATA  4100 bytes: length, 4096 bytes of packet
//       CMD_SUSB_SEND_PROTO_DATA  4108 bytes: length, 4096 bytes of packet, two words
//       CMD_SUSB_SEND_IMAGE_DATA    24 bytes: a word, four zero bytes, two words of 64 bits
//       CMD_SUSB_ELEAR_DATA_FLAG     4 bytes: two flags, two zero bytes
// - Packets of the host wait in one queue for all opens; a receive takes the oldest, and is EAGAIN
//   where there is none. The rest of its record is zeros. The node is readable while a packet
//   waits, and always writable.
// - A packet may say another length than it has (a verb), so that programs can be shown absurd
// ones.
// - A length above 4096 that is sent, or a zero byte that is none, is EINVAL and a misuse.
// - Everything that passes is in the trace.

#include "models/kinds.h"
#include "serve/device_node.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>

namespace vb {

namespace {

constexpr std::size_t kMostData = 4096;
constexpr std::int64_t kMostWakes = 1'000'000;

using SensorData = std::array<std::uint8_t, kMostData>;

struct SensorReceived {
    std::uint32_t length;
    SensorData data;
};
static_assert(sizeof(SensorReceived) == 4100);

struct SensorSent {
    std::uint32_t length;
    SensorData data;
    std::uint32_t arg0;
    std::uint32_t arg1;
};
static_assert(sizeof(SensorSent) == 4108);

struct SensorImage {
    std::uint32_t first;
    std::uint32_t zero;
    std::uint64_t second;
    std::uint64_t third;
};
static_assert(sizeof(SensorImage) == 24);

struct SensorFlags {
    std::array<std::uint8_t, 2> flags;
    std::array<std::uint8_t, 2> zero;
};
static_assert(sizeof(SensorFlags) == 4);

using FieldType = RecordField::Type;

// Packets have events of their own: the record's bytes are in the trace besides.
constexpr RecordField kSensorReceived[] = {{"length", FieldType::u32, 0}};
constexpr RecordField kSensorSent[] = {
    {"length", FieldType::u32, 0}, {"arg0", FieldType::u32, 4100}, {"arg1", FieldType::u32, 4104}};
constexpr RecordField kSensorImage[] = {{"first", FieldType::u32, 0},
                                        {"zero", FieldType::u32, 4},
                                        {"second", FieldType::u64, 8},
                                        {"third", FieldType::u64, 16}};
constexpr RecordField kSensorFlags[] = {{"flags", FieldType::bytes, 0, 2},
                                        {"zero", FieldType::bytes, 2, 2}};

class SensorUsb;

class SensorFile : public DriverFile<SensorUsb> {
  public:
    explicit SensorFile(SensorUsb& sensor);
    short readiness() const override;
};

class SensorUsb : public Model {
  public:
    SensorUsb(Board& board, Settings& settings);

    Outcome receive(SensorReceived& record);
    Outcome send(const SensorSent& record);
    Outcome image(const SensorImage& record);
    Outcome flags(const SensorFlags& record);
    bool readable() const { return wakes_ > 0 || !packets_.empty(); }

  private:
    struct Packet {
        Bytes data;
        std::uint32_t length; // as it is told
    };

    Outcome complain(const std::string& text);
    void tell(const char* what, Json event);
    void changed();
    void put(const Json& arguments);
    Json show() const;
    void add_verbs();

    Board& board_;
    std::string node_;
    std::size_t queue_;
    std::deque<Packet> packets_;
    std::int64_t wakes_ = 0; // receives to refuse, though the node was readable
    std::uint64_t sent_ = 0;
    std::uint64_t images_ = 0;
    std::array<std::uint8_t, 2> flags_{};
    Opens<SensorFile> opens_;
};

using Direction = RequestRow::Direction;

constexpr RequestRow kSensorRequests[] = {
    request<&SensorUsb::receive>(0x80087321, "CMD_SUSB_RECV_PROTO_DATA", Direction::out,
                                 kSensorReceived),
    request<&SensorUsb::send>(0x40087322, "CMD_SUSB_SEND_PROTO_DATA", Direction::in, kSensorSent),
    request<&SensorUsb::image>(0x40087323, "CMD_SUSB_SEND_IMAGE_DATA", Direction::in, kSensorImage),
    request<&SensorUsb::flags>(0x40087324, "CMD_SUSB_ELEAR_DATA_FLAG", Direction::in, kSensorFlags),
};

SensorFile::SensorFile(SensorUsb& sensor) : DriverFile(sensor, kSensorRequests) {}

short SensorFile::readiness() const {
    constexpr short kWritable = POLLOUT | POLLWRNORM;
    return static_cast<short>(driver().readable() ? kReadable | kWritable : kWritable);
}

SensorUsb::SensorUsb(Board& board, Settings& settings)
    : board_(board),
      node_(settings.get<std::string>("node")),
      queue_(settings.number("queue", 65536)) {
    board_.tree().put(node_, device_node(opens_, *this));
    add_verbs();
}

Outcome SensorUsb::complain(const std::string& text) {
    board_.misuse(node_, text);
    return Outcome::failed(EINVAL);
}

void SensorUsb::tell(const char* what, Json event) {
    event["node"] = node_;
    event["state"] = what;
    board_.trace().add("sensor", std::move(event));
}

void SensorUsb::changed() {
    for (SensorFile* file : opens_) {
        file->changed();
    }
}

// --- requests ---

Outcome SensorUsb::receive(SensorReceived& record) {
    if (wakes_ > 0) {
        --wakes_;
        return Outcome::failed(EAGAIN);
    }
    if (packets_.empty()) {
        return Outcome::failed(EAGAIN);
    }
    const Packet packet = std::move(packets_.front());
    packets_.pop_front();
    record = {};
    record.length = packet.length;
    std::copy(packet.data.begin(), packet.data.end(), record.data.begin());
    tell("fetched", {{"length", packet.length}, {"bytes", to_hex(packet.data)}});
    return Outcome::done();
}

Outcome SensorUsb::send(const SensorSent& record) {
    if (record.length > record.data.size()) {
        return complain(fmt::format("a packet of {} bytes", record.length));
    }
    ++sent_;
    tell("packet", {{"length", record.length},
                    {"bytes", to_hex(ByteView(record.data).first(record.length))},
                    {"arg0", record.arg0},
                    {"arg1", record.arg1}});
    return Outcome::done();
}

Outcome SensorUsb::image(const SensorImage& record) {
    if (record.zero != 0) {
        return complain("bytes 4 to 7 of an image record are not 0");
    }
    ++images_;
    tell("image", {{"first", record.first}, {"second", record.second}, {"third", record.third}});
    return Outcome::done();
}

Outcome SensorUsb::flags(const SensorFlags& record) {
    if (record.zero != std::array<std::uint8_t, 2>{}) {
        return complain("bytes 2 and 3 of the flags are not 0");
    }
    flags_ = record.flags;
    tell("flags", {{"bytes", to_hex(flags_)}});
    return Outcome::done();
}

// --- the world outside ---

void SensorUsb::put(const Json& arguments) {
    auto data = from_hex(arguments["bytes"].get<std::string>());
    if (!data || data->size() > kMostData) {
        throw UsageError("BYTES: at most 4096 bytes are wanted, two hex digits each");
    }
    if (packets_.size() >= queue_) {
        throw VerbError(fmt::format("{} packets wait already", packets_.size()));
    }
    const auto length = static_cast<std::uint32_t>(
        arguments.value("length", static_cast<std::int64_t>(data->size())));
    tell("arrived", {{"length", length}, {"bytes", to_hex(*data)}});
    packets_.push_back({std::move(*data), length});
    changed();
}

Json SensorUsb::show() const {
    return {{"waiting", packets_.size()},
            {"sent", sent_},
            {"images", images_},
            {"flags", to_hex(flags_)}};
}

void SensorUsb::add_verbs() {
    Verbs& verbs = board_.verbs();
    verbs.add({"sensor.send",
               {Argument::text("bytes"),
                Argument::integer("length", 0, 0xFFFFFFFF).or_none("as many as there are")},
               "let the host send a packet, which may say another length than it has",
               [this](const Json& arguments) -> Json {
                   put(arguments);
                   return {};
               }});
    verbs.add({"sensor.wake",
               {Argument::integer("count", 1, kMostWakes).or_else(1)},
               "let the node be readable for nothing: the next so many receives are EAGAIN",
               [this](const Json& arguments) -> Json {
                   wakes_ += arguments["count"].get<std::int64_t>();
                   changed();
                   return {};
               }});
    verbs.add({"sensor.show",
               {},
               "the packets that wait, how many packets and image records came, the flags",
               [this](const Json&) { return show(); }});
}

constexpr SettingRow kSensorUsbSettings[] = {
    {"node", R"("/dev/sensor_usb")", ""},
    {"queue", "1024", "packets that may wait"},
};

} // namespace

const ModelKind kSensorUsb{"sensor_usb", "the sensor link over the USB device port",
                           kSensorUsbSettings, make_model<SensorUsb>};

} // namespace vb
