#pragma once
// Reports: values out of bits, and bits out of values.

#include "host/hid_descriptor.h"

namespace vb::host {

struct HidValue {
    const HidField* field;
    Usage usage;
    std::int64_t value; // of a usage chosen by its number: 1
};

struct HidReport {
    std::uint8_t id = 0;
    std::vector<HidValue> values; // as they stand there; they point into the descriptor
};

// What an input report says. What of it is cut off is not there; nothing where there is no such
// report.
std::optional<HidReport> decode_report(const HidDescriptor& descriptor, ByteView bytes);

// Sets bits of a report, which has its ID in front where the descriptor has IDs.
void put_value(const HidDescriptor& descriptor, const HidField& field, std::uint32_t number,
               std::uint32_t value, Bytes& report);

} // namespace vb::host
