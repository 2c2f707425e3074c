#include "host/hid_descriptor.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace vb::host {

namespace {

constexpr std::size_t kMostBits = std::size_t{8} * 65535; // of a report
constexpr std::size_t kDeepest = 64;

// An item's tag with its type, as in its prefix.
enum ItemTag : std::uint8_t {
    kInput = 0x80,
    kOutput = 0x90,
    kCollection = 0xA0,
    kFeature = 0xB0,
    kEndCollection = 0xC0,
    kUsagePage = 0x04,
    kLogicalMinimum = 0x14,
    kLogicalMaximum = 0x24,
    kReportSize = 0x74,
    kReportId = 0x84,
    kReportCount = 0x94,
    kPush = 0xA4,
    kPop = 0xB4,
    kUsage = 0x08,
    kUsageMinimum = 0x18,
    kUsageMaximum = 0x28,
};

struct Item {
    std::uint8_t tag = 0;
    std::size_t size = 0;
    std::uint32_t value = 0;

    std::int64_t number() const {
        switch (size) {
        case 1:
            return static_cast<std::int8_t>(value);
        case 2:
            return static_cast<std::int16_t>(value);
        default:
            return static_cast<std::int32_t>(value);
        }
    }
};

struct Globals {
    std::uint32_t page = 0;
    Item least;
    Item most;
    std::uint32_t size = 0;
    std::uint32_t count = 0;
    std::uint8_t report = 0;
};

class HidParser {
  public:
    explicit HidParser(ByteView bytes) : bytes_(bytes) {
        descriptor_.collections.push_back({0, 0, 0});
    }

    HidDescriptor parse() {
        try {
            while (place_ < bytes_.size()) {
                const std::size_t begin = place_;
                take_item(begin);
            }
            if (collection_ != 0) {
                throw std::runtime_error("a collection does not end");
            }
        } catch (const std::runtime_error& error) {
            descriptor_.error = error.what();
        }
        return std::move(descriptor_);
    }

  private:
    void take_item(std::size_t begin) {
        constexpr std::uint8_t kLongItem = 0xFE;
        const std::uint8_t prefix = bytes_[place_++];
        if (prefix == kLongItem) { // none is defined: they are passed over
            need(2, begin);
            const std::size_t size = bytes_[place_];
            place_ += 2;
            need(size, begin);
            place_ += size;
            return;
        }
        Item item;
        item.tag = prefix & 0xFCU;
        item.size = (prefix & 3U) == 3 ? 4 : prefix & 3U;
        need(item.size, begin);
        item.value = record_from<std::uint32_t>(bytes_.subspan(place_, item.size));
        place_ += item.size;
        take(item, begin);
    }

    void need(std::size_t size, std::size_t begin) const {
        if (bytes_.size() - place_ < size) {
            fail_at(begin, "the item is cut off");
        }
    }

    [[noreturn]] static void fail_at(std::size_t begin, const char* why) {
        throw std::runtime_error(fmt::format("byte {}: {}", begin, why));
    }

    void take(const Item& item, std::size_t begin) {
        constexpr std::uint8_t kTypeBits = 0x0C;
        switch (item.tag & kTypeBits) {
        case 0:
            take_main(item, begin);
            usages_.clear();
            minimum_.reset();
            break;
        case 4:
            take_global(item, begin);
            break;
        case 8:
            take_local(item, begin);
            break;
        default:
            fail_at(begin, "an item of a reserved type");
        }
    }

    void take_main(const Item& item, std::size_t begin) {
        switch (item.tag) {
        case kInput:
            add_field(ReportKind::input, item.value, begin);
            break;
        case kOutput:
            add_field(ReportKind::output, item.value, begin);
            break;
        case kFeature:
            add_field(ReportKind::feature, item.value, begin);
            break;
        case kCollection:
            open_collection(item.value, begin);
            break;
        case kEndCollection:
            if (collection_ == 0) {
                fail_at(begin, "no collection is left to end");
            }
            collection_ = descriptor_.collections[collection_].parent;
            --depth_;
            break;
        default: // of versions to come
            break;
        }
    }

    void open_collection(std::uint32_t type, std::size_t begin) {
        if (++depth_ > kDeepest) {
            fail_at(begin, "collections are too deep");
        }
        const std::vector<UsageRange> usages = whole_usages();
        descriptor_.collections.push_back({usages.empty() ? 0 : usages.front().first,
                                           static_cast<std::uint8_t>(type), collection_});
        collection_ = descriptor_.collections.size() - 1;
        if (depth_ == 1) {
            application_ = descriptor_.collections.back().usage;
        }
    }

    void take_global(const Item& item, std::size_t begin) {
        switch (item.tag) {
        case kUsagePage:
            globals_.page = item.value & 0xFFFFU;
            break;
        case kLogicalMinimum:
            globals_.least = item;
            break;
        case kLogicalMaximum:
            globals_.most = item;
            break;
        case kReportSize:
            globals_.size = item.value;
            break;
        case kReportCount:
            globals_.count = item.value;
            break;
        case kReportId:
            if (item.value == 0 || item.value > 0xFF) {
                fail_at(begin, "a report ID is from 1 to 255");
            }
            globals_.report = static_cast<std::uint8_t>(item.value);
            descriptor_.numbered = true;
            break;
        case kPush:
            if (pushed_.size() >= kDeepest) {
                fail_at(begin, "too much is pushed");
            }
            pushed_.push_back(globals_);
            break;
        case kPop:
            if (pushed_.empty()) {
                fail_at(begin, "nothing is left to pop");
            }
            globals_ = pushed_.back();
            pushed_.pop_back();
            break;
        default: // physical extents and units make no difference here
            break;
        }
    }

    // A usage is whole with four bytes. Otherwise it is of the page that counts at the main item.
    struct LocalUsage {
        UsageRange range;
        bool whole;
    };

    void take_local(const Item& item, std::size_t begin) {
        const bool whole = item.size == 4;
        if (item.tag == kUsage) {
            usages_.push_back({{item.value, item.value}, whole});
        } else if (item.tag == kUsageMinimum) {
            minimum_ = item;
        } else if (item.tag == kUsageMaximum) {
            if (!minimum_ || minimum_->value > item.value) {
                fail_at(begin, "a usage maximum without its minimum");
            }
            usages_.push_back({{minimum_->value, item.value}, whole});
            minimum_.reset();
        }
    }

    std::vector<UsageRange> whole_usages() const {
        std::vector<UsageRange> usages;
        for (const LocalUsage& each : usages_) {
            const Usage page = each.whole ? 0 : globals_.page << 16U;
            usages.push_back({page | each.range.first, page | each.range.last});
        }
        return usages;
    }

    void add_field(ReportKind kind, std::uint32_t flags, std::size_t begin) {
        constexpr std::uint32_t kLargestValue = 32;
        HidField field;
        field.kind = kind;
        field.report = globals_.report;
        field.size = globals_.size;
        field.count = globals_.count;
        field.constant = (flags & 1U) != 0;
        field.variable = (flags & 2U) != 0;
        field.relative = (flags & 4U) != 0;
        field.least = globals_.least.number();
        // A maximum below the minimum was meant without a sign, as many a device has it.
        field.most = globals_.most.number() < field.least ? std::int64_t{globals_.most.value}
                                                          : globals_.most.number();
        field.collection = collection_;
        field.application = application_;
        field.usages = whole_usages();
        if (!field.constant && field.size > kLargestValue) {
            fail_at(begin, "a value of more than 32 bits");
        }
        std::size_t& bits = descriptor_.bits[{kind, field.report}];
        const std::uint64_t more = std::uint64_t{field.size} * field.count;
        if (more > kMostBits - bits) {
            fail_at(begin, "the report is too long");
        }
        field.offset = bits;
        bits += more;
        if (more > 0) {
            descriptor_.fields.push_back(std::move(field));
        }
    }

    ByteView bytes_;
    std::size_t place_ = 0;
    HidDescriptor descriptor_;
    Globals globals_;
    std::vector<Globals> pushed_;
    std::vector<LocalUsage> usages_;
    std::optional<Item> minimum_;
    std::size_t collection_ = 0;
    std::size_t depth_ = 0;
    Usage application_ = 0;
};

} // namespace

Usage HidField::usage(std::uint32_t number, bool last_for_rest) const {
    for (const UsageRange& range : usages) {
        const Usage behind_first = range.last - range.first;
        if (number <= behind_first) {
            return range.first + number;
        }
        number -= behind_first + 1;
    }
    return last_for_rest && !usages.empty() ? usages.back().last : 0;
}

std::size_t HidDescriptor::report_length(ReportKind kind, std::uint8_t report) const {
    const auto found = bits.find({kind, report});
    return found == bits.end() ? 0 : (found->second + 7) / 8 + (numbered ? 1 : 0);
}

std::size_t HidDescriptor::longest(ReportKind kind) const {
    std::size_t length = 0;
    for (const auto& [report, unused] : bits) {
        if (report.first == kind) {
            length = std::max(length, report_length(kind, report.second));
        }
    }
    return length;
}

HidDescriptor parse_hid_descriptor(ByteView bytes) {
    return HidParser(bytes).parse();
}

} // namespace vb::host
