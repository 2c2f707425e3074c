#include "host/hid_report.h"

namespace vb::host {

namespace {

std::uint32_t bits_at(ByteView bytes, std::size_t offset, std::uint32_t size) {
    std::uint32_t value = 0;
    for (std::uint32_t i = 0; i < size; ++i) {
        const std::size_t bit = offset + i;
        value |= (bytes[bit / 8] >> bit % 8 & 1U) << i;
    }
    return value;
}

std::int64_t value_at(const HidField& field, ByteView bytes, std::size_t offset) {
    const std::uint32_t value = bits_at(bytes, offset, field.size);
    const bool negative = field.least < 0 && (value >> (field.size - 1) & 1U) != 0;
    return std::int64_t{value} - (negative ? std::int64_t{1} << field.size : 0);
}

void add_values(const HidField& field, ByteView bytes, std::vector<HidValue>& values) {
    for (std::uint32_t i = 0; i < field.count; ++i) {
        const std::size_t offset = field.offset + std::size_t{i} * field.size;
        if (offset + field.size > bytes.size() * 8) {
            return;
        }
        const std::int64_t value = value_at(field, bytes, offset);
        if (field.variable) {
            values.push_back({&field, field.usage(i, true), value});
        } else if (value >= field.least && value <= field.most) { // else it names none
            const auto number = static_cast<std::uint32_t>(value - field.least);
            values.push_back({&field, field.usage(number, false), 1});
        }
    }
}

} // namespace

std::optional<HidReport> decode_report(const HidDescriptor& descriptor, ByteView bytes) {
    HidReport report;
    if (descriptor.numbered) {
        if (bytes.empty()) {
            return std::nullopt;
        }
        report.id = bytes[0];
        bytes = bytes.subspan(1);
    }
    if (!descriptor.bits.contains({ReportKind::input, report.id})) {
        return std::nullopt;
    }
    for (const HidField& field : descriptor.fields) {
        if (field.kind == ReportKind::input && field.report == report.id && !field.constant) {
            add_values(field, bytes, report.values);
        }
    }
    return report;
}

void put_value(const HidDescriptor& descriptor, const HidField& field, std::uint32_t number,
               std::uint32_t value, Bytes& report) {
    const std::size_t first =
        (descriptor.numbered ? 8 : 0) + field.offset + std::size_t{number} * field.size;
    for (std::uint32_t i = 0; i < field.size; ++i) {
        const std::size_t bit = first + i;
        if (bit / 8 < report.size()) {
            const auto mask = static_cast<std::uint8_t>(1U << bit % 8);
            std::uint8_t& byte = report[bit / 8];
            byte = static_cast<std::uint8_t>((value >> i & 1U) != 0 ? byte | mask : byte & ~mask);
        }
    }
}

} // namespace vb::host
