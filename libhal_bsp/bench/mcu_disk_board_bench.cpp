// Bytes per second that a host reads from the disk behind the MCU and writes to it: through the
// library, and from a bare loop of poll, lseek, read and SG_IO on the same nodes. Both answer from
// the same disk in memory.

#include "mcu_port.h"

#include "tests/support/memory_disk.h"

namespace {

using hal_test::otg::MemoryDisk;

constexpr std::size_t kSize = 2 << 20;
constexpr int kRounds = 4;
constexpr int kEach = 2; // in a process

// Seconds of reading and of writing, in turn.
std::vector<double> measure(vb::Client& world) {
    bench::await("the disk", [&] { return bench::disk_is_known(world); });
    const bench::CopyFile copy;
    bench::seconds_of(world, "host.disk_read", copy.path()); // both begin warm
    std::vector<double> figures;
    for (int i = 0; i < kEach; ++i) {
        figures.push_back(bench::seconds_of(world, "host.disk_read", copy.path()));
        figures.push_back(bench::seconds_of(world, "host.disk_write", copy.path()));
    }
    return figures;
}

void serve_library(hal_mass_data* event) {
    static MemoryDisk disk(
        kSize / MemoryDisk::kBlock, [](const std::uint8_t* data, std::size_t length, bool last) {
            const hal_mass_reply reply{0, static_cast<std::uint32_t>(length), data, last ? 1U : 0U};
            sata_mass_write(&reply);
        });
    if (disk.take(event->kind, event->data, event->len)) {
        disk.answer();
    }
}

std::vector<double> measure_library(vb::Client& world) {
    bench::bring_up_bridge(world);
    if (sata_mass_init(nullptr, 1, serve_library) != 0) {
        std::_Exit(1);
    }
    return measure(world);
}

void serve_barely(bench::BareBridge& bridge) {
    MemoryDisk disk(
        kSize / MemoryDisk::kBlock, [&](const std::uint8_t* data, std::size_t length, bool) {
            for (std::size_t at = 0; at < length; at += 512) {
                bridge.send(MCU_MASS_REPLY, data + at, std::min<std::size_t>(512, length - at));
            }
        });
    bench::Block block{};
    tlv_info packet{};
    for (;;) {
        bridge.fetch(block);
        if (analysis_tlv_packet(&packet, block.data(), MCU_BLOCK_BYTES) != 0 ||
            (packet.type != MCU_MASS_COMMAND && packet.type != MCU_MASS_DATA)) {
            continue;
        }
        const auto kind = packet.type == MCU_MASS_COMMAND ? MASS_EVENT_CBW : MASS_EVENT_DATA;
        if (disk.take(kind, packet.value, packet.value_len)) {
            disk.answer();
        }
    }
}

std::vector<double> measure_bare(vb::Client& world) {
    static bench::BareBridge bridge(world);
    constexpr std::array<std::uint8_t, 2> kAttachWithDisk{1, 1};
    std::thread([] { serve_barely(bridge); }).detach();
    bridge.send(MCU_USB_CONTROL, kAttachWithDisk.data(), kAttachWithDisk.size());
    return measure(world);
}

} // namespace

int main() {
    log_set_quiet(true);
    std::array<std::vector<double>, 2> library;
    std::array<std::vector<double>, 2> bare;
    for (int round = 0; round < kRounds; ++round) {
        const auto [ours, theirs] = bench::in_turn(round, measure_library, measure_bare);
        for (std::size_t i = 0; i < ours.size(); ++i) {
            library[i % 2].push_back(ours[i]);
            bare[i % 2].push_back(theirs[i]);
        }
    }
    const double kilobytes = static_cast<double>(kSize) / 1e3;
    bench::print_rates("read by the host", "kB/s", kilobytes, library[0], bare[0]);
    bench::print_rates("written by the host", "kB/s", kilobytes, library[1], bare[1]);
    return 0;
}
