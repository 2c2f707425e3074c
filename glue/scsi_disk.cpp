// How much crosses for a command is decided by two lengths, the host's and the command's own
// (Bulk-Only Transport, 6.7). The node knows no halt of an endpoint, so data that end early end
// with a short packet instead, which some fill bytes make where it needs them.
#include "scsi_disk.h"
#include "scsi_image.h"
#include "scsi_wrapper.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <new>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

namespace scsi {

constexpr std::size_t kPiece = 64 << 10; // of what is read
constexpr std::size_t kFill = 4;
constexpr std::size_t kLeastPacket = 64; // of a bulk endpoint at full speed
constexpr std::uint32_t kCswSignature = 0x53425355;

enum class Status : std::uint8_t { kPassed, kFailed, kPhaseError };

struct Sense {
    std::uint8_t key = 0;
    std::uint8_t code = 0; // additional sense code, whose qualifier is always 0
};

constexpr Sense kUnreadable{0x3, 0x11};
constexpr Sense kUnwritable{0x3, 0x0C};
constexpr Sense kNoSuchOperation{0x5, 0x20};
constexpr Sense kOutOfRange{0x5, 0x21};
constexpr Sense kInvalidField{0x5, 0x24};
constexpr Sense kNoSuchUnit{0x5, 0x25};
constexpr Sense kWriteProtected{0x7, 0x27};

static void add_to(std::atomic<std::uint64_t>& count, std::uint64_t more) {
    count.fetch_add(more, std::memory_order_relaxed);
}

} // namespace scsi

using namespace scsi;

struct scsi_disk {
  public:
    scsi_disk(Image image, scsi_disk_reply reply, scsi_disk_data data)
        : image_(std::move(image)), reply_(reply), data_(data) {}

    bool take(const hal_mass_data& event);
    scsi_disk_counts counts() const { return {commands_, read_, written_}; }

  private:
    void begin(Bytes wrapper);
    void carry_out();
    void take_data(Bytes data);
    void finish();

    void inquire();
    void tell_sense();
    void tell_capacity();
    void tell_mode();
    void select_mode();
    void verify();
    void read_blocks();
    void write_blocks();
    void synchronize();

    bool is_in_range(std::uint64_t first, std::uint64_t count);
    void answer(Bytes whole, std::size_t wanted);
    void fail(Sense sense);
    void send(std::size_t length, bool last = false);
    void send_status();

    Image image_;
    scsi_disk_reply reply_;
    scsi_disk_data data_;
    Sense sense_;

    // The command under way.
    Wrapper wrapper_;
    Status status_ = Status::kPassed;
    std::uint64_t awaited_ = 0;    // bytes of the host's that are still to come
    std::uint64_t to_send_ = 0;    // bytes that the command has for the host: of answer_, or of the
    bool from_image_ = false;      // image from `place_` on
    std::uint64_t to_receive_ = 0; // bytes that it takes from the host, to be written at `place_`
    std::uint64_t place_ = 0;
    std::uint64_t moved_ = 0; // bytes that meant something
    bool lost_ = false;       // the host has given up what it asked for
    std::array<std::uint8_t, kPiece + kFill> buffer_{};

    std::atomic<std::uint64_t> commands_{0};
    std::atomic<std::uint64_t> read_{0};
    std::atomic<std::uint64_t> written_{0};
};

bool scsi_disk::take(const hal_mass_data& event) {
    const Bytes bytes(event.data, event.data == nullptr ? 0 : event.len);
    switch (event.kind) {
    case MASS_EVENT_CBW:
        begin(bytes);
        return false;
    case MASS_EVENT_DATA:
        // A host that resets the transport amid its data goes on with a command. No data are like
        // that: they are blocks, and packets but the last are whole.
        if (has_signature(bytes)) {
            begin(bytes);
        } else {
            take_data(bytes);
        }
        return false;
    default:
        image_.flush();
        awaited_ = 0;
        return true;
    }
}

void scsi_disk::begin(Bytes wrapper) {
    add_to(commands_, 1);
    wrapper_ = Wrapper(wrapper);
    status_ = Status::kPassed;
    const bool is_told = data_ == SCSI_DISK_DATA_OF_ALL || wrapper_[0] == kWrite10;
    awaited_ = is_told ? wrapper_.follows() : 0;
    to_send_ = to_receive_ = place_ = moved_ = 0;
    from_image_ = lost_ = false;
    if (wrapper_.is_valid()) {
        carry_out();
    } else {
        status_ = Status::kPhaseError;
    }
    // The host and the command have to agree on who sends, and the host's length is the limit.
    const std::uint64_t whole = std::max(to_send_, to_receive_);
    const bool to_host = to_send_ > 0;
    if (whole > wrapper_.length() || (whole > 0 && to_host != wrapper_.is_to_host())) {
        status_ = Status::kPhaseError;
        to_receive_ = 0;
        to_send_ = wrapper_.is_to_host() ? std::min<std::uint64_t>(to_send_, wrapper_.length()) : 0;
    }
    if (awaited_ == 0) {
        finish();
    }
}

void scsi_disk::carry_out() {
    const std::uint8_t operation = wrapper_[0];
    if (wrapper_.unit() != 0) {
        fail(kNoSuchUnit);
        return;
    }
    if (operation != kRequestSense) {
        sense_ = {};
    }
    switch (operation) {
    case kTestUnitReady:
    case kPreventRemoval:
        return;
    case kInquiry:
        return inquire();
    case kRequestSense:
        return tell_sense();
    case kReadCapacity10:
        return tell_capacity();
    case kModeSense6:
        return tell_mode();
    case kModeSelect6:
        return select_mode();
    case kStartStopUnit:
    case kSynchronizeCache10:
        return synchronize();
    case kVerify10:
        return verify();
    case kRead10:
        return read_blocks();
    case kWrite10:
        return write_blocks();
    default:
        fail(kNoSuchOperation);
    }
}

// --- commands ---

void scsi_disk::inquire() {
    constexpr std::uint8_t kRemovable = 0x80;
    constexpr std::uint8_t kVersion = 0x04; // SPC-2
    constexpr std::string_view kNames = "HAL     Virtual disk    1.0 ";
    if ((wrapper_[1] & 1U) != 0 || wrapper_[2] != 0) {
        fail(kInvalidField); // no pages of vital product data
        return;
    }
    std::array<std::uint8_t, 8 + kNames.size()> whole{0, kRemovable, kVersion, 2};
    whole[4] = static_cast<std::uint8_t>(whole.size() - 5);
    std::copy(kNames.begin(), kNames.end(), whole.begin() + 8);
    answer(whole, wrapper_.half(3));
}

void scsi_disk::tell_sense() {
    std::array<std::uint8_t, 18> whole{0x70, 0, sense_.key};
    whole[7] = whole.size() - 8;
    whole[12] = sense_.code;
    sense_ = {};
    answer(whole, wrapper_[4]);
}

void scsi_disk::tell_capacity() {
    std::array<std::uint8_t, 8> whole{};
    const std::span<std::uint8_t> bytes(whole);
    put_big_endian(bytes.first(4), static_cast<std::uint32_t>(
                                       std::min<std::uint64_t>(image_.blocks() - 1, UINT32_MAX)));
    put_big_endian(bytes.last(4), kBlock);
    answer(whole, whole.size());
}

void scsi_disk::tell_mode() {
    constexpr std::uint8_t kAllPages = 0x3F;
    if ((wrapper_[2] & kAllPages) != kAllPages) {
        fail(kInvalidField);
        return;
    }
    const std::array<std::uint8_t, 4> header{
        3, 0, static_cast<std::uint8_t>(image_.is_read_only() ? 0x80 : 0), 0};
    answer(header, wrapper_[4]);
}

// There is nothing to select, and nothing to check: the data were dropped on their way.
void scsi_disk::select_mode() {
    if (wrapper_[4] > wrapper_.length() || (wrapper_[4] > 0 && wrapper_.is_to_host())) {
        status_ = Status::kPhaseError;
    } else {
        moved_ = wrapper_[4];
    }
}

void scsi_disk::synchronize() {
    if (!image_.flush()) {
        fail(kUnwritable);
    }
}

bool scsi_disk::is_in_range(std::uint64_t first, std::uint64_t count) {
    if (first > image_.blocks() || count > image_.blocks() - first) {
        fail(kOutOfRange);
        return false;
    }
    return true;
}

void scsi_disk::verify() {
    constexpr unsigned kCompare = 0x06;
    const std::uint64_t first = wrapper_.word(2);
    const std::uint64_t count = wrapper_.half(7);
    if ((wrapper_[1] & kCompare) != 0) {
        fail(kInvalidField);
        return;
    }
    if (!is_in_range(first, count)) {
        return;
    }
    for (std::uint64_t at = first * kBlock, end = at + count * kBlock; at < end;) {
        const std::size_t piece = std::min<std::uint64_t>(kPiece, end - at);
        if (!image_.read(std::span(buffer_).first(piece), at)) {
            fail(kUnreadable);
            return;
        }
        at += piece;
    }
}

void scsi_disk::read_blocks() {
    const std::uint64_t first = wrapper_.word(2);
    const std::uint64_t count = wrapper_.half(7);
    if (is_in_range(first, count)) {
        place_ = first * kBlock;
        to_send_ = count * kBlock;
        from_image_ = true;
    }
}

void scsi_disk::write_blocks() {
    const std::uint64_t first = wrapper_.word(2);
    const std::uint64_t count = wrapper_.half(7);
    if (image_.is_read_only()) {
        fail(kWriteProtected);
    } else if (is_in_range(first, count)) {
        place_ = first * kBlock;
        to_receive_ = count * kBlock;
    }
}

void scsi_disk::answer(Bytes whole, std::size_t wanted) {
    std::copy(whole.begin(), whole.end(), buffer_.begin());
    to_send_ = std::min(whole.size(), wanted);
}

void scsi_disk::fail(Sense sense) {
    sense_ = sense;
    status_ = Status::kFailed;
}

// --- what crosses ---

void scsi_disk::take_data(Bytes data) {
    if (awaited_ == 0) {
        return;
    }
    awaited_ -= std::min<std::uint64_t>(awaited_, data.size());
    const Bytes used = data.first(std::min<std::uint64_t>(data.size(), to_receive_ - moved_));
    if (status_ == Status::kPassed && !used.empty()) {
        if (image_.write(used, place_ + moved_)) {
            moved_ += used.size();
            add_to(written_, used.size());
        } else {
            fail(kUnwritable);
        }
    }
    if (awaited_ == 0) {
        finish();
    }
}

// The data for the host, if it wants any, then the status.
void scsi_disk::finish() {
    const std::uint64_t asked = wrapper_.is_to_host() ? wrapper_.length() : 0;
    bool more = asked > 0;
    while (more && !lost_) {
        std::size_t piece = std::min<std::uint64_t>(kPiece, to_send_ - moved_);
        if (from_image_ && piece > 0 &&
            !image_.read(std::span(buffer_).first(piece), place_ + moved_)) {
            fail(kUnreadable);
            to_send_ = moved_;
            piece = 0;
        }
        moved_ += piece;
        more = moved_ < to_send_;
        std::size_t fill = 0;
        if (!more && moved_ < asked && moved_ % kLeastPacket == 0) {
            fill = std::min<std::uint64_t>(kFill, asked - moved_);
            std::fill_n(buffer_.begin() + static_cast<std::ptrdiff_t>(piece), fill,
                        std::uint8_t{0});
        }
        if (piece + fill > 0) {
            send(piece + fill);
        }
        if (from_image_ && !lost_) {
            add_to(read_, piece);
        }
    }
    send_status();
}

void scsi_disk::send(std::size_t length, bool last) {
    const hal_mass_reply reply{0, static_cast<std::uint32_t>(length), buffer_.data(),
                               last ? 1U : 0U};
    lost_ = reply_(&reply) < 0;
}

void scsi_disk::send_status() {
    if (lost_) {
        send(0, true); // nobody waits for a status any more, but the command is at its end
        return;
    }
    const std::span<std::uint8_t> csw = std::span(buffer_).first<13>();
    put_little_endian(csw.subspan(0, 4), kCswSignature);
    put_little_endian(csw.subspan(4, 4), wrapper_.tag());
    put_little_endian(csw.subspan(8, 4), wrapper_.length() - static_cast<std::uint32_t>(moved_));
    csw[12] = static_cast<std::uint8_t>(status_);
    send(csw.size(), true);
}

// --- for C ---

scsi_disk* scsi_disk_open(const char* image, bool read_only, scsi_disk_reply reply,
                          scsi_disk_data data) {
    std::optional<Image> opened = Image::open(image, read_only);
    if (!opened) {
        return nullptr;
    }
    auto* disk = new (std::nothrow) scsi_disk(std::move(*opened), reply, data);
    if (disk == nullptr) {
        errno = ENOMEM;
    }
    return disk;
}

bool scsi_disk_take(scsi_disk* disk, const hal_mass_data* event) {
    return disk->take(*event);
}

scsi_disk_counts scsi_disk_count(const scsi_disk* disk) {
    return disk->counts();
}

void scsi_disk_close(scsi_disk* disk) {
    delete disk;
}
