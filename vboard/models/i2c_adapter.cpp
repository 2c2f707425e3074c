#include "models/i2c_adapter.h"

#include "models/kinds.h"
#include "models/support/i2c_smbus.h"
#include "serve/attribute.h"
#include "serve/device_node.h"

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace vb {

namespace {

constexpr std::size_t kLongest = 8192;
constexpr unsigned kDeviceMajor = 89;
constexpr std::uint64_t kFunctions = I2C_FUNC_I2C | I2C_FUNC_SMBUS_EMUL |
                                     I2C_FUNC_SMBUS_READ_BLOCK_DATA |
                                     I2C_FUNC_SMBUS_BLOCK_PROC_CALL;
constexpr unsigned kKnownFlags = I2C_M_RD | I2C_M_TEN | I2C_M_RECV_LEN | I2C_M_DMA_SAFE;

static_assert(sizeof(i2c_msg) == 16 && sizeof(i2c_rdwr_ioctl_data) == 16);
static_assert(sizeof(i2c_smbus_ioctl_data) == 16 && sizeof(i2c_smbus_data) == 34);

using FieldType = RecordField::Type;

constexpr RecordField kTransferFields[] = {
    {"messages", FieldType::u64, 0},
    {"count", FieldType::u32, 8},
};
constexpr RecordField kSmbusFields[] = {
    {"read", FieldType::u8, 0},
    {"command", FieldType::u8, 1},
    {"size", FieldType::u32, 4},
    {"data", FieldType::u64, 8},
};

std::uint64_t address_of(const void* pointer) {
    return reinterpret_cast<std::uintptr_t>(pointer); // of another process: a number here
}

// What all opens of an adapter share.
struct Adapter {
    Board& board;
    I2cBus& bus;
    std::string node;
    std::uint64_t timeout = 100; // in units of 10 ms
    std::uint64_t retries = 0;

    Outcome complain(int error, const std::string& text) {
        board.misuse(node, text);
        return Outcome::failed(error);
    }
};

class I2cFile : public File {
  public:
    explicit I2cFile(Adapter& adapter) : adapter_(adapter) {}

    std::span<const RequestRow> requests() const override;
    Outcome set_retries(RequestCall& call);
    Outcome set_timeout(RequestCall& call);
    Outcome choose_address(RequestCall& call);
    Outcome set_ten_bit(RequestCall& call);
    Outcome set_pec(RequestCall& call);
    Outcome functions(std::uint64_t& mask);
    Outcome transfer(const i2c_rdwr_ioctl_data& order, RequestCall& call);
    Outcome smbus(const i2c_smbus_ioctl_data& order, RequestCall& call);
    Outcome read(std::size_t size, std::uint64_t offset) override;
    Outcome write(WriteCall& call) override;

  private:
    static Outcome keep(std::uint64_t& setting, std::uint64_t value, std::uint64_t most);
    Outcome take(const i2c_msg& raw, const Caller& caller, I2cMessage& message);
    Outcome smbus_with(SmbusCall smbus, std::uint64_t data_at, const Caller& caller);

    Adapter& adapter_;
    unsigned address_ = 0;
    bool ten_bit_ = false;
    bool pec_ = false;
};

using Direction = RequestRow::Direction;

constexpr RequestRow kI2cRequests[] = {
    request<&I2cFile::set_retries>(I2C_RETRIES, "I2C_RETRIES"),
    request<&I2cFile::set_timeout>(I2C_TIMEOUT, "I2C_TIMEOUT"),
    request<&I2cFile::choose_address>(I2C_SLAVE, "I2C_SLAVE"),
    // The same: no kernel driver holds an address here.
    request<&I2cFile::choose_address>(I2C_SLAVE_FORCE, "I2C_SLAVE_FORCE"),
    request<&I2cFile::set_ten_bit>(I2C_TENBIT, "I2C_TENBIT"),
    request<&I2cFile::set_pec>(I2C_PEC, "I2C_PEC"),
    request<&I2cFile::functions>(I2C_FUNCS, "I2C_FUNCS", Direction::out),
    request<&I2cFile::transfer>(I2C_RDWR, "I2C_RDWR", Direction::in, kTransferFields),
    request<&I2cFile::smbus>(I2C_SMBUS, "I2C_SMBUS", Direction::in, kSmbusFields),
};

// --- one open ---

std::span<const RequestRow> I2cFile::requests() const {
    return kI2cRequests;
}

Outcome I2cFile::set_retries(RequestCall& call) {
    return keep(adapter_.retries, call.argument, INT_MAX);
}

Outcome I2cFile::set_timeout(RequestCall& call) {
    return keep(adapter_.timeout, call.argument, INT_MAX / 10);
}

Outcome I2cFile::set_ten_bit(RequestCall& call) {
    ten_bit_ = call.argument != 0;
    return Outcome::done();
}

Outcome I2cFile::set_pec(RequestCall& call) {
    pec_ = call.argument != 0;
    return Outcome::done();
}

Outcome I2cFile::functions(std::uint64_t& mask) {
    mask = kFunctions;
    return Outcome::done();
}

Outcome I2cFile::keep(std::uint64_t& setting, std::uint64_t value, std::uint64_t most) {
    if (value > most) {
        return Outcome::failed(EINVAL);
    }
    setting = value;
    return Outcome::done();
}

Outcome I2cFile::choose_address(RequestCall& call) {
    if (call.argument > (ten_bit_ ? 0x3FFU : 0x7FU)) {
        return adapter_.complain(EINVAL, fmt::format("{:#x} is no address", call.argument));
    }
    address_ = static_cast<unsigned>(call.argument);
    return Outcome::done();
}

Outcome I2cFile::read(std::size_t size, std::uint64_t) {
    I2cMessage message{address_, ten_bit_, true, false, Bytes(std::min(size, kLongest))};
    const int error = adapter_.bus.transfer({&message, 1});
    return error == 0 ? Outcome::bytes(std::move(message.bytes)) : Outcome::failed(error);
}

Outcome I2cFile::write(WriteCall& call) {
    const ByteView data = call.data.first(std::min(call.data.size(), kLongest));
    I2cMessage message{address_, ten_bit_, false, false, Bytes(data.begin(), data.end())};
    const int error = adapter_.bus.transfer({&message, 1});
    return error == 0 ? Outcome::done(static_cast<int>(data.size())) : Outcome::failed(error);
}

// --- I2C_RDWR ---

// One message as the caller wrote it down; its buffer is fetched also where it is to be filled.
Outcome I2cFile::take(const i2c_msg& raw, const Caller& caller, I2cMessage& message) {
    if (raw.len > kLongest) {
        return adapter_.complain(EINVAL, fmt::format("a message of {} bytes", raw.len));
    }
    message = {raw.addr, (raw.flags & I2C_M_TEN) != 0, (raw.flags & I2C_M_RD) != 0,
               (raw.flags & I2C_M_RECV_LEN) != 0, Bytes(raw.len)};
    if (!caller.read(address_of(raw.buf), message.bytes)) {
        return Outcome::failed(EFAULT);
    }
    if ((raw.flags & ~kKnownFlags) != 0) {
        return adapter_.complain(EOPNOTSUPP, fmt::format("message flags {:#x}", raw.flags));
    }
    if (message.counted) {
        const unsigned room = raw.len == 0 ? 0U : message.bytes[0];
        if (!message.reads || room < 1 || raw.len < room + I2C_SMBUS_BLOCK_MAX) {
            return adapter_.complain(EINVAL, "a counted read without room for what may come");
        }
        message.bytes.resize(room);
    }
    return Outcome::done();
}

Outcome I2cFile::transfer(const i2c_rdwr_ioctl_data& order, RequestCall& call) {
    if (order.msgs == nullptr || order.nmsgs == 0 || order.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
        return adapter_.complain(EINVAL, fmt::format("a transfer of {} messages", order.nmsgs));
    }
    Bytes raw_bytes(order.nmsgs * sizeof(i2c_msg));
    if (!call.caller.read(address_of(order.msgs), raw_bytes)) {
        return Outcome::failed(EFAULT);
    }
    std::vector<i2c_msg> raw(order.nmsgs);
    std::memcpy(raw.data(), raw_bytes.data(), raw_bytes.size());

    std::vector<I2cMessage> messages(order.nmsgs);
    for (std::size_t i = 0; i < raw.size(); ++i) {
        if (Outcome taken = take(raw[i], call.caller, messages[i]);
            taken.kind == Outcome::Kind::failed) {
            return taken;
        }
    }
    if (const int error = adapter_.bus.transfer(messages); error != 0) {
        return Outcome::failed(error);
    }
    for (std::size_t i = 0; i < raw.size(); ++i) {
        if (messages[i].reads && !call.caller.write(address_of(raw[i].buf), messages[i].bytes)) {
            return Outcome::failed(EFAULT);
        }
    }
    return Outcome::done(static_cast<int>(order.nmsgs));
}

// --- I2C_SMBUS ---

Outcome I2cFile::smbus(const i2c_smbus_ioctl_data& order, RequestCall& call) {
    if (order.size > I2C_SMBUS_I2C_BLOCK_DATA || order.read_write > I2C_SMBUS_READ) {
        return adapter_.complain(EINVAL, fmt::format("SMBus operation {}", order.size));
    }
    const SmbusCall smbus{address_,      ten_bit_,  pec_, order.read_write == I2C_SMBUS_READ,
                          order.command, order.size};
    if (order.size == I2C_SMBUS_QUICK || (order.size == I2C_SMBUS_BYTE && !smbus.reads)) {
        i2c_smbus_data none{};
        const int error = smbus_transfer(adapter_.bus, smbus, none);
        return error == 0 ? Outcome::done() : Outcome::failed(error);
    }
    if (order.data == nullptr) {
        return adapter_.complain(EINVAL, "an SMBus operation without its data");
    }
    return smbus_with(smbus, address_of(order.data), call.caller);
}

std::size_t data_size(std::uint32_t operation) {
    switch (operation) {
    case I2C_SMBUS_BYTE:
    case I2C_SMBUS_BYTE_DATA:
        return 1;
    case I2C_SMBUS_WORD_DATA:
    case I2C_SMBUS_PROC_CALL:
        return 2;
    default:
        return sizeof(i2c_smbus_data);
    }
}

Outcome I2cFile::smbus_with(SmbusCall smbus, std::uint64_t data_at, const Caller& caller) {
    const bool both = smbus.size == I2C_SMBUS_PROC_CALL || smbus.size == I2C_SMBUS_BLOCK_PROC_CALL;
    const std::span<std::uint8_t> none;
    i2c_smbus_data data{};
    const std::span bytes(reinterpret_cast<std::uint8_t*>(&data), data_size(smbus.size));
    const bool takes = both || !smbus.reads || smbus.size == I2C_SMBUS_I2C_BLOCK_DATA;
    if (!caller.read(data_at, takes ? bytes : none)) {
        return Outcome::failed(EFAULT);
    }
    if (smbus.size == I2C_SMBUS_I2C_BLOCK_BROKEN) { // the older form of the block operation
        smbus.size = I2C_SMBUS_I2C_BLOCK_DATA;
        if (smbus.reads) {
            data.block[0] = I2C_SMBUS_BLOCK_MAX;
        }
    }
    if (const int error = smbus_transfer(adapter_.bus, smbus, data); error != 0) {
        return Outcome::failed(error);
    }
    const bool gives = both || smbus.reads;
    return caller.write(data_at, gives ? bytes : none) ? Outcome::done() : Outcome::failed(EFAULT);
}

// --- the adapter ---

class I2cAdapter : public Model {
  public:
    I2cAdapter(Board& board, Settings& settings);

  private:
    void put_node(const std::string& name);
    void add_verbs();
    Json show() const;

    Adapter adapter_;
};

unsigned bus_number(Settings& settings) {
    return settings.number("bus", 255);
}

I2cAdapter::I2cAdapter(Board& board, Settings& settings)
    : adapter_{board, i2c_bus(board, bus_number(settings)), {}} {
    I2cBus& bus = adapter_.bus;
    if (bus.has_adapter()) {
        settings.refuse("bus", fmt::format("bus {} has an adapter already", bus.number()));
    }
    bus.set_adapter();
    const auto pattern = settings.get<std::string>("pattern");
    auto name = settings.get<std::string>("name");
    if (name.empty()) {
        name = fmt::format("board I2C adapter {}", bus.number());
    }
    if (pattern == "first" || pattern == "second") {
        adapter_.node = fmt::format("/dev/i2c{}{}", pattern == "first" ? '-' : '/', bus.number());
        put_node(name);
    } else if (pattern != "none") {
        settings.refuse("pattern", "first, second or none is wanted");
    }
    add_verbs();
}

void I2cAdapter::put_node(const std::string& name) {
    Tree& tree = adapter_.board.tree();
    const unsigned number = adapter_.bus.number();
    const std::string folder = fmt::format("/sys/class/i2c-dev/i2c-{}", number);
    tree.put(adapter_.node, device_node<I2cFile>(adapter_));
    tree.put(folder + "/name", fixed_attribute(name));
    tree.put(folder + "/dev", fixed_attribute(fmt::format("{}:{}", kDeviceMajor, number)));
    tree.put(folder + "/device/name", fixed_attribute(name));
}

Json I2cAdapter::show() const {
    Json devices = Json::array();
    for (const auto& [address, device] : adapter_.bus.devices()) {
        devices.push_back({{"address", address}, {"answers", device->answers()}});
    }
    return {{"bus", adapter_.bus.number()},
            {"node", adapter_.node},
            {"timeout_ms", adapter_.timeout * 10},
            {"retries", adapter_.retries},
            {"devices", devices}};
}

void I2cAdapter::add_verbs() {
    Verbs& verbs = adapter_.board.verbs();
    const unsigned number = adapter_.bus.number();
    verbs.add_for("bus", number,
                  {"i2c.show", {}, "an adapter's settings and chips", [this](const Json&) {
                       return show();
                   }});
    verbs.add_for("bus", number,
                  {"i2c.mute",
                   {Argument::integer("address", 0, 0x7F), Argument::flag("muted")},
                   "let a 7-bit address of a bus no longer answer (1), or answer again (0)",
                   [this](const Json& arguments) -> Json {
                       const auto address = arguments["address"].get<unsigned>();
                       if (!adapter_.bus.devices().contains(address)) {
                           throw VerbError(fmt::format("nobody has address {:#x}", address));
                       }
                       adapter_.bus.mute(address, arguments["muted"] != 0);
                       return {};
                   }});
}

constexpr SettingRow kI2cAdapterSettings[] = {
    {"bus", nullptr, "its number"},
    {"pattern", R"("first")",
     "of its node: `first` (`/dev/i2c-N`), `second` (`/dev/i2c/N`) or `none`"},
    {"name", R"("")", "what its name file says; \"board I2C adapter N\" where it is empty"},
};

} // namespace

const ModelKind kI2cAdapter{"i2c_adapter", "an I2C bus and its node", kI2cAdapterSettings,
                            make_model<I2cAdapter>};

void check_i2c_buses(Board& board) {
    for (const I2cBus* bus : board.parts().all<I2cBus>()) {
        if (!bus->has_adapter()) {
            throw SettingsError(
                fmt::format("I2C bus {} has chips and no i2c_adapter", bus->number()));
        }
    }
}

void attach_to_i2c(Board& board, Settings& settings, I2cDevice& device) {
    I2cBus& bus = i2c_bus(board, bus_number(settings));
    const unsigned address = settings.number("address", 0x7F);
    if (!bus.attach(address, device)) {
        settings.refuse("address", fmt::format("{:#x} is taken on bus {}", address, bus.number()));
    }
}

} // namespace vb
