#include "host/scsi_host.h"

#include <fmt/format.h>

namespace vb::host {

namespace {

constexpr std::uint8_t kInquiryLength = 36;
constexpr std::uint8_t kSenseLength = 18;
constexpr std::uint8_t kModeLength = 192;
constexpr std::uint8_t kCapacityLength = 8;

std::uint8_t byte_of(std::uint32_t value, unsigned shift) {
    return static_cast<std::uint8_t>(value >> shift);
}

Bytes block_command(std::uint8_t operation, std::uint32_t block, std::uint16_t count) {
    return {operation,         0, byte_of(block, 24), byte_of(block, 16), byte_of(block, 8),
            byte_of(block, 0), 0, byte_of(count, 8),  byte_of(count, 0),  0};
}

std::optional<Sense> sense_of(const BulkOutcome& outcome) {
    if (outcome.kind != BulkOutcome::Kind::passed || outcome.data.size() < 14) {
        return std::nullopt;
    }
    return Sense{static_cast<std::uint8_t>(outcome.data[2] & 0x0FU), outcome.data[12],
                 outcome.data[13]};
}

} // namespace

BulkCommand inquiry() {
    return {{0x12, 0, 0, 0, kInquiryLength, 0}, true, kInquiryLength};
}

BulkCommand test_unit_ready() {
    return {Bytes(6), true, 0};
}

BulkCommand request_sense() {
    return {{0x03, 0, 0, 0, kSenseLength, 0}, true, kSenseLength};
}

BulkCommand read_capacity() {
    return {block_command(0x25, 0, 0), true, kCapacityLength};
}

BulkCommand mode_sense() {
    constexpr std::uint8_t kAllPages = 0x3F;
    return {{0x1A, 0, kAllPages, 0, kModeLength, 0}, true, kModeLength};
}

BulkCommand mode_select(Bytes parameters) {
    const auto length = static_cast<std::uint8_t>(parameters.size());
    return {{0x15, 0x10, 0, 0, length, 0}, false, length, std::move(parameters)};
}

BulkCommand read_blocks(std::uint32_t block, std::uint16_t count, std::uint32_t block_size) {
    return {block_command(0x28, block, count), true, count * block_size};
}

BulkCommand write_blocks(std::uint32_t block, std::uint16_t count, Bytes data) {
    const auto length = static_cast<std::uint32_t>(data.size());
    return {block_command(0x2A, block, count), false, length, std::move(data)};
}

std::string ScsiOutcome::in_words() const {
    std::string words = bulk.in_words();
    if (!bulk.why.empty()) {
        words += fmt::format(" ({})", bulk.why);
    }
    if (sense) {
        words +=
            fmt::format(", sense {:x}/{:02x}/{:02x}", sense->key, sense->code, sense->qualifier);
    }
    return words;
}

Json ScsiOutcome::describe() const {
    Json described = {
        {"status", bulk.in_words()}, {"length", bulk.data.size()}, {"residue", bulk.residue}};
    if (!bulk.data.empty()) {
        described["data"] = to_hex(bulk.data);
    }
    if (!bulk.why.empty()) {
        described["why"] = bulk.why;
    }
    if (sense) {
        described["sense"] =
            fmt::format("{:x}/{:02x}/{:02x}", sense->key, sense->code, sense->qualifier);
    }
    return described;
}

void ScsiHost::run(BulkCommand command, const Then& then) {
    bulk_.run(std::move(command), [this, then](const BulkOutcome& outcome) {
        if (outcome.kind != BulkOutcome::Kind::failed) {
            then({outcome, std::nullopt});
            return;
        }
        bulk_.run(request_sense(), [then, outcome](const BulkOutcome& answer) {
            then({outcome, sense_of(answer)});
        });
    });
}

} // namespace vb::host
