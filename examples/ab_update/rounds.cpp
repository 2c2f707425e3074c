#include "chapters.h"
#include "device.h"

#include <hal_bsp/hal_bsp.h>

#include <fmt/format.h>

#include <random>

namespace ab {

namespace {

constexpr std::size_t kRoundBytes = 150'000;
constexpr unsigned kRoundBlocks = (kRoundBytes + 16383) / 16384;
// The moments of a round: each write of the update, that of the switch, and when all is done.
constexpr unsigned kMoments = kWritesBefore + kRoundBlocks + 2;
constexpr std::uint32_t kReportEvery = 100;

// The system that runs has to be whole, and the one before or the new one.
void judge(Notes& notes) {
    const auto version = whole_system(running_slot(), kRoundBytes);
    const bool updated = version && *version == notes.new_version;
    if (updated || (version && *version == notes.running_version)) {
        ++notes.rounds_whole;
        notes.rounds_updated += updated ? 1 : 0;
        notes.running_version = *version;
    } else {
        fmt::print("round {}: slot {} does not hold a whole system (power cut at write {})\n",
                   notes.rounds_begun, letter_of(running_slot()), notes.cut_after);
    }
}

int report(const Notes& notes) {
    fmt::print("{} of {} power cuts left a whole, verified system; {} of them the new one\n",
               notes.rounds_whole, notes.rounds_begun, notes.rounds_updated);
    return notes.rounds_whole == notes.rounds_begun ? 0 : 1;
}

[[noreturn]] void begin_round(Notes& notes, std::uint64_t seed) {
    ++notes.rounds_begun;
    notes.new_version = notes.rounds_begun + 1;
    std::mt19937_64 random(seed * 1'000'003 + notes.rounds_begun);
    notes.cut_after = static_cast<std::uint32_t>(1 + random() % kMoments);
    notes.save();
    const Image image = pack({notes.new_version, kRoundBytes});
    std::fflush(stdout);
    const std::uint64_t damage = random() >> 1; // to fit a signed number
    order_power_cut(notes.cut_after, damage);
    if (!update(image) || hal_absystem_switch() < 0) {
        give_up("the update failed");
    }
    cut_power(damage);
}

} // namespace

int cut_rounds(std::uint32_t rounds, std::uint64_t seed) {
    std::optional<Notes> notes = Notes::load();
    if (!notes) {
        set_up_factory(kRoundBytes);
        notes = Notes{};
        notes->running_version = 1;
    } else {
        judge(*notes);
        confirm_running_slot();
    }
    if (notes->rounds_begun == rounds) {
        return report(*notes);
    }
    if (notes->rounds_begun % kReportEvery == 0 && notes->rounds_begun > 0) {
        fmt::print("{} rounds, {} whole\n", notes->rounds_begun, notes->rounds_whole);
    }
    begin_round(*notes, seed);
}

} // namespace ab
