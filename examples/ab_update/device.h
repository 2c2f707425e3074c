#pragma once
// What an updater does with the device: its systems, its images, its notes, its power.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace ab {

// A system is told by its version, and its whole contents follow from that: whether one is whole
// can be checked without trusting whoever wrote it.
struct System {
    std::uint32_t version = 0;
    std::size_t bytes = 0;

    // Writes the contents to a file.
    void write_to(const std::string& path) const;
};

// Ends the program with a message.
[[noreturn]] void give_up(const std::string& why);

// --- slots ---

char letter_of(int slot);
int running_slot(); // HAL_SLOT_A or HAL_SLOT_B
std::string system_partition(int slot);
// The version of the system in a slot, if all of it is there.
std::optional<std::uint32_t> whole_system(int slot, std::size_t bytes);
// What a system does once it has come up well: this slot is the one to boot, with all its tries.
void confirm_running_slot();

// --- images ---

struct Image {
    std::string path;
    std::uint32_t length = 0;
};

Image pack(const System& system);
// Turns a byte over, as a bad download does.
void corrupt(const Image& image);
// Checks it and writes it to the slot that does not run, which cannot be booted from then on until
// the slots are switched; on a terminal with a progress bar. False where the library refuses.
bool update(const Image& image);
// What update() writes besides the image's blocks: that the slot is not to be booted.
inline constexpr unsigned kWritesBefore = 1;

// --- power ---

// Asks the bench for it: on a real device somebody pulls the plug.
void order_power_cut(unsigned after_writes, std::uint64_t seed);
[[noreturn]] void cut_power(std::uint64_t seed);
[[noreturn]] void restart();

// --- notes ---

// What the updater has to know after a restart, kept in its own partition.
struct Notes {
    char magic[8] = {'a', 'b', 'u', 'p', 'd', 'a', 't', 'e'};
    std::uint32_t step = 0;
    std::uint32_t rounds_begun = 0;
    std::uint32_t rounds_whole = 0;
    std::uint32_t rounds_updated = 0;
    std::uint32_t running_version = 0;
    std::uint32_t new_version = 0;
    std::uint32_t failed_starts = 0;
    std::uint32_t cut_after = 0;

    // None where the device is fresh from the factory.
    static std::optional<Notes> load();
    void save() const;
};

} // namespace ab
