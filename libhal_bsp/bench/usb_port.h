#pragma once
// The USB device port of a board, brought up for a figure.

#include "figures.h"

#include "client/client.h"

#include <hal_bsp/hal_bsp.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <unistd.h>

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

// Of a job of the host's disk driver.
inline double seconds_of(vb::Client& world, const char* verb, const std::string& path) {
    const auto since = world.ask("trace.last").get<std::uint64_t>();
    const auto start = Clock::now();
    const vb::Json job = world.ask(verb, {{"path", path}});
    if (!world.wait(since, {{"kind", "usb_disk"}, {"job", job}, {"state", "done"}})) {
        std::fprintf(stderr, "the host does not get done\n");
        std::_Exit(1);
    }
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// An empty file for the host's copy.
class CopyFile {
  public:
    CopyFile() : path_(std::filesystem::temp_directory_path() / "usb_bench.XXXXXX") {
        const int file = mkstemp(path_.data());
        if (file < 0) {
            throw std::system_error(errno, std::generic_category(), path_);
        }
        close(file);
    }
    ~CopyFile() { unlink(path_.c_str()); }
    CopyFile(const CopyFile&) = delete;
    CopyFile& operator=(const CopyFile&) = delete;

    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

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
