#include "chapters.h"
#include "device.h"

#include <hal_bsp/hal_bsp.h>

#include <fmt/format.h>
#include <unistd.h>

#include <fcntl.h>
#include <random>

namespace ab {

namespace {

constexpr std::size_t kSystemBytes = 8'000'000;
constexpr unsigned kBlocks = (kSystemBytes + 16383) / 16384;
constexpr unsigned kWrites = kWritesBefore + kBlocks; // of an update

// Where the story stands at a start of the board.
enum Step : std::uint32_t { kNewSystem, kAfterCut, kNeverBoots };

void expect(bool holds, const std::string& what) {
    if (!holds) {
        give_up("not as it should be: " + what);
    }
}

void expect_running(int slot, std::uint32_t version) {
    expect(running_slot() == slot, fmt::format("slot {} runs", letter_of(slot)));
    expect(whole_system(slot, kSystemBytes) == version,
           fmt::format("slot {} holds system {}, all of it", letter_of(slot), version));
}

void step(Notes& notes, Step next) {
    notes.step = next;
    notes.save();
}

[[noreturn]] void good_update() {
    fmt::print("1. An update\n");
    set_up_factory(kSystemBytes);
    expect_running(HAL_SLOT_A, 1);
    fmt::print("   slot a runs system 1, fresh from the factory\n");
    expect(update(pack({2, kSystemBytes})), "a good image is written");
    expect(hal_absystem_switch() >= 0, "the slots are switched");
    fmt::print("   system 2 is checked and written to slot b; restarting into it\n");
    Notes notes;
    step(notes, kNewSystem);
    restart();
}

void corrupt_image() {
    fmt::print("2. A corrupt image\n");
    const Image image = pack({3, kSystemBytes});
    corrupt(image);
    expect(!update(image), "a corrupt image is refused");
    expect(whole_system(HAL_SLOT_A, kSystemBytes) == 1, "the other slot is untouched");
    fmt::print("   system 3 has a wrong byte: refused, slot a is untouched\n");
}

[[noreturn]] void power_cut(Notes& notes, std::uint64_t seed) {
    fmt::print("3. A power cut\n");
    std::mt19937_64 random(seed);
    // Not at the last block: then all of it may have been stored.
    notes.cut_after = static_cast<std::uint32_t>(kWritesBefore + 1 + random() % (kBlocks - 1));
    step(notes, kAfterCut);
    std::fflush(stdout);
    order_power_cut(notes.cut_after, seed);
    update(pack({3, kSystemBytes}));
    give_up("the power was to go meanwhile");
}

[[noreturn]] void new_system_is_up(Notes& notes, std::uint64_t seed) {
    expect_running(HAL_SLOT_B, 2);
    confirm_running_slot();
    fmt::print("   slot b runs system 2, confirmed\n");
    corrupt_image();
    power_cut(notes, seed);
}

[[noreturn]] void after_cut(Notes& notes) {
    fmt::print("   the power went at write {} of {}\n", notes.cut_after, kWrites);
    expect_running(HAL_SLOT_B, 2);
    expect(whole_system(HAL_SLOT_A, kSystemBytes) != 3U, "slot a is not whole");
    fmt::print("   slot b runs system 2 again, whole; slot a is torn\n");
    expect(update(pack({3, kSystemBytes})), "the image is written in the second go");
    fmt::print("   system 3 is written to slot a in a second go\n");
    fmt::print("4. A new system that never boots\n");
    expect(hal_absystem_switch() >= 0, "the slots are switched");
    step(notes, kNeverBoots);
    restart();
}

// The new system hangs before it confirms itself, and the watchdog restarts the board.
[[noreturn]] void hang(Notes& notes) {
    expect_running(HAL_SLOT_A, 3);
    ++notes.failed_starts;
    notes.save();
    fmt::print("   slot a starts system 3, which hangs: the watchdog restarts the board\n");
    restart();
}

int old_slot_is_back(const Notes& notes) {
    expect_running(HAL_SLOT_B, 2);
    expect(notes.failed_starts == HAL_AVB_TRIES_MAX, "the new system had all its tries");
    confirm_running_slot();
    fmt::print("   its {} tries are used up: slot b runs system 2 again, confirmed\n",
               notes.failed_starts);
    fmt::print("All four chapters ended as they should.\n");
    return 0;
}

} // namespace

int tell_story(std::uint64_t seed) {
    std::optional<Notes> notes = Notes::load();
    if (!notes) {
        good_update();
    }
    if (notes->step == kNewSystem) {
        new_system_is_up(*notes, seed);
    }
    if (notes->step == kAfterCut) {
        after_cut(*notes);
    }
    if (running_slot() == HAL_SLOT_A) {
        hang(*notes);
    }
    return old_slot_is_back(*notes);
}

void set_up_factory(std::size_t system_bytes) {
    // The factory writes the running slot, which an updater never does.
    const std::string partition = system_partition(HAL_SLOT_A);
    System{1, system_bytes}.write_to(partition);
    const int fd = open(partition.c_str(), O_WRONLY | O_CLOEXEC);
    const bool flushed = fsync(fd) == 0;
    close(fd);
    if (!flushed || hal_avb_init() < 0) {
        give_up("the factory cannot set the device up");
    }
}

} // namespace ab
