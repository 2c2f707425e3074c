#include "models/support/sg_record.h"

#include "models/support/block_store.h"
#include "models/support/scsi_filter.h"

#include <linux/capability.h>
#include <scsi/sg.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace vb {

namespace {

constexpr std::uint32_t kMostSgData = 65535 * BlockStore::kSector; // of a disk with LBA48
constexpr std::size_t kShortestCommand = 6;
constexpr std::size_t kMostVectors = 1024;
constexpr std::uint8_t kCheckCondition = 2;
constexpr std::uint16_t kDriverSense = 8;
// Nobody on a board has CAP_SYS_RAWIO, which would be one over the machine.
constexpr int kRawCommands = CAP_SYS_ADMIN;

bool is_input(std::int32_t direction) {
    return direction == SG_DXFER_FROM_DEV || direction == SG_DXFER_TO_FROM_DEV;
}

} // namespace

ScsiAnswer ScsiAnswer::check(std::uint8_t key, std::uint8_t code, std::uint8_t qualifier) {
    ScsiAnswer answer;
    answer.status = kCheckCondition;
    answer.sense = {0x70, 0, key, 0, 0, 0, 0, 10, 0, 0, 0, 0, code, qualifier, 0, 0, 0, 0};
    return answer;
}

// --- the caller's memory ---

int SgCommand::find_pieces(const SgRecord& record, const Caller& caller) {
    if (record.data_length == 0) {
        return 0;
    }
    if (record.vectors == 0) {
        pieces_.push_back({record.data, record.data_length});
        return 0;
    }
    if (record.vectors > kMostVectors) {
        return EINVAL;
    }
    pieces_.resize(record.vectors);
    if (!caller.read(record.data, {reinterpret_cast<std::uint8_t*>(pieces_.data()),
                                   pieces_.size() * sizeof(Piece)})) {
        return EFAULT;
    }
    std::uint64_t left = record.data_length;
    for (Piece& piece : pieces_) {
        if (piece.size > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            return EINVAL;
        }
        piece.size = std::min(piece.size, left);
        left -= piece.size;
    }
    return left < record.data_length ? 0 : EINVAL;
}

bool SgCommand::gather(const Caller& caller) {
    for (const Piece& piece : pieces_) {
        const std::size_t before = data_.size();
        data_.resize(before + piece.size);
        if (!caller.read(piece.address, std::span(data_).subspan(before))) {
            return false;
        }
    }
    return true;
}

bool SgCommand::scatter(const Caller& caller, ByteView data) const {
    for (const Piece& piece : pieces_) {
        const ByteView part = data.first(std::min<std::size_t>(piece.size, data.size()));
        if (!caller.write(piece.address, part)) {
            return false;
        }
        data = data.subspan(part.size());
    }
    return true;
}

// --- commands ---

int SgCommand::take_block(const SgRecord& record, const Caller& caller, bool writable) {
    std::array<std::uint8_t, kLongest> block{};
    if (record.command_length > block.size()) {
        return EINVAL;
    }
    if (record.command_length < kShortestCommand) {
        return EMSGSIZE;
    }
    if (!caller.read(record.command, std::span(block).first(record.command_length))) {
        return EFAULT;
    }
    std::copy_n(block.begin(), command_.block.size(), command_.block.begin());
    return scsi_allows(block[0], writable) || caller.may(kRawCommands) ? 0 : EPERM;
}

int SgCommand::prepare(const SgRecord& record, const Caller& caller, bool writable) {
    if (record.interface != 'S') {
        return EINVAL;
    }
    if (record.data_length > kMostSgData) {
        return EIO;
    }
    const bool input = is_input(record.direction);
    if (record.data_length > 0 && !input && record.direction != SG_DXFER_TO_DEV) {
        return EINVAL;
    }
    if (const int error = take_block(record, caller, writable); error != 0) {
        return error;
    }
    if (const int error = find_pieces(record, caller); error != 0) {
        return error;
    }
    // The kernel pins the pages before the command is sent, in both directions.
    if (!gather(caller)) {
        return EFAULT;
    }
    if (record.data_length > 0 && input) {
        command_.direction = ScsiDirection::from_device;
        command_.room = data_.size();
    } else if (record.data_length > 0) {
        command_.direction = ScsiDirection::to_device;
        command_.data = data_;
    }
    return 0;
}

bool SgCommand::finish(const ScsiAnswer& answer, SgRecord& record, const Caller& caller) const {
    const ByteView data = ByteView(answer.data).first(std::min(answer.data.size(), command_.room));
    const ByteView sense =
        ByteView(answer.sense).first(std::min<std::size_t>(record.sense_room, answer.sense.size()));
    record.status = answer.status;
    record.masked_status = static_cast<std::uint8_t>(answer.status >> 1);
    record.message_status = 0;
    record.host_status = answer.host_status;
    record.driver_status = answer.status == kCheckCondition ? kDriverSense : 0;
    record.info = answer.status != 0 || answer.host_status != 0 ? SG_INFO_CHECK : SG_INFO_OK;
    record.residue = 0;
    record.sense_written = 0;
    if (record.sense != 0 && !sense.empty()) {
        if (!caller.write(record.sense, sense)) {
            return false;
        }
        record.sense_written = static_cast<std::uint8_t>(sense.size());
    }
    return scatter(caller, data);
}

} // namespace vb
