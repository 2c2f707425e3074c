#pragma once
// The USB device port of a board, brought up for a figure.

#include "client/client.h"

#include <hal_bsp/hal_bsp.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <thread>

namespace bench {

inline int field(const int32_t& value) {
    return std::atomic_ref(const_cast<int32_t&>(value)).load();
}

template <class Condition>
void await(const char* what, Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            std::fprintf(stderr, "it does not come: %s\n", what);
            std::_Exit(1);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// Whether the host knows the disk.
inline bool disk_is_known(vb::Client& world) {
    try {
        return world.ask("host.disk_info").at("known").get<bool>();
    } catch (const vb::ClientError&) {
        return false; // it is not there yet
    }
}

inline void bring_up_hid() {
    const hal_otg_info ids{0, 0x0104, 0x1D6B};
    const hal_hid_info devices{1, 1, 1, 0x10, 1, 2, 1, 2};
    if (hal_otg_init(&ids, 1, nullptr) != 0 || hal_hid_init(&devices, nullptr) != 0) {
        std::fprintf(stderr, "the port does not come up\n");
        std::_Exit(1);
    }
    await("the HID devices", [] { return field(hal_hid_prv.hid_fd[0]) >= 0; });
}

// The status of a program that takes its figures so: what goes wrong on the way is told.
template <class Figures>
int status_of(Figures take_figures) {
    try {
        return take_figures();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}

} // namespace bench
