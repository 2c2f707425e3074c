#include "models/stick/partition_table.h"

#include <zlib.h>

#include <algorithm>
#include <array>

namespace vb::stick {

namespace {

constexpr std::uint64_t kSector = BlockStore::kSector;
constexpr std::size_t kTableAt = 446;
constexpr std::size_t kSlots = 4;
constexpr unsigned kMostLogical = 100; // a chain may lead in a circle
constexpr std::uint8_t kProtective = 0xEE;

// One of the four entries of an MBR, or of a link in the chain of logical partitions.
struct Slot {
    std::uint8_t flag;
    std::uint8_t type;
    std::uint64_t start; // sectors
    std::uint64_t count;

    bool extended() const { return type == 0x05 || type == 0x0F || type == 0x85; }
};

struct __attribute__((packed)) SlotRecord {
    std::uint8_t flag;
    std::array<std::uint8_t, 3> first;
    std::uint8_t type;
    std::array<std::uint8_t, 3> last;
    std::uint32_t start;
    std::uint32_t count;
};
static_assert(sizeof(SlotRecord) == 16);

struct __attribute__((packed)) GptHeader {
    std::array<char, 8> signature;
    std::uint32_t revision;
    std::uint32_t size;
    std::uint32_t checksum;
    std::uint32_t reserved;
    std::uint64_t place;
    std::uint64_t other_place;
    std::uint64_t first_usable;
    std::uint64_t last_usable;
    std::array<std::uint8_t, 16> disk;
    std::uint64_t entries;
    std::uint32_t count;
    std::uint32_t entry_size;
    std::uint32_t entries_checksum;
};
static_assert(sizeof(GptHeader) == 92);

struct __attribute__((packed)) GptEntry {
    std::array<std::uint8_t, 16> type;
    std::array<std::uint8_t, 16> id;
    std::uint64_t first;
    std::uint64_t last;
    std::uint64_t attributes;
    std::array<std::uint16_t, 36> name;
};
static_assert(sizeof(GptEntry) == 128);
constexpr std::uint32_t kMostEntries = 256;

// Empty where the disk has no such sector.
Bytes sector_of(const BlockDisk& disk, std::uint64_t number) {
    if (number >= disk.size() / kSector) {
        return {};
    }
    return disk.read(kSector, number * kSector).data;
}

bool signed_table(const Bytes& sector) {
    return sector.size() == kSector && sector[510] == 0x55 && sector[511] == 0xAA;
}

std::array<Slot, kSlots> slots_of(const Bytes& sector) {
    std::array<Slot, kSlots> slots{};
    for (std::size_t i = 0; i < kSlots; ++i) {
        const auto record = record_from<SlotRecord>(
            ByteView(sector).subspan(kTableAt + i * sizeof(SlotRecord), sizeof(SlotRecord)));
        slots[i] = {record.flag, record.type, record.start, record.count};
    }
    return slots;
}

class Finder {
  public:
    explicit Finder(const BlockDisk& disk) : disk_(disk), sectors_(disk.size() / kSector) {}

    std::vector<Partition> find();

  private:
    void add(unsigned number, std::uint64_t start, std::uint64_t count, std::string name = "");
    bool find_gpt();
    void find_logical(std::uint64_t first);

    const BlockDisk& disk_;
    std::uint64_t sectors_;
    std::vector<Partition> found_;
};

void Finder::add(unsigned number, std::uint64_t start, std::uint64_t count, std::string name) {
    if (count > 0 && start < sectors_) {
        found_.push_back({number, start * kSector, std::min(count, sectors_ - start) * kSector,
                          std::move(name)});
    }
}

std::string name_of_entry(const GptEntry& entry) {
    const auto name = entry.name; // a copy, for the record is not aligned
    std::string text;
    for (const std::uint16_t unit : name) {
        if (unit == 0) {
            break;
        }
        text += unit >= ' ' && unit < 0x7F ? static_cast<char>(unit) : '!';
    }
    return text;
}

bool Finder::find_gpt() {
    const Bytes sector = sector_of(disk_, 1);
    if (sector.empty()) {
        return false;
    }
    auto header = record_from<GptHeader>(sector);
    const std::uint32_t checksum = header.checksum;
    if (std::string_view(header.signature.data(), header.signature.size()) != "EFI PART" ||
        header.size < sizeof header || header.size > kSector ||
        header.entry_size != sizeof(GptEntry) || header.place != 1) {
        return false;
    }
    Bytes checked(sector.begin(), sector.begin() + header.size);
    std::fill_n(checked.begin() + 16, sizeof checksum, std::uint8_t{0});
    if (crc32(0, checked.data(), static_cast<uInt>(checked.size())) != checksum) {
        return false;
    }
    const std::uint32_t count = std::min<std::uint32_t>(header.count, kMostEntries);
    if (header.entries >= sectors_) {
        return false;
    }
    const Bytes entries =
        disk_.read(std::size_t{count} * sizeof(GptEntry), header.entries * kSector).data;
    for (std::size_t i = 0; (i + 1) * sizeof(GptEntry) <= entries.size(); ++i) {
        const auto entry = record_from<GptEntry>(
            ByteView(entries).subspan(i * sizeof(GptEntry), sizeof(GptEntry)));
        const auto type = entry.type;
        const bool used =
            std::any_of(type.begin(), type.end(), [](auto byte) { return byte != 0; });
        if (used && entry.last >= entry.first && entry.last < sectors_) {
            add(static_cast<unsigned>(i + 1), entry.first, entry.last - entry.first + 1,
                name_of_entry(entry));
        }
    }
    return true;
}

// Places in the chain count from its first link, those of a partition from the link it stands in.
void Finder::find_logical(std::uint64_t first) {
    std::uint64_t link = first;
    for (unsigned number = 5; number < 5 + kMostLogical;) {
        const Bytes sector = sector_of(disk_, link);
        if (!signed_table(sector)) {
            return;
        }
        const auto slots = slots_of(sector);
        for (const Slot& slot : slots) {
            if (!slot.extended() && slot.count > 0) {
                add(number++, link + slot.start, slot.count);
            }
        }
        const auto next = std::find_if(slots.begin(), slots.end(), [](const Slot& slot) {
            return slot.extended() && slot.count > 0;
        });
        if (next == slots.end() || first + next->start <= link) {
            return;
        }
        link = first + next->start;
    }
}

std::vector<Partition> Finder::find() {
    const Bytes sector = sector_of(disk_, 0);
    if (!signed_table(sector)) {
        return {};
    }
    const auto slots = slots_of(sector);
    if (std::any_of(slots.begin(), slots.end(),
                    [](const Slot& slot) { return slot.type == kProtective; })) {
        find_gpt();
        return found_;
    }
    if (std::any_of(slots.begin(), slots.end(),
                    [](const Slot& slot) { return slot.flag != 0 && slot.flag != 0x80; })) {
        return {}; // code: a boot sector
    }
    for (unsigned i = 0; i < kSlots; ++i) {
        const Slot& slot = slots[i];
        // Of the frame of the logical ones so much is shown that nobody makes a file system of it.
        add(i + 1, slot.start,
            slot.extended() ? std::min<std::uint64_t>(slot.count, 2) : slot.count);
    }
    for (const Slot& slot : slots) {
        if (slot.extended() && slot.count > 0) {
            find_logical(slot.start);
        }
    }
    return found_;
}

} // namespace

std::vector<Partition> find_partitions(const BlockDisk& disk) {
    return Finder(disk).find();
}

} // namespace vb::stick
