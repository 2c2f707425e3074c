// The bootloader: at every start of the board it chooses the slot by the boot-control record and
// writes the kernel's command line.
//
// What is ours to choose, and what programs may rely on:
// - The record is the A/B metadata of Android Verified Boot: a slot can be booted where its
//   priority is above 0 and it was successful or has tries left; of two such slots the one with
//   the higher priority is, A where they are equal.
// - Each start takes one try from the slot it chooses, unless that was successful, and notes the
//   slot in the last-boot byte. This is in storage before the program starts. Nothing else is
//   changed: no priority, no success, not the other slot.
// - A record that does not verify is left alone; slot A is booted.
// - "androidboot.slot_suffix=_a" or "=_b" is the last word of /proc/cmdline.
// - Where no slot can be booted the program is not started: `vboard run` says so and ends with 75.

#include "models/kinds.h"
#include "models/partition.h"
#include "serve/attribute.h"

#include <fmt/format.h>
#include <zlib.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <system_error>

namespace vb {

namespace {

struct SlotRecord {
    std::uint8_t priority;
    std::uint8_t tries;
    std::uint8_t successful;
    std::uint8_t reserved;

    bool bootable() const { return priority > 0 && (successful != 0 || tries > 0); }
};

struct ControlRecord {
    std::array<char, 4> magic;
    std::uint8_t major;
    std::uint8_t minor;
    std::uint16_t reserved;
    std::array<SlotRecord, 2> slots;
    std::uint8_t last_boot;
    std::array<std::uint8_t, 11> reserved2;
    std::array<std::uint8_t, 4> crc; // most significant byte first
};
static_assert(sizeof(ControlRecord) == 32 && offsetof(ControlRecord, slots) == 8 &&
              offsetof(ControlRecord, last_boot) == 16 && offsetof(ControlRecord, crc) == 28);

constexpr off_t kPlace = 2048;
constexpr std::array<char, 4> kMagic{'\0', 'A', 'B', '0'};
constexpr std::uint8_t kMajor = 1;
constexpr std::array<char, 2> kLetters{'a', 'b'};

std::array<std::uint8_t, 4> checksum(const ControlRecord& record) {
    const uLong crc =
        ::crc32(0, reinterpret_cast<const Bytef*>(&record), offsetof(ControlRecord, crc));
    std::array<std::uint8_t, 4> bytes{};
    for (unsigned i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(crc >> (24 - 8 * i));
    }
    return bytes;
}

bool verifies(const ControlRecord& record) {
    return record.magic == kMagic && record.major <= kMajor && record.crc == checksum(record);
}

std::optional<unsigned> choose(const ControlRecord& record) {
    const auto& [a, b] = record.slots;
    if (b.bootable() && (!a.bootable() || b.priority > a.priority)) {
        return 1;
    }
    return a.bootable() ? std::optional(0U) : std::nullopt;
}

Json describe(const ControlRecord& record) {
    Json slots = Json::array();
    for (unsigned i = 0; i < record.slots.size(); ++i) {
        const SlotRecord& slot = record.slots[i];
        slots.push_back({{"slot", std::string(1, kLetters[i])},
                         {"priority", slot.priority},
                         {"tries", slot.tries},
                         {"successful", slot.successful != 0}});
    }
    return slots;
}

class Bootloader : public Model {
  public:
    Bootloader(Board& board, Settings& settings);

  private:
    std::optional<ControlRecord> stored_record() const;
    unsigned boot();
    void count_down(ControlRecord record, unsigned slot) const;

    UniqueFd storage_;
    Json found_; // at this start, before a try was taken
};

Bootloader::Bootloader(Board& board, Settings& settings)
    : storage_(board.open_state(partition_state(settings.get<std::string>("partition")))) {
    const auto words = settings.get<std::string>("cmdline");
    const char letter = kLetters[boot()];
    board.tree().put("/proc/cmdline",
                     fixed_attribute(fmt::format("{} androidboot.slot_suffix=_{}", words, letter)));
    const Json shown = {{"slot", std::string(1, letter)}, {"found", found_}};
    board.trace().add("boot", shown);
    board.verbs().add({"bootloader.show",
                       {},
                       "the slot it chose at this start, and the record it found then",
                       [shown](const Json&) { return Json(shown); }});
}

std::optional<ControlRecord> Bootloader::stored_record() const {
    ControlRecord record{};
    const bool whole = pread(storage_.get(), &record, sizeof record, kPlace) ==
                       static_cast<ssize_t>(sizeof record);
    return whole && verifies(record) ? std::optional(record) : std::nullopt;
}

unsigned Bootloader::boot() {
    const std::optional<ControlRecord> record = stored_record();
    if (!record) {
        return 0;
    }
    found_ = describe(*record);
    const std::optional<unsigned> slot = choose(*record);
    if (!slot) {
        throw BootFailure(fmt::format("no slot of the board can be booted: {}", found_.dump()));
    }
    count_down(*record, *slot);
    return *slot;
}

void Bootloader::count_down(ControlRecord record, unsigned slot) const {
    SlotRecord& chosen = record.slots[slot];
    if (chosen.successful == 0) {
        --chosen.tries;
    }
    record.last_boot = static_cast<std::uint8_t>(slot);
    record.crc = checksum(record);
    if (pwrite(storage_.get(), &record, sizeof record, kPlace) !=
        static_cast<ssize_t>(sizeof record)) {
        throw std::system_error(errno, std::generic_category(), "the boot-control record");
    }
}

constexpr SettingRow kBootloaderSettings[] = {
    {"partition", R"("misc")", "where the record is"},
    {"cmdline", R"("console=ttyS0 rw")", "what the command line holds besides"},
};

} // namespace

const ModelKind kBootloader{"bootloader", "the choice of the slot, and `/proc/cmdline`",
                            kBootloaderSettings, make_model<Bootloader>};

} // namespace vb
