#pragma once
// A report descriptor of HID 1.11, parsed: what stands where in each report.

#include "core/bytes.h"

#include <map>

namespace vb::host {

enum class ReportKind : std::uint8_t { input = 1, output = 2, feature = 3 };

// Page in the upper half.
using Usage = std::uint32_t;

struct UsageRange {
    Usage first;
    Usage last;
};

// What one main item describes: `count` values of `size` bits each, one behind the other.
struct HidField {
    ReportKind kind = ReportKind::input;
    std::uint8_t report = 0;
    std::size_t offset = 0; // in bits, behind the report ID
    std::uint32_t size = 0;
    std::uint32_t count = 0;
    std::int64_t least = 0;
    std::int64_t most = 0;
    bool constant = false;
    bool variable = false; // else each value is the number of a usage
    bool relative = false;
    std::vector<UsageRange> usages;
    std::size_t collection = 0; // the innermost one
    Usage application = 0;      // of the collection around all

    // The usage of a number, from 0; the last one counts for all that are left over if wanted.
    Usage usage(std::uint32_t number, bool last_for_rest) const;
};

struct HidCollection {
    Usage usage;
    std::uint8_t type;
    std::size_t parent; // itself: it has none
};

struct HidDescriptor {
    std::vector<HidField> fields;
    std::vector<HidCollection> collections;                          // [0] stands for all
    std::map<std::pair<ReportKind, std::uint8_t>, std::size_t> bits; // of each report
    bool numbered = false;                                           // reports begin with their ID
    std::string error; // why the rest was not read; empty: all was

    // In bytes, with the report ID.
    std::size_t report_length(ReportKind kind, std::uint8_t report) const;
    std::size_t longest(ReportKind kind) const;
};

HidDescriptor parse_hid_descriptor(ByteView bytes);

} // namespace vb::host
