// The disk's worker, as its preparing, its serving and its end see it.
#pragma once

#include "hal/hal_otg/mass_state.h"
#include "support/run_flag.h"
#include "support/transfer.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <fcntl.h>
#include <span>
#include <utility>

namespace hal::otg {

inline constexpr const char* kMassNode = "/dev/mass";
inline constexpr std::size_t kChunk = 32768;

using MassRun = hal::Run<decltype(hal_mass_state::thread_state)>;

// What a worker has for itself. Its descriptor is its own, whatever the record says meanwhile.
struct MassWorker {
    explicit MassWorker(const MassRun& its_run) : run(its_run) {}
    ~MassWorker() { // after a cancellation; else there is nothing left to do
        close();
        run.end();
    }
    MassWorker(const MassWorker&) = delete;
    MassWorker& operator=(const MassWorker&) = delete;

    bool open() {
        node = hal::open_fd(kMassNode, O_RDWR);
        if (node) {
            mass_fds.show(hal_mass_prv.mass_fd[0], node);
        }
        return static_cast<bool>(node);
    }
    void close() { mass_fds.close(hal_mass_prv.mass_fd[0], std::move(node)); }
    ssize_t read(std::span<uint8_t> bytes) const {
        return hal::read_some(node.get(), bytes.data(), bytes.size());
    }

    MassRun run;
    hal::Fd node;
    int state = -1;               // that of `masssee`, or how the worker ends
    bool unmounted_early = false; // before it served
    std::array<uint8_t, kCbwSize> cbw{};
    std::array<uint8_t, kChunk> chunk{};
};

// Starts the worker: 0, or the error number.
int32_t start_mass_worker();

inline bool has_callback() {
    return std::atomic_ref(hal_mass_prv.mass_cb).load() != nullptr;
}

// Serves one command, from its reading to its answer. False at the worker's end
// (mass_commands.cpp).
bool serve_command(MassWorker& worker);

} // namespace hal::otg
