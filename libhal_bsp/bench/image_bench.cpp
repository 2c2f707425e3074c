// Digests and partition writing, against the programs that do the same: md5sum, openssl and dd.
// The partition is a file in memory, so that no storage is measured. It takes 1 GiB there.

#include "figures.h"

#include <hal_bsp/hal_bsp.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace {

constexpr std::size_t kPayload = std::size_t{512} << 20;
constexpr char kImage[] = "/dev/shm/image_bench.img";
constexpr char kPlain[] = "/dev/shm/image_bench.payload"; // a link: dd takes the image from there
constexpr char kTarget[] = "/dev/shm/image_bench.partition";
constexpr char kPartition[] = "/dev/block/by-name/system_a"; // the target while slot B "runs"
constexpr int kPairs = 5;

} // namespace

// Stands before the C library's: the partition becomes a file of ours.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const char* const real = std::strcmp(path, kPartition) == 0 ? kTarget : path;
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, real, flags, mode));
}

namespace {

void run(const std::string& command) {
    if (std::system((command + " >/dev/null 2>&1").c_str()) != 0) {
        std::fprintf(stderr, "image_bench: this failed: %s\n", command.c_str());
        std::exit(1);
    }
}

void need(bool done, const char* what) {
    if (!done) {
        std::fprintf(stderr, "image_bench: %s failed\n", what);
        std::exit(1);
    }
}

std::string hex(const std::array<uint8_t, HAL_MD5_BYTES>& digest) {
    std::string text;
    for (const unsigned byte : digest) {
        std::array<char, 3> pair{};
        std::snprintf(pair.data(), pair.size(), "%02x", byte);
        text += pair.data();
    }
    return text;
}

void make_payload() {
    std::ofstream file(kPlain, std::ios::binary);
    std::array<uint32_t, 4096> block{};
    uint32_t value = 1;
    for (std::size_t done = 0; done < kPayload; done += sizeof block) {
        for (uint32_t& word : block) {
            word = value = value * 1664525U + 1013904223U;
        }
        file.write(reinterpret_cast<const char*>(block.data()), sizeof block);
    }
    need(file.good(), "writing to /dev/shm");
}

// Puts the header in front, in place of a second copy in memory.
uint32_t make_image() {
    std::array<uint8_t, HAL_MD5_BYTES> digest{};
    need(checkdata(kPlain, digest.data(), 0, kPayload) == 1, "checkdata");
    const std::string json = R"({"md5":")" + hex(digest) + R"("})";
    std::ofstream file(kImage, std::ios::binary);
    file << HAL_OEM_MARKER << static_cast<char>(json.size()) << std::string(3, '\0') << json;
    file << std::ifstream(kPlain, std::ios::binary).rdbuf();
    file.close();
    std::remove(kPlain);
    return static_cast<uint32_t>(8 + json.size() + kPayload);
}

long peak_kilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

int main() {
    log_set_quiet(true);
    make_payload();
    const auto ours = [] { need(checkdata(kPlain, nullptr, 0, kPayload) == 1, "checkdata"); };
    const long before = peak_kilobytes();
    bench::compare(
        "checkdata / md5sum, 512 MiB", ours, [] { run(std::string("md5sum ") + kPlain); }, kPairs,
        1);
    bench::compare(
        "checkdata / openssl dgst -md5, 512 MiB", ours,
        [] { run(std::string("openssl dgst -md5 ") + kPlain); }, kPairs, 1);
    const uint32_t length = make_image();
    bench::compare(
        "hal_partition_update / md5sum; dd bs=16k conv=fsync",
        [&] { need(hal_partition_update(kImage, "system", 0, length) == 1, "update"); },
        [] {
            run(std::string("md5sum ") + kImage);
            run(std::string("dd bs=16k conv=fsync,notrunc if=") + kImage + " of=" + kTarget);
        },
        kPairs, 1);
    std::printf("memory grew by %ld KiB meanwhile\n", peak_kilobytes() - before);
    std::remove(kImage);
    std::remove(kTarget);
    return 0;
}
