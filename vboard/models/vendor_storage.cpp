// The vendor storage: numbered items of up to 64 bytes, by default at /dev/vendor_storage, which
// outlive the board's restarts.
//
// What is ours to choose, and what programs may rely on. Both requests have the same record, low
// byte first:
//       bytes 0 to 3   'Q' 'E' 'R' 'V'
//             4, 5     the item's number
//             6, 7     length, up to 64
//             8 to 71  data
// A write stores so many bytes as the item, none included, and is safe once it was answered; where
// there is no more room it is ENOSPC. A read gives what the item has of the bytes that are asked
// for, and as length how many those are; the data behind them stays as the caller had it. Where
// there is no such item it is ENOENT. Another tag or a length above 64 is EINVAL.

#include "models/kinds.h"
#include "models/support/kept_json.h"
#include "serve/device_node.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>

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

class VendorStorage : public Model {
  public:
    VendorStorage(Board& board, Settings& settings);

    Outcome read(VendorRecord& record, RequestCall& call);
    Outcome write(const VendorRecord& record, RequestCall& call);

  private:
    std::optional<Outcome> refusal(const VendorRecord& record, const RequestCall& call);

    Board& board_;
    std::string node_;
    std::size_t room_;
    KeptJson items_; // by number: the bytes as hex digits
};

using Direction = RequestRow::Direction;

constexpr RequestRow kVendorRequests[] = {
    request<&VendorStorage::read>(0x40047601, "VENDOR_READ", Direction::inout, kVendorFields),
    request<&VendorStorage::write>(0x40047602, "VENDOR_WRITE", Direction::in, kVendorFields),
};

VendorStorage::VendorStorage(Board& board, Settings& settings)
    : board_(board),
      node_(settings.get<std::string>("node")),
      room_(settings.number("items", 65536)),
      items_(board, "vendor", Json::object()) {
    board_.tree().put(node_, driver_node(*this, kVendorRequests));
    board_.verbs().add({"vendor.list",
                        {},
                        "the items of the vendor storage: numbers and bytes",
                        [this](const Json&) { return items_.value(); }});
}

// What a call gets that is not to be carried out.
std::optional<Outcome> VendorStorage::refusal(const VendorRecord& record, const RequestCall& call) {
    if (!board_.power().on()) {
        return Outcome::wait(); // nothing is stored any more
    }
    if (record.tag != kTag || record.length > record.data.size()) {
        board_.misuse(node_, fmt::format("{}: not a record of this driver", call.row.name));
        return Outcome::failed(EINVAL);
    }
    return std::nullopt;
}

Outcome VendorStorage::read(VendorRecord& record, RequestCall& call) {
    if (const auto refused = refusal(record, call)) {
        return *refused;
    }
    const auto found = items_.value().find(std::to_string(record.id));
    if (found == items_.value().end()) {
        return Outcome::failed(ENOENT);
    }
    const Bytes item = from_hex(found->get<std::string>()).value_or(Bytes());
    record.length = static_cast<std::uint16_t>(std::min<std::size_t>(record.length, item.size()));
    std::copy_n(item.begin(), record.length, record.data.begin());
    return Outcome::done();
}

Outcome VendorStorage::write(const VendorRecord& record, RequestCall& call) {
    if (const auto refused = refusal(record, call)) {
        return *refused;
    }
    const std::string key = std::to_string(record.id);
    Json items = items_.value();
    if (!items.contains(key) && items.size() >= room_) {
        return Outcome::failed(ENOSPC);
    }
    items[key] = to_hex(ByteView(record.data).first(record.length));
    items_.store(std::move(items));
    return Outcome::done();
}

constexpr SettingRow kVendorStorageSettings[] = {
    {"node", R"("/dev/vendor_storage")", ""},
    {"items", "64", "how many there is room for"},
};

} // namespace

const ModelKind kVendorStorage{"vendor_storage", "numbered items of up to 64 bytes",
                               kVendorStorageSettings, make_model<VendorStorage>};

} // namespace vb
