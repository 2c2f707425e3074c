// Reads and writes of a block device's node on the board, 64 KiB each, against a bare server. The
// aim: at least 0.8 times as much.

#include "two_sides.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr std::size_t kTransfer = 64 << 10;
constexpr std::size_t kPlaces = (64 << 20) / kTransfer; // as many as there is room for
constexpr std::size_t kTimes = 256;
constexpr char kPartition[] = "/dev/block/by-name/system_a";

// `call` does one transfer at an offset. Each measurement goes on where the last one ended.
template <class Call>
double nanoseconds_of(const char* node, const Call& call) {
    static std::size_t place = 0;
    std::vector<char> bytes(kTransfer, 'b');
    const int file = open(node, O_RDWR | O_CLOEXEC);
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < kTimes; ++i, ++place) {
        if (call(file, bytes.data(), static_cast<off_t>(place % kPlaces * kTransfer)) !=
            static_cast<ssize_t>(kTransfer)) {
            std::perror(node);
            std::exit(1);
        }
    }
    const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - start;
    close(file);
    return time.count() / kTimes;
}

double write_time(const char* node) {
    return nanoseconds_of(node, [](int file, const char* bytes, off_t offset) {
        return pwrite(file, bytes, kTransfer, offset);
    });
}

double read_time(const char* node) {
    return nanoseconds_of(node, [](int file, char* bytes, off_t offset) {
        return pread(file, bytes, kTransfer, offset);
    });
}

constexpr bench::Case kCases[] = {
    {"64 KiB written", kPartition, write_time, kTransfer},
    {"64 KiB read", kPartition, read_time, kTransfer},
};

} // namespace

int main(int argc, char** argv) {
    return bench::compare_with_bare_server(argc, argv, kCases);
}
