#include "host/capture.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace vb::host {

namespace {

constexpr std::uint32_t kLongestPacket = 0x40000; // of a packet, header included
constexpr std::uint8_t kToHost = 0x80;

struct FileHeader {
    std::uint32_t magic = 0xA1B2C3D4; // times in microseconds
    std::uint16_t major = 2;
    std::uint16_t minor = 4;
    std::int32_t zone = 0;
    std::uint32_t accuracy = 0;
    std::uint32_t longest = kLongestPacket;
    std::uint32_t link_type = 220;
};
static_assert(sizeof(FileHeader) == 24);

struct PacketHeader {
    std::uint32_t seconds;
    std::uint32_t microseconds;
    std::uint32_t kept;
    std::uint32_t whole;
};

} // namespace

struct Capture::Record {
    std::uint64_t id = 0;
    char event = 0;
    TransferType type = TransferType::control;
    std::uint8_t endpoint = 0;
    std::uint8_t device = 0;
    std::uint16_t bus = 1;
    char setup_flag = '-'; // 0: there is one
    char data_flag = 0;    // 0: it follows
    std::int64_t seconds = 0;
    std::int32_t microseconds = 0;
    std::int32_t status = 0;
    std::uint32_t length = 0;
    std::uint32_t kept = 0;
    std::array<std::uint8_t, 8> setup{};
    std::int32_t interval = 0;
    std::int32_t start_frame = 0;
    std::uint32_t flags = 0;
    std::uint32_t descriptors = 0;
};

bool Capture::write_to(const std::string& path, bool append) {
    file_.reset(std::fopen(path.c_str(), append ? "ae" : "we"));
    if (file_ == nullptr) {
        return false;
    }
    const FileHeader header;
    return append || (std::fwrite(&header, sizeof header, 1, file_.get()) == 1 &&
                      std::fflush(file_.get()) == 0);
}

void Capture::submitted(const CapturedTransfer& transfer, ByteView data) {
    Record record;
    record.id = transfer.id;
    record.event = 'S';
    record.type = transfer.type;
    record.endpoint = transfer.endpoint;
    record.device = transfer.device;
    record.data_flag = (transfer.endpoint & kToHost) != 0 ? '<' : '\0';
    record.status = -EINPROGRESS;
    record.length = static_cast<std::uint32_t>(transfer.length);
    record.interval = transfer.interval;
    if (transfer.setup) {
        record.setup_flag = 0;
        const Bytes bytes = bytes_of(*transfer.setup);
        std::copy(bytes.begin(), bytes.end(), record.setup.begin());
    }
    put(record, data);
}

void Capture::completed(const CapturedTransfer& transfer, int status, ByteView data) {
    const bool to_host = (transfer.endpoint & kToHost) != 0;
    Record record;
    record.id = transfer.id;
    record.event = 'C';
    record.type = transfer.type;
    record.endpoint = transfer.endpoint;
    record.device = transfer.device;
    record.data_flag = to_host ? '\0' : '>';
    record.status = status;
    const std::size_t sent = status == 0 ? transfer.length : 0;
    record.length = static_cast<std::uint32_t>(to_host ? data.size() : sent);
    record.interval = transfer.interval;
    put(record, to_host ? data : ByteView());
}

void Capture::put(const Record& record, ByteView data) {
    static_assert(sizeof(Record) == 64);
    if (file_ == nullptr) {
        return;
    }
    const ByteView kept =
        data.first(std::min<std::size_t>(data.size(), kLongestPacket - sizeof record));
    const std::int64_t microseconds = now_() / 1000;
    Record whole = record;
    whole.seconds = microseconds / 1'000'000;
    whole.microseconds = static_cast<std::int32_t>(microseconds % 1'000'000);
    whole.kept = static_cast<std::uint32_t>(kept.size());
    const PacketHeader header{static_cast<std::uint32_t>(whole.seconds),
                              static_cast<std::uint32_t>(whole.microseconds),
                              static_cast<std::uint32_t>(sizeof whole + kept.size()),
                              static_cast<std::uint32_t>(sizeof whole + data.size())};
    std::fwrite(&header, sizeof header, 1, file_.get());
    std::fwrite(&whole, sizeof whole, 1, file_.get());
    if (!kept.empty()) {
        std::fwrite(kept.data(), 1, kept.size(), file_.get());
    }
    std::fflush(file_.get());
}

} // namespace vb::host
