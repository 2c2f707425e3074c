#include "models/mcu/bridge_disk.h"

#include "models/mcu/packet.h"

#include <algorithm>

namespace vb::mcu {

namespace {

constexpr std::size_t kSector = BlockStore::kSector;
constexpr char kSerial[] = "00000000000000000001";
constexpr std::uint8_t kBusy = 8;

constexpr char kModel[] = "WCH SD to SATA T"; // what an ATA disk's 40 characters begin with
constexpr std::size_t kPage = 4096;           // libata's buffer: the rest of it is zeros

enum Operation : std::uint8_t {
    kTestUnitReady = 0x00,
    kRezero = 0x01,
    kRequestSense = 0x03,
    kRead6 = 0x08,
    kWrite6 = 0x0A,
    kSeek6 = 0x0B,
    kInquiry = 0x12,
    kModeSense6 = 0x1A,
    kStartStop = 0x1B,
    kSendDiagnostic = 0x1D,
    kReadCapacity10 = 0x25,
    kRead10 = 0x28,
    kWrite10 = 0x2A,
    kSeek10 = 0x2B,
    kVerify10 = 0x2F,
    kSynchronize10 = 0x35,
    kModeSense10 = 0x5A,
    kRead16 = 0x88,
    kWrite16 = 0x8A,
    kVerify16 = 0x8F,
    kSynchronize16 = 0x91,
    kServiceActionIn16 = 0x9E,
    kReportLuns = 0xA0,
    kMaintenanceIn = 0xA3
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

// "Invalid field in CDB", and which byte of it that is.
ScsiAnswer invalid_field(std::uint8_t byte) {
    ScsiAnswer answer = illegal(0x24);
    answer.sense[7] = 18; // that many follow
    answer.sense.resize(26);
    answer.sense[15] = 0xC0;
    answer.sense[17] = byte;
    return answer;
}

// libata fills the caller's room, whatever the command has asked for.
ScsiAnswer give(Bytes data, std::size_t size = kPage) {
    ScsiAnswer answer;
    data.resize(size);
    answer.data = std::move(data);
    return answer;
}

// Serial number, and what SAT makes of model and serial number.
Bytes identification() {
    Bytes data = {0, 0x83, 0, 96, 2, 0, 0, sizeof kSerial - 1};
    append_text(data, kSerial);
    data.insert(data.end(), {2, 1, 0, 68});
    append_text(data, "ATA     ");
    append_text(data, kModel);
    data.resize(80, ' ');
    append_text(data, kSerial);
    return data;
}

ScsiAnswer vital_page(std::uint8_t page) {
    switch (page) {
    case 0x00:
        return give({0, 0x00, 0, 8, 0x00, 0x80, 0x83, 0x89, 0xB0, 0xB1, 0xB2, 0xB9});
    case 0x80: {
        Bytes data = {0, 0x80, 0, sizeof kSerial - 1};
        append_text(data, kSerial);
        return give(std::move(data));
    }
    case 0x83:
        return give(identification());
    case 0xB0: // a sector at a time
        return give({0, 0xB0, 0, 0x3C, 0, 0, 0, 1});
    case 0xB1:
        return give({0, 0xB1, 0, 0x3C});
    case 0xB2:
        return give({0, 0xB2, 0, 4, 0, 0x40});
    default:
        return invalid_field(2);
    }
}

ScsiAnswer inquiry(ByteView block) {
    if ((block[1] & 2U) != 0) {
        return invalid_field(1);
    }
    if ((block[1] & 1U) != 0) {
        return vital_page(block[2]);
    }
    Bytes data = {0x00, 0x00, 0x05, 0x02, 0x5B, 0x00, 0x00, 0x02};
    append_text(data, "ATA     ");
    append_text(data, kModel);
    append_text(data, ".0  ");
    data.resize(58);
    append_text(data, {"\x00\x60\x03\x20\x03\x00", 6}); // SAM-3, SBC-2, SPC-3
    return give(std::move(data));
}

// Error recovery, cache (which is on) and control; what can be changed are two bits.
Bytes mode_pages(std::uint8_t page, bool changeable) {
    constexpr std::uint8_t kAll = 0x3F;
    constexpr std::uint8_t kNoReadAhead = 0x20;
    Bytes pages;
    const auto add = [&](Bytes each, std::uint8_t bits_of_third) {
        if (page == each[0] || page == kAll) {
            if (changeable) {
                std::fill(each.begin() + 2, each.end(), std::uint8_t{0});
            }
            each[2] |= bits_of_third;
            pages.insert(pages.end(), each.begin(), each.end());
        }
    };
    add({0x01, 10, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 0);
    add({0x08, 18, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, kNoReadAhead, 0, 0, 0, 0, 0, 0, 0}, 4);
    add({0x0A, 10, 2, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0, 30}, changeable ? 4 : 0);
    return pages;
}

ScsiAnswer mode_sense(ByteView block) {
    constexpr std::uint8_t kAllSubpages = 0xFF;
    const unsigned control = block[2] >> 6;
    if (control == 3) {
        return illegal(0x39);
    }
    if (block[3] != 0 && block[3] != kAllSubpages) {
        return invalid_field(3);
    }
    const Bytes pages = mode_pages(block[2] & 0x3F, control == 1);
    if (pages.empty()) {
        return invalid_field(2);
    }
    const bool is_short = block[0] == kModeSense6;
    const bool has_size = (block[1] & 8U) == 0;
    Bytes data(is_short ? 4 : 8);
    if (has_size) {
        data.back() = 8;
        data.insert(data.end(), {0, 0, 0, 0, 0, 0, 2, 0});
    }
    data.insert(data.end(), pages.begin(), pages.end());
    data[is_short ? 0 : 1] = static_cast<std::uint8_t>(data.size() - (is_short ? 1 : 2));
    return give(std::move(data));
}

ScsiAnswer capacity(ByteView block) {
    const bool is_long = block[0] == kServiceActionIn16;
    if (is_long && (block[1] & 0x1FU) != 0x10) {
        return invalid_field(1);
    }
    Bytes data(is_long ? 4 : 0);
    append_big_endian(data, BridgeDisk::kSectors - 1);
    append_big_endian(data, kSector);
    return give(std::move(data));
}

// What the kernel answers of itself, or the chip whatever the MCU does.
ScsiAnswer answer_alone(ByteView block) {
    switch (block[0]) {
    case kTestUnitReady:
    case kRezero:
    case kSeek6:
    case kStartStop:
    case kSeek10:
    case kSynchronize10:
    case kSynchronize16:
        return {};
    case kRequestSense: // nothing to tell is told by the sense of this one
        return ScsiAnswer::check(0, 0);
    case kInquiry:
        return inquiry(block);
    case kModeSense6:
    case kModeSense10:
        return mode_sense(block);
    case kSendDiagnostic:
        return (block[1] & ~8U) == 4 && block[3] == 0 && block[4] == 0 ? ScsiAnswer{}
                                                                       : invalid_field(1);
    case kReadCapacity10:
    case kServiceActionIn16:
        return capacity(block);
    case kReportLuns:
        return give({0, 0, 0, 8});
    case kMaintenanceIn:
        return (block[1] & 0x1FU) == 0x0C ? give({}) : invalid_field(1);
    default:
        return illegal(0x20);
    }
}

ScsiAnswer host_error() {
    ScsiAnswer answer;
    answer.host_status = ScsiAnswer::kHostError;
    return answer;
}

// One that reads, writes or verifies sectors.
struct BlockCommand {
    enum class Kind { read, write, verify };
    Kind kind;
    std::uint64_t first;
    std::uint64_t sectors;
};

std::optional<BlockCommand> block_command(ByteView block) {
    using Kind = BlockCommand::Kind;
    const auto of_10 = [&](Kind kind) {
        return BlockCommand{kind, big_endian(block.subspan(2, 4)), big_endian(block.subspan(7, 2))};
    };
    const auto of_16 = [&](Kind kind) {
        const std::uint64_t high = big_endian(block.subspan(2, 4));
        return BlockCommand{kind, high << 32 | big_endian(block.subspan(6, 4)),
                            big_endian(block.subspan(10, 4))};
    };
    const auto of_6 = [&](Kind kind) {
        return BlockCommand{kind, big_endian(block.subspan(1, 3)) & 0x1FFFFF,
                            block[4] == 0 ? 256U : block[4]};
    };
    switch (block[0]) {
    case kRead6:
        return of_6(Kind::read);
    case kRead10:
        return of_10(Kind::read);
    case kRead16:
        return of_16(Kind::read);
    case kWrite6:
        return of_6(Kind::write);
    case kWrite10:
        return of_10(Kind::write);
    case kWrite16:
        return of_16(Kind::write);
    case kVerify10:
        return of_10(Kind::verify);
    case kVerify16:
        return of_16(Kind::verify);
    default:
        return std::nullopt;
    }
}

} // namespace

std::optional<ScsiAnswer> BridgeDisk::execute(const ScsiCommand& command) {
    using Kind = BlockCommand::Kind;
    const std::optional<BlockCommand> asked = block_command(command.block);
    if (!asked) {
        return answer_alone(command.block);
    }
    const std::size_t bytes = asked->sectors * kSector;
    if (asked->kind != Kind::verify && bytes > std::max(command.data.size(), command.room)) {
        return invalid_field(0);
    }
    if (bytes == 0) {
        return ScsiAnswer{};
    }
    if (asked->first >= kSectors || asked->sectors > kSectors - asked->first) {
        return illegal(0x21);
    }
    const Range range{static_cast<std::uint32_t>(asked->first), bytes};
    switch (asked->kind) {
    case Kind::read:
        return read(range, command);
    case Kind::write:
        return write(range, command);
    case Kind::verify:
        break;
    }
    return ScsiAnswer{};
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
    if (command.direction != ScsiDirection::to_device) {
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
    return ScsiAnswer{};
}

} // namespace vb::mcu
