#include "models/support/scsi_node.h"

#include <fcntl.h>
#include <scsi/sg.h>

#include <algorithm>
#include <cerrno>

namespace vb {

namespace {

constexpr std::uint32_t kGetIdlun = 0x5382; // no header of the C library has these two
constexpr std::uint32_t kGetBusNumber = 0x5386;
constexpr std::int32_t kSgVersion = 30527;
constexpr std::int64_t kUsualTime = 60'000 * kMillisecond;
constexpr std::int64_t kShortestTime = 7'000 * kMillisecond;
constexpr std::int32_t kMostReserve = 1280 * 1024; // the kernel's max_sectors_kb
constexpr std::int64_t kTick = 10 * kMillisecond;  // of SG_SET_TIMEOUT

using FieldType = RecordField::Type;
using Direction = RequestRow::Direction;

constexpr RecordField kSgFields[] = {
    {"interface_id", FieldType::u8, 0},  {"dxfer_direction", FieldType::i32, 4},
    {"cmd_len", FieldType::u8, 8},       {"mx_sb_len", FieldType::u8, 9},
    {"iovec_count", FieldType::u16, 10}, {"dxfer_len", FieldType::u32, 12},
    {"timeout", FieldType::u32, 40},     {"flags", FieldType::u32, 44},
    {"status", FieldType::u8, 64},       {"sb_len_wr", FieldType::u8, 67},
    {"host_status", FieldType::u16, 68}, {"driver_status", FieldType::u16, 70},
    {"resid", FieldType::i32, 72},       {"duration", FieldType::u32, 76},
};
constexpr RecordField kScsiNumber[] = {{"value", FieldType::i32, 0}};
constexpr RecordField kScsiAddress[] = {{"value", FieldType::u64, 0}};

constexpr RequestRow kScsiRequests[] = {
    request<&ScsiFile::send>(SG_IO, "SG_IO", Direction::inout, kSgFields),
    request<&ScsiFile::version>(SG_GET_VERSION_NUM, "SG_GET_VERSION_NUM", Direction::out,
                                kScsiNumber),
    request<&ScsiFile::set_timeout>(SG_SET_TIMEOUT, "SG_SET_TIMEOUT", Direction::in, kScsiNumber),
    request<&ScsiFile::timeout>(SG_GET_TIMEOUT, "SG_GET_TIMEOUT"),
    request<&ScsiFile::reserved_size>(SG_GET_RESERVED_SIZE, "SG_GET_RESERVED_SIZE", Direction::out,
                                      kScsiNumber),
    request<&ScsiFile::set_reserved_size>(SG_SET_RESERVED_SIZE, "SG_SET_RESERVED_SIZE",
                                          Direction::in, kScsiNumber),
    request<&ScsiFile::is_emulated>(SG_EMULATED_HOST, "SG_EMULATED_HOST", Direction::out,
                                    kScsiNumber),
    request<&ScsiFile::bus>(kGetBusNumber, "SCSI_IOCTL_GET_BUS_NUMBER", Direction::out,
                            kScsiNumber),
    request<&ScsiFile::address>(kGetIdlun, "SCSI_IOCTL_GET_IDLUN", Direction::out, kScsiAddress),
};

} // namespace

// --- the node ---

ScsiNode::ScsiNode(Board& board, ScsiTarget& target, BlockView view)
    : BlockNode(std::move(view), kScsiRequests), board_(board), target_(target) {}

Outcome ScsiNode::open(const OpenCall& call, std::unique_ptr<File>& file) {
    file = opens_.open(std::static_pointer_cast<ScsiNode>(shared_from_this()), call.flags);
    return Outcome::done();
}

void ScsiNode::go_on() {
    for (ScsiFile* file : opens_) {
        file->changed();
    }
}

// --- one open ---

ScsiFile::ScsiFile(std::shared_ptr<ScsiNode> node, int flags)
    : BlockFile(node, flags), scsi_(std::move(node)), open_flags_(flags) {}

ScsiFile::~ScsiFile() {
    for (const auto& [id, waiting] : waiting_) {
        scsi_->board().cancel(waiting.timer);
    }
}

bool ScsiFile::writable() const {
    return (open_flags_ & O_ACCMODE) != O_RDONLY;
}

std::int64_t ScsiFile::time_for(const SgRecord& record) const {
    const std::int64_t asked = record.timeout * kMillisecond;
    const std::int64_t set = scsi_->timeout() * kTick;
    return std::max(asked > 0 ? asked : set > 0 ? set : kUsualTime, kShortestTime);
}

std::optional<ScsiAnswer> ScsiFile::ask(const SgRecord& record, const ScsiCommand& command,
                                        std::uint64_t id) {
    const auto waiting = waiting_.find(id);
    if (waiting != waiting_.end() && waiting->second.over) {
        ScsiAnswer answer;
        answer.host_status = ScsiAnswer::kTimeOut;
        return answer;
    }
    std::optional<ScsiAnswer> answer = scsi_->target().execute(command);
    if (!answer && waiting == waiting_.end()) {
        const std::int64_t now = scsi_->board().now();
        const std::uint64_t timer = scsi_->board().after(time_for(record), [this, id] {
            waiting_.at(id).over = true;
            changed();
        });
        waiting_.emplace(id, Waiting{now, timer});
    }
    return answer;
}

Outcome ScsiFile::send(SgRecord& record, RequestCall& call) {
    SgCommand command;
    if (const int error = command.prepare(record, call.caller, writable()); error != 0) {
        return Outcome::failed(error);
    }
    const std::optional<ScsiAnswer> answer = ask(record, command.command(), call.id);
    if (!answer) {
        return Outcome::wait();
    }
    record.duration = 0;
    if (const auto waited = waiting_.extract(call.id)) {
        scsi_->board().cancel(waited.mapped().timer);
        record.duration = static_cast<std::uint32_t>(
            (scsi_->board().now() - waited.mapped().since) / kMillisecond);
    }
    return command.finish(*answer, record, call.caller) ? Outcome::done() : Outcome::failed(EFAULT);
}

// --- read(2) and write(2) ---

namespace {

constexpr std::size_t kMostAtOnce = 0xFFFF; // sectors of a READ(10)

ScsiCommand plain_command(std::uint8_t code, std::uint64_t sector, std::size_t sectors) {
    ScsiCommand command;
    command.block = {code,
                     0,
                     static_cast<std::uint8_t>(sector >> 24),
                     static_cast<std::uint8_t>(sector >> 16),
                     static_cast<std::uint8_t>(sector >> 8),
                     static_cast<std::uint8_t>(sector),
                     0,
                     static_cast<std::uint8_t>(sectors >> 8),
                     static_cast<std::uint8_t>(sectors)};
    return command;
}

bool went_well(const ScsiAnswer& answer) {
    return answer.status == 0 && answer.host_status == 0;
}

} // namespace

Outcome ScsiFile::read(std::size_t size, std::uint64_t offset) {
    const std::uint64_t rest = view().size - std::min(offset, view().size);
    const std::size_t skipped = offset % BlockStore::kSector;
    const std::size_t sectors =
        std::min((skipped + std::min<std::uint64_t>(size, rest) + BlockStore::kSector - 1) /
                     BlockStore::kSector,
                 std::uint64_t{kMostAtOnce});
    if (rest == 0 || sectors == 0) {
        return Outcome::bytes({});
    }
    ScsiCommand command = plain_command(0x28, offset / BlockStore::kSector, sectors);
    command.direction = ScsiDirection::from_device;
    command.room = sectors * BlockStore::kSector;
    std::optional<ScsiAnswer> answer = scsi_->target().execute(command);
    if (!answer) {
        return Outcome::wait();
    }
    if (!went_well(*answer) || answer->data.size() < skipped) {
        return Outcome::failed(EIO);
    }
    Bytes& data = answer->data;
    data.erase(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(skipped));
    data.resize(std::min(data.size(), size));
    return Outcome::bytes(std::move(data));
}

// What is no whole sector the kernel would read first. Here it has to be.
Outcome ScsiFile::write(WriteCall& call) {
    if (view().read_only) {
        return Outcome::failed(EPERM);
    }
    const std::uint64_t rest = view().size - std::min(call.offset, view().size);
    const auto size = std::min<std::uint64_t>(
        {call.data.size(), rest, std::uint64_t{kMostAtOnce} * BlockStore::kSector});
    if (size == 0) {
        return call.data.empty() ? Outcome::done() : Outcome::failed(ENOSPC);
    }
    if (size % BlockStore::kSector != 0 || call.offset % BlockStore::kSector != 0) {
        return Outcome::failed(EINVAL);
    }
    ScsiCommand command =
        plain_command(0x2A, call.offset / BlockStore::kSector, size / BlockStore::kSector);
    command.direction = ScsiDirection::to_device;
    command.data = call.data.first(size);
    const std::optional<ScsiAnswer> answer = scsi_->target().execute(command);
    if (!answer) {
        return Outcome::wait();
    }
    return went_well(*answer) ? Outcome::done(static_cast<int>(size)) : Outcome::failed(EIO);
}

// --- the other requests ---

Outcome ScsiFile::version(std::int32_t& number) {
    number = kSgVersion;
    return Outcome::done();
}

Outcome ScsiFile::set_timeout(std::int32_t ticks) {
    scsi_->timeout() = ticks;
    return Outcome::done();
}

Outcome ScsiFile::timeout() {
    return Outcome::done(scsi_->timeout());
}

// A block device has no such reserve, but remembers what it was told.
Outcome ScsiFile::reserved_size(std::int32_t& size) {
    size = scsi_->reserve();
    return Outcome::done();
}

Outcome ScsiFile::set_reserved_size(std::int32_t size) {
    if (size < 0) {
        return Outcome::failed(EINVAL);
    }
    scsi_->reserve() = std::min(size, kMostReserve);
    return Outcome::done();
}

Outcome ScsiFile::is_emulated(std::int32_t& value) {
    value = 1;
    return Outcome::done();
}

Outcome ScsiFile::bus(std::int32_t& number) {
    number = 0;
    return Outcome::done();
}

// Host, channel, target and unit, a byte each, and the host's number again: all 0.
Outcome ScsiFile::address(std::uint64_t& value) {
    value = 0;
    return Outcome::done();
}

} // namespace vb
