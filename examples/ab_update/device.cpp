#include "device.h"

#include "file_position.h"
#include "oem_image.h"

#include <hal_bsp/hal_bsp.h>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <future>
#include <random>

namespace ab {

namespace {

constexpr char kPayload[] = "/dev/shm/system";
constexpr char kImage[] = "/dev/shm/system.img";
constexpr char kExpected[] = "/dev/shm/expected";
constexpr char kNotes[] = "/dev/block/by-name/custom_a";
constexpr std::size_t kLabelBytes = 16;

std::string label_of(std::uint32_t version) {
    return fmt::format("system {:08} ", version);
}

void ask_bench(const std::string& words) {
    const std::string command = "vboard ctl power " + words + " >/dev/null";
    if (std::system(command.c_str()) != 0) {
        give_up("the bench does not answer: vboard ctl power " + words);
    }
}

void show_progress(const Image& image, std::future<bool>& work) {
    using namespace std::chrono_literals;
    while (work.wait_for(50ms) != std::future_status::ready) {
        const long long position = file_position(image.path.c_str());
        if (position >= 0) {
            fmt::print("\r   {:3} %", position * 100 / image.length);
            std::fflush(stdout);
        }
    }
    fmt::print("\r         \r");
}

} // namespace

void give_up(const std::string& why) {
    fmt::print(stderr, "ab_update: {}\n", why);
    std::fflush(nullptr);
    std::_Exit(1);
}

void System::write_to(const std::string& path) const {
    std::string contents = label_of(version);
    std::mt19937_64 noise(version);
    while (contents.size() < bytes) {
        const std::uint64_t word = noise();
        contents.append(reinterpret_cast<const char*>(&word), sizeof word);
    }
    std::ofstream file(path, std::ios::binary);
    file.write(contents.data(), static_cast<std::streamsize>(bytes));
    if (!file.flush()) {
        give_up("cannot write " + path);
    }
}

char letter_of(int slot) {
    return slot == HAL_SLOT_A ? 'a' : 'b';
}

int running_slot() {
    const int slot = getNowSlot();
    if (slot == HAL_SLOT_UNKNOWN) {
        give_up("the running slot is unknown");
    }
    return slot;
}

std::string system_partition(int slot) {
    return fmt::format("/dev/block/by-name/system_{}", letter_of(slot));
}

std::optional<std::uint32_t> whole_system(int slot, std::size_t bytes) {
    const std::string partition = system_partition(slot);
    std::array<char, kLabelBytes + 1> label{};
    std::ifstream(partition, std::ios::binary).read(label.data(), kLabelBytes);
    unsigned version = 0;
    // NOLINTNEXTLINE(cert-err34-c): eight digits fit
    if (std::sscanf(label.data(), "system %8u", &version) != 1) {
        return std::nullopt;
    }
    System{version, bytes}.write_to(kExpected);
    const bool whole = comparefile(partition.c_str(), kExpected, 0, 0, bytes) == 1;
    return whole ? std::optional(version) : std::nullopt;
}

void confirm_running_slot() {
    // In this order: it is the slot to boot that is re-armed, and after a fallback that was the
    // other one.
    if (hal_avb_set_bootslot(static_cast<std::uint8_t>(running_slot())) != 0 ||
        hal_avb_set_now() != 0) {
        give_up("cannot confirm the running slot");
    }
}

Image pack(const System& system) {
    system.write_to(kPayload);
    std::uint64_t length = 0;
    if (oem_image_pack(kPayload, kImage, &length) != 0) {
        give_up("cannot pack an image");
    }
    return {kImage, static_cast<std::uint32_t>(length)};
}

void corrupt(const Image& image) {
    std::fstream file(image.path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekg(image.length / 2);
    const char byte = static_cast<char>(file.get() ^ 0x10);
    file.seekp(image.length / 2);
    file.put(byte);
}

bool update(const Image& image) {
    const auto write = [&image] {
        return oem_image_update(image.path.c_str(), image.length, "system") == 0;
    };
    if (isatty(STDOUT_FILENO) == 0) {
        return write();
    }
    std::future<bool> work = std::async(std::launch::async, write);
    show_progress(image, work);
    return work.get();
}

void order_power_cut(unsigned after_writes, std::uint64_t seed) {
    ask_bench(fmt::format("cycle_after {} {}", after_writes, seed));
}

void cut_power(std::uint64_t seed) {
    std::fflush(nullptr);
    ask_bench(fmt::format("cycle {}", seed));
    give_up("the board does not start again");
}

void restart() {
    std::fflush(nullptr);
    ask_bench("restart");
    give_up("the board does not restart");
}

std::optional<Notes> Notes::load() {
    Notes notes;
    const Notes fresh;
    std::ifstream(kNotes, std::ios::binary).read(reinterpret_cast<char*>(&notes), sizeof notes);
    return std::memcmp(notes.magic, fresh.magic, sizeof notes.magic) == 0 ? std::optional(notes)
                                                                          : std::nullopt;
}

void Notes::save() const {
    // Within one sector, and flushed when the call returns.
    const int fd = open(kNotes, O_WRONLY | O_SYNC | O_CLOEXEC);
    const bool done = fd >= 0 && write(fd, this, sizeof *this) == sizeof *this;
    close(fd);
    if (!done) {
        give_up("cannot keep notes");
    }
}

} // namespace ab
