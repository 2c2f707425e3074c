#include "bridge_chip/reports.h"

#include <algorithm>
#include <array>

namespace bridge {

namespace {

enum Report : std::uint8_t {
    kLineSettings = 0x02,
    kLineLevels = 0x03,
    kLineSet = 0x04,
    kVersion = 0x05,
    kSmbusSettings = 0x06,
    kRead = 0x10,
    kWriteRead = 0x11,
    kFetch = 0x12,
    kFetched = 0x13,
    kWrite = 0x14,
    kAskStatus = 0x15,
    kStatus = 0x16,
    kCancel = 0x17,
    kLock = 0x20,
    kUsbSettings = 0x21,
    kManufacturer = 0x22,
    kProduct = 0x23,
    kSerial = 0x24,
};

enum Kind : std::uint8_t { kInput = 0x81, kOutput = 0x91, kFeature = 0xB1 };

struct ReportRow {
    Report number;
    Kind kind;
};

constexpr ReportRow kReports[] = {
    {kLineSettings, kFeature}, {kLineLevels, kFeature},    {kLineSet, kFeature},
    {kVersion, kFeature},      {kSmbusSettings, kFeature}, {kRead, kOutput},
    {kWriteRead, kOutput},     {kFetch, kOutput},          {kFetched, kInput},
    {kWrite, kOutput},         {kAskStatus, kOutput},      {kStatus, kInput},
    {kCancel, kOutput},        {kLock, kFeature},          {kUsbSettings, kFeature},
    {kManufacturer, kFeature}, {kProduct, kFeature},       {kSerial, kFeature},
};

constexpr std::size_t kReportSize = 64; // with its number
constexpr std::size_t kMostFetched = 61;
constexpr std::size_t kMostRead = 512;
constexpr std::size_t kMostWritten = 61;
constexpr std::size_t kMostNumber = 16; // bytes written in front of a read

enum State : std::uint8_t { kIdle = 0, kComplete = 2, kFailed = 3 };
enum Why : std::uint8_t { kNobody = 0, kDone = 5 };

std::size_t big_endian(ByteView bytes) {
    return static_cast<std::size_t>(bytes[0]) << 8 | bytes[1];
}

void put_big_endian(Bytes& bytes, std::size_t value) {
    bytes.push_back(static_cast<std::uint8_t>(value >> 8));
    bytes.push_back(static_cast<std::uint8_t>(value));
}

// As a USB string descriptor.
Bytes string_report(Report number, std::string_view text) {
    constexpr std::uint8_t kStringDescriptor = 3;
    Bytes report{number, static_cast<std::uint8_t>(2 + 2 * text.size()), kStringDescriptor};
    for (const char character : text) {
        report.push_back(static_cast<std::uint8_t>(character));
        report.push_back(0);
    }
    return report;
}

} // namespace

Bytes report_descriptor() {
    // Usage page and usage of the vendor's own, an application; bytes from 0 to 255.
    Bytes text{0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x15, 0x00, 0x26, 0xFF, 0x00, 0x75, 0x08};
    for (const ReportRow& row : kReports) {
        const std::array<std::uint8_t, 8> report{0x85, row.number, 0x95,     kReportSize - 1,
                                                 0x09, 0x01,       row.kind, 0x02};
        text.insert(text.end(), report.begin(), report.end());
    }
    text.push_back(0xC0);
    return text;
}

Bytes Chip::default_smbus_settings() {
    // 100 kHz, own address 1, no reading ahead, no time-outs, no bound for retries.
    return {kSmbusSettings, 0, 0x01, 0x86, 0xA0, 0x02, 0, 0, 0, 0, 0, 0, 0, 0};
}

// --- feature reports ---

Bytes Chip::feature(std::uint8_t number) {
    switch (number) {
    case kLineSettings:
        return {number, lines_.outputs, line_settings_[0], line_settings_[1], line_settings_[2]};
    case kLineLevels:
        ++looks_;
        return {number, lines_.levels()};
    case kVersion:
        return {number, 0x0C, 0x02}; // the first version has no repeated start
    case kSmbusSettings:
        return smbus_settings_;
    case kLock:
        return {number, 0}; // all that can be programmed once has been
    case kUsbSettings:
        return {number, 0xC4, 0x10, 0x90, 0xEA, 0x32, 0, 1, 0, 0};
    case kManufacturer:
        return string_report(kManufacturer, "Guest");
    case kProduct:
        return string_report(kProduct, "Bridge chip");
    case kSerial:
        return string_report(kSerial, "1");
    default:
        return {};
    }
}

bool Chip::set_feature(ByteView report) {
    if (report.empty()) {
        return false;
    }
    if (report[0] == kLineSettings && report.size() == 5) {
        lines_.outputs = report[1];
        line_settings_.assign(report.begin() + 2, report.end());
        return true;
    }
    if (report[0] == kLineSet && report.size() == 3) {
        lines_.driven =
            static_cast<std::uint8_t>((lines_.driven & ~report[2]) | (report[1] & report[2]));
        return true;
    }
    if (report[0] == kSmbusSettings && report.size() == smbus_settings_.size()) {
        smbus_settings_.assign(report.begin(), report.end());
        return true;
    }
    return false;
}

// --- transfers ---

void Chip::end(bool acknowledged, std::size_t count) {
    state_ = acknowledged ? kComplete : kFailed;
    why_ = acknowledged ? kDone : kNobody;
    transferred_ = count;
}

void Chip::begin_read(unsigned address, std::size_t count) {
    auto bytes = bus_.read(address, count);
    end(bytes.has_value(), count);
    unread_ = std::move(bytes).value_or(Bytes{});
}

std::optional<Bytes> Chip::take(ByteView report) {
    const std::uint8_t number = report.empty() ? std::uint8_t{0} : report[0];
    const unsigned address = report.size() < 2 ? 0U : report[1] >> 1U;
    const auto length = [&](std::size_t at) { return big_endian(report.subspan(at, 2)); };
    if (number == kRead && report.size() >= 4) {
        begin_read(address, std::min(length(2), kMostRead));
    } else if (number == kWriteRead && report.size() >= 5) {
        const std::size_t written =
            std::min<std::size_t>({report[4], kMostNumber, report.size() - 5});
        if (bus_.write(address, report.subspan(5, written))) {
            begin_read(address, std::min(length(2), kMostRead));
        } else {
            end(false, 0);
        }
    } else if (number == kWrite && report.size() >= 3) {
        const std::size_t written =
            std::min<std::size_t>({report[2], kMostWritten, report.size() - 3});
        end(bus_.write(address, report.subspan(3, written)), written);
    } else if (number == kAskStatus) {
        return status();
    } else if (number == kFetch && report.size() >= 3) {
        return next_read(length(1));
    } else if (number == kCancel) {
        unread_.clear();
        state_ = kIdle;
    }
    return std::nullopt;
}

Bytes Chip::status() const {
    Bytes report{kStatus, state_, why_};
    put_big_endian(report, 0); // retries
    put_big_endian(report, transferred_);
    report.resize(kReportSize);
    return report;
}

Bytes Chip::next_read(std::size_t most) {
    const std::size_t count = std::min({most, kMostFetched, unread_.size()});
    const auto end_of_part = unread_.begin() + static_cast<std::ptrdiff_t>(count);
    Bytes report{kFetched, state_, static_cast<std::uint8_t>(count)};
    report.insert(report.end(), unread_.begin(), end_of_part);
    report.resize(kReportSize);
    unread_.erase(unread_.begin(), end_of_part);
    return report;
}

} // namespace bridge
