#include "models/mcu/bridge_disk.h"

#include "models/mcu/packet.h"

#include <algorithm>

namespace vb::mcu {

namespace {

constexpr std::size_t kSector = BlockStore::kSector;
constexpr char kSerial[] = "00000000000000000001";
constexpr std::uint8_t kBusy = 8;

enum Operation : std::uint8_t {
    kTestUnitReady = 0x00,
    kRequestSense = 0x03,
    kInquiry = 0x12,
    kModeSense6 = 0x1A,
    kStartStop = 0x1B,
    kReadCapacity10 = 0x25,
    kRead10 = 0x28,
    kWrite10 = 0x2A,
    kVerify10 = 0x2F,
    kSynchronize10 = 0x35,
    kServiceActionIn16 = 0x9E,
    kReportLuns = 0xA0
};

std::uint32_t big_endian(ByteView bytes) {
    std::uint32_t number = 0;
    for (const std::uint8_t byte : bytes) {
        number = number << 8 | byte;
    }
    return number;
}

void append_big_endian(Bytes& bytes, std::uint32_t number) {
    for (const unsigned shift : {24U, 16U, 8U, 0U}) {
        bytes.push_back(static_cast<std::uint8_t>(number >> shift));
    }
}

void append_text(Bytes& bytes, std::string_view text) {
    bytes.insert(bytes.end(), text.begin(), text.end());
}

ScsiAnswer illegal(std::uint8_t code) {
    return ScsiAnswer::check(5, code);
}

// As much of the data as the command has asked for.
ScsiAnswer give(Bytes data, std::size_t asked) {
    ScsiAnswer answer;
    data.resize(std::min(data.size(), asked));
    answer.data = std::move(data);
    return answer;
}

ScsiAnswer inquiry(ByteView block) {
    const std::size_t asked = big_endian(block.subspan(3, 2));
    const bool is_vital = (block[1] & 1U) != 0;
    Bytes data;
    if (!is_vital && block[2] == 0) {
        data = {0x00, 0x00, 0x05, 0x02, 0x5B, 0x00, 0x00, 0x02};
        append_text(data, "ATA     WCH SD to SATA T.0  ");
        data.resize(58);
        append_text(data, {"\x00\x60\x03\x20\x03\x00", 6}); // SAM-3, SBC-2, SPC-3
        data.resize(96);
    } else if (is_vital && block[2] == 0x00) {
        data = {0, 0x00, 0, 2, 0x00, 0x80};
    } else if (is_vital && block[2] == 0x80) {
        data = {0, 0x80, 0, sizeof kSerial - 1};
        append_text(data, kSerial);
    } else {
        return illegal(0x24);
    }
    return give(std::move(data), asked);
}

ScsiAnswer capacity(ByteView block) {
    const bool is_long = block[0] == kServiceActionIn16;
    if (is_long && (block[1] & 0x1FU) != 0x10) {
        return illegal(0x24);
    }
    Bytes data(is_long ? 4 : 0);
    append_big_endian(data, BridgeDisk::kSectors - 1);
    append_big_endian(data, kSector);
    data.resize(is_long ? 32 : 8);
    return give(std::move(data), is_long ? big_endian(block.subspan(10, 4)) : 8);
}

// What the chip answers by itself.
ScsiAnswer answer_alone(ByteView block) {
    switch (block[0]) {
    case kTestUnitReady:
    case kStartStop:
    case kVerify10:
    case kSynchronize10:
        return {};
    case kRequestSense:
        return give(ScsiAnswer::check(0, 0).sense, block[4]);
    case kInquiry:
        return inquiry(block);
    case kModeSense6:
        return give({3, 0, 0, 0}, block[4]);
    case kReadCapacity10:
    case kServiceActionIn16:
        return capacity(block);
    case kReportLuns:
        return give({0, 0, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
                    big_endian(block.subspan(6, 4)));
    default:
        return illegal(0x20);
    }
}

ScsiAnswer host_error() {
    ScsiAnswer answer;
    answer.host_status = ScsiAnswer::kHostError;
    return answer;
}

} // namespace

std::optional<ScsiAnswer> BridgeDisk::execute(const ScsiCommand& command) {
    const ByteView block = command.block;
    if (block[0] != kRead10 && block[0] != kWrite10) {
        return answer_alone(block);
    }
    const Range range{big_endian(block.subspan(2, 4)), big_endian(block.subspan(7, 2)) * kSector};
    if (range.first >= kSectors || range.bytes > (kSectors - range.first) * kSector) {
        return illegal(0x21);
    }
    if (range.bytes == 0) {
        return ScsiAnswer{};
    }
    return block[0] == kRead10 ? read(range, command) : write(range, command);
}

// Of a command to block 0: what it fails with.
std::optional<ScsiAnswer> BridgeDisk::failed() {
    if (!mailbox_.ready()) {
        return ScsiAnswer::check(2, 0x04);
    }
    if (failures_ == 0) {
        return std::nullopt;
    }
    --failures_;
    ScsiAnswer answer;
    switch (failure_) {
    case Failure::busy:
        answer.status = kBusy;
        return answer;
    case Failure::check:
        return ScsiAnswer::check(0xB, 0x00);
    case Failure::host:
        return host_error();
    case Failure::timeout:
        answer.host_status = ScsiAnswer::kTimeOut;
        break;
    }
    return answer;
}

std::optional<ScsiAnswer> BridgeDisk::read(const Range& range, const ScsiCommand& command) {
    if (command.direction != ScsiDirection::from_device) {
        return host_error();
    }
    if (range.first != 0) {
        return give(Bytes(range.bytes), range.bytes);
    }
    if (auto failure = failed()) {
        return failure;
    }
    std::optional<Bytes> fetched = mailbox_.fetch();
    if (!fetched) {
        return std::nullopt;
    }
    fetched->resize(range.bytes);
    return give(std::move(*fetched), range.bytes);
}

std::optional<ScsiAnswer> BridgeDisk::write(const Range& range, const ScsiCommand& command) {
    if (command.data.size() < range.bytes) {
        return host_error();
    }
    if (range.first == 0) {
        if (auto failure = failed()) {
            return failure;
        }
        if (!mailbox_.take(command.data.first(std::min(range.bytes, kBlock)))) {
            return std::nullopt;
        }
    }
    ScsiAnswer answer;
    answer.taken = range.bytes;
    return answer;
}

} // namespace vb::mcu
