// The FPGA's access node (by default /dev/fpga) and its interrupt node (by default /dev/fpgavm).
//
// What is ours to choose, and what programs may rely on:
// - The register file is bytes; `addr` of a transfer is the first of `len` bytes. A transfer of
//   no bytes is done at once, one beyond the file is EINVAL, as is any operation but 1 (read) and
//   3 (write) or a reserved word that is not 0; a buffer that is not the caller's is EFAULT. Done
//   is result 0.
// - Every open of the interrupt node gets every interrupt from then on, and counts those it has
//   not been told of. It is readable (POLLIN) while there are some, and each select() or poll()
//   that finds it so takes one of them: N interrupts make exactly N such calls return at once.
//   Nothing can be read from it.
// - How that is exact: a select() asks the device once when it begins and once after each
//   wake-up, and hands its caller whatever the device answers of what was asked; an answer is
//   never asked for twice. So the interrupt is taken back with the answer, and only by a call
//   that asks for readability. epoll asks again before it hands an event over, and therefore
//   loses interrupts here, as with any driver that clears a readiness by reporting it.

#include "models/kinds.h"
#include "serve/device_node.h"

#include <algorithm>
#include <cerrno>

namespace vb {

namespace {

struct TransferRecord {
    std::uint32_t reserved0;
    std::uint32_t reserved1;
    std::uint32_t operation;
    std::uint32_t address;
    std::uint32_t length;
    std::uint32_t reserved2;
    std::uint64_t buffer;
};
static_assert(sizeof(TransferRecord) == 32);

using FieldType = RecordField::Type;

constexpr RecordField kFpgaFields[] = {
    {"operation", FieldType::u32, 8},
    {"address", FieldType::u32, 12},
    {"length", FieldType::u32, 16},
    {"buffer", FieldType::u64, 24},
};

constexpr std::uint32_t kOperationRead = 1;
constexpr std::uint32_t kOperationWrite = 3;

class Fpga;

class InterruptFile : public File {
  public:
    explicit InterruptFile(Fpga& fpga) : fpga_(fpga) {}
    short readiness() const override { return pending_ > 0 ? kReadable : 0; }
    short answer_poll(short asked) override;
    void interrupt();

  private:
    Fpga& fpga_;
    std::uint64_t pending_ = 0;
};

class Fpga : public Model {
  public:
    Fpga(Board& board, Settings& settings);

    Outcome transfer(const TransferRecord& record, RequestCall& call);
    void reported(std::uint64_t left);

  private:
    void add_verbs();
    Outcome complain(const std::string& text);
    std::span<std::uint8_t> outside_bytes(const Json& address, std::size_t length);
    Json interrupt(const Json& arguments);

    Board& board_;
    std::string node_;
    std::string interrupt_node_;
    Bytes bytes_;
    Opens<InterruptFile> listeners_;
};

constexpr RequestRow kFpgaRequests[] = {
    request<&Fpga::transfer>(0xC00865A0, "FPGA_TRANSFER", RequestRow::Direction::in, kFpgaFields),
};

// --- an open of the interrupt's node ---

short InterruptFile::answer_poll(short asked) {
    const auto answer = static_cast<short>(readiness() & asked);
    if (answer != 0) {
        fpga_.reported(--pending_);
    }
    return answer;
}

void InterruptFile::interrupt() {
    ++pending_;
    changed();
}

// --- the driver ---

Fpga::Fpga(Board& board, Settings& settings)
    : board_(board),
      node_(settings.get<std::string>("node")),
      interrupt_node_(settings.get<std::string>("interrupt_node")),
      bytes_(settings.number("size", 1U << 24)) {
    board.tree().put(node_, driver_node(*this, kFpgaRequests));
    board.tree().put(interrupt_node_, device_node(listeners_, *this));
    add_verbs();
}

Outcome Fpga::complain(const std::string& text) {
    board_.misuse(node_, text);
    return Outcome::failed(EINVAL);
}

Outcome Fpga::transfer(const TransferRecord& record, RequestCall& call) {
    if (record.reserved0 != 0 || record.reserved1 != 0 || record.reserved2 != 0) {
        return complain("a reserved word of the record is not 0");
    }
    if (record.operation != kOperationRead && record.operation != kOperationWrite) {
        return complain(fmt::format("there is no operation {}", record.operation));
    }
    if (record.address > bytes_.size() || record.length > bytes_.size() - record.address) {
        return complain(
            fmt::format("{} bytes from {:#x} are too many", record.length, record.address));
    }
    const auto bytes = std::span(bytes_).subspan(record.address, record.length);
    Bytes buffer(bytes.begin(), bytes.end());
    const bool reached = record.operation == kOperationRead
                             ? call.caller.write(record.buffer, buffer)
                             : call.caller.read(record.buffer, buffer);
    if (!reached) {
        return Outcome::failed(EFAULT);
    }
    std::copy(buffer.begin(), buffer.end(), bytes.begin());
    board_.trace().add("fpga",
                       {{"node", node_},
                        {"operation", record.operation == kOperationRead ? "read" : "write"},
                        {"address", record.address},
                        {"bytes", to_hex(buffer)}});
    return Outcome::done();
}

void Fpga::reported(std::uint64_t left) {
    board_.trace().add("interrupt",
                       {{"node", interrupt_node_}, {"state", "reported"}, {"left", left}});
}

// --- the world outside ---

std::span<std::uint8_t> Fpga::outside_bytes(const Json& address, std::size_t length) {
    const auto first = address.get<std::int64_t>();
    if (static_cast<std::uint64_t>(first) > bytes_.size() ||
        length > bytes_.size() - static_cast<std::uint64_t>(first)) {
        throw VerbError(fmt::format("the register file has {} bytes", bytes_.size()));
    }
    return std::span(bytes_).subspan(static_cast<std::size_t>(first), length);
}

Json Fpga::interrupt(const Json& arguments) {
    const auto count = arguments["count"].get<std::int64_t>();
    for (std::int64_t i = 0; i < count; ++i) {
        for (InterruptFile* file : listeners_) {
            file->interrupt();
        }
    }
    board_.trace().add("interrupt", {{"node", interrupt_node_},
                                     {"state", "raised"},
                                     {"count", count},
                                     {"listeners", listeners_.size()}});
    return {{"listeners", listeners_.size()}};
}

void Fpga::add_verbs() {
    const Argument address = Argument::integer("address", 0);
    Verbs& verbs = board_.verbs();
    verbs.add({"fpga.peek",
               {address, Argument::integer("length", 0)},
               "bytes of the register file, as hexadecimal digits",
               [this](const Json& arguments) -> Json {
                   const auto length = arguments["length"].get<std::int64_t>();
                   return to_hex(
                       outside_bytes(arguments["address"], static_cast<std::size_t>(length)));
               }});
    verbs.add({"fpga.poke",
               {address, Argument::text("bytes")},
               "write hexadecimal digits to the register file",
               [this](const Json& arguments) -> Json {
                   const auto bytes = from_hex(arguments["bytes"].get<std::string>());
                   if (!bytes) {
                       throw UsageError("BYTES: an even number of hexadecimal digits is wanted");
                   }
                   const auto place = outside_bytes(arguments["address"], bytes->size());
                   std::copy(bytes->begin(), bytes->end(), place.begin());
                   return {};
               }});
    verbs.add({"fpga.interrupt",
               {Argument::integer("count", 0, 1'000'000).or_else(1)},
               "raise an interrupt, or several at once",
               [this](const Json& arguments) { return interrupt(arguments); }});
}

constexpr SettingRow kFpgaSettings[] = {
    {"node", R"("/dev/fpga")", ""},
    {"interrupt_node", R"("/dev/fpgavm")", ""},
    {"size", "65536", "bytes of the register file"},
};

} // namespace

const ModelKind kFpga{"fpga", "the FPGA: register file and interrupts", kFpgaSettings,
                      make_model<Fpga>};

} // namespace vb
