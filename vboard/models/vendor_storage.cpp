#include "models/vendor_storage.h"

#include "models/support/kept_json.h"
#include "serve/device_node.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace vb {

namespace {

struct VendorRecord {
    std::array<char, 4> tag;
    std::uint16_t id;
    std::uint16_t length;
    std::array<std::uint8_t, 64> data;
};
static_assert(sizeof(VendorRecord) == 72);

constexpr std::array<char, 4> kTag{'Q', 'E', 'R', 'V'};

using FieldType = RecordField::Type;

constexpr RecordField kVendorFields[] = {
    {"tag", FieldType::text, 0, 4},
    {"id", FieldType::u16, 4},
    {"length", FieldType::u16, 6},
    {"data", FieldType::bytes, 8, 64},
};

enum Code : std::uint32_t { kVendorRead = 0x40047601, kVendorWrite = 0x40047602 };

constexpr RequestRow kVendorRequests[] = {
    {kVendorRead, "VENDOR_READ", RequestRow::Direction::inout, sizeof(VendorRecord), kVendorFields},
    {kVendorWrite, "VENDOR_WRITE", RequestRow::Direction::in, sizeof(VendorRecord), kVendorFields},
};

class VendorStorage : public Model {
  public:
    VendorStorage(Board& board, Settings& settings);

    Outcome request(RequestCall& call);

  private:
    Outcome read(const Bytes& item, RequestCall& call) const;
    Outcome write(const std::string& key, const VendorRecord& record);

    Board& board_;
    std::string node_;
    std::size_t room_;
    KeptJson items_; // by number: the bytes as hex digits
};

class VendorFile : public File {
  public:
    explicit VendorFile(VendorStorage& driver) : driver_(driver) {}
    std::span<const RequestRow> requests() const override { return kVendorRequests; }
    Outcome request(RequestCall& call) override { return driver_.request(call); }

  private:
    VendorStorage& driver_;
};

VendorStorage::VendorStorage(Board& board, Settings& settings)
    : board_(board),
      node_(settings.get<std::string>("node", "/dev/vendor_storage")),
      room_(settings.number("items", 64, 65536)),
      items_(board, "vendor", Json::object()) {
    board_.tree().put(node_, device_node<VendorFile>(*this));
    board_.verbs().add({"vendor.list",
                        {},
                        "the items of the vendor storage: numbers and bytes",
                        [this](const Json&) { return items_.value(); }});
}

Outcome VendorStorage::request(RequestCall& call) {
    if (!board_.power().on()) {
        return Outcome::wait(); // nothing is stored any more
    }
    const auto record = record_from<VendorRecord>(call.record);
    if (record.tag != kTag || record.length > record.data.size()) {
        board_.misuse(node_, fmt::format("{}: not a record of this driver", call.row.name));
        return Outcome::failed(EINVAL);
    }
    const std::string key = std::to_string(record.id);
    if (call.row.code == kVendorWrite) {
        return write(key, record);
    }
    const auto found = items_.value().find(key);
    if (found == items_.value().end()) {
        return Outcome::failed(ENOENT);
    }
    return read(from_hex(found->get<std::string>()).value_or(Bytes()), call);
}

Outcome VendorStorage::read(const Bytes& item, RequestCall& call) const {
    auto record = record_from<VendorRecord>(call.record);
    record.length = static_cast<std::uint16_t>(std::min<std::size_t>(record.length, item.size()));
    std::copy_n(item.begin(), record.length, record.data.begin());
    const Bytes answer = bytes_of(record);
    std::copy(answer.begin(), answer.end(), call.record.begin());
    return Outcome::done();
}

Outcome VendorStorage::write(const std::string& key, const VendorRecord& record) {
    Json items = items_.value();
    if (!items.contains(key) && items.size() >= room_) {
        return Outcome::failed(ENOSPC);
    }
    items[key] = to_hex(ByteView(record.data).first(record.length));
    items_.store(std::move(items));
    return Outcome::done();
}

} // namespace

std::unique_ptr<Model> make_vendor_storage(Board& board, Settings& settings) {
    return std::make_unique<VendorStorage>(board, settings);
}

} // namespace vb
