#include "serve/caller.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>

namespace vb {

namespace {

iovec vector_of(std::uint64_t address, std::size_t size) {
    // The address is another process's: a number here, never followed.
    return {reinterpret_cast<void*>(static_cast<std::uintptr_t>(address)), size}; // NOLINT
}

std::string link_text(int folder, const std::string& name) {
    std::array<char, PATH_MAX> text{};
    const ssize_t size = readlinkat(folder, name.c_str(), text.data(), text.size());
    return size < 0 ? "" : std::string(text.data(), static_cast<std::size_t>(size));
}

// As a process sees it whose root this is: links that begin with "/" begin there as well.
UniqueFd open_below(const UniqueFd& root, const std::string& path) {
    open_how how{};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = RESOLVE_IN_ROOT;
    return UniqueFd(
        static_cast<int>(syscall(SYS_openat2, root.get(), path.c_str(), &how, sizeof how)));
}

bool has_contents(const UniqueFd& place) {
    struct stat status {};
    return fstat(place.get(), &status) == 0 && (S_ISREG(status.st_mode) || S_ISBLK(status.st_mode));
}

} // namespace

bool Caller::read(std::uint64_t address, std::span<std::uint8_t> into) const {
    if (into.empty()) {
        return true;
    }
    const iovec local{into.data(), into.size()};
    const iovec remote = vector_of(address, into.size());
    return process_vm_readv(thread_, &local, 1, &remote, 1, 0) == static_cast<ssize_t>(into.size());
}

bool Caller::write(std::uint64_t address, ByteView bytes) const {
    if (bytes.empty()) {
        return true;
    }
    const iovec local{const_cast<std::uint8_t*>(bytes.data()), bytes.size()}; // NOLINT: only read
    const iovec remote = vector_of(address, bytes.size());
    return process_vm_writev(thread_, &local, 1, &remote, 1, 0) ==
           static_cast<ssize_t>(bytes.size());
}

// A line of /proc/N/status that is 64 bits in hexadecimal digits.
std::uint64_t Caller::status_bits(const std::string& name) const {
    const UniqueFd status(
        openat(proc_, fmt::format("{}/status", thread_).c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 4096> text{};
    const ssize_t size = status ? ::read(status.get(), text.data(), text.size()) : 0;
    const std::string_view all(text.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    const std::string begin = fmt::format("\n{}:\t", name);
    const std::size_t line = all.find(begin);
    std::uint64_t bits = 0;
    if (line != std::string_view::npos) {
        const std::string_view digits = all.substr(line + begin.size(), 16);
        std::from_chars(digits.data(), digits.data() + digits.size(), bits, 16);
    }
    return bits;
}

bool Caller::may(int capability) const {
    return (status_bits("CapEff") >> capability & 1U) != 0;
}

// Whatever signal it is, the kernel gives each thread SIGKILL then.
bool Caller::dying() const {
    return (status_bits("SigPnd") >> (SIGKILL - 1) & 1U) != 0;
}

// A path that begins in the working directory, from the caller's root. /proc tells both from the
// root of all, of which the caller's may be a part.
std::string Caller::from_root(const std::string& path) const {
    if (path.starts_with('/')) {
        return path;
    }
    std::string folder = link_text(proc_, fmt::format("{}/cwd", thread_));
    const std::string root = link_text(proc_, fmt::format("{}/root", thread_));
    if (root.size() > 1 && folder.starts_with(root)) {
        folder.erase(0, root.size());
    }
    return folder + "/" + path;
}

void Caller::open(const UniqueFd& place, Found& found) const {
    const std::string name = fmt::format("self/fd/{}", place.get());
    found.file = UniqueFd(openat(proc_, name.c_str(), O_RDWR | O_CLOEXEC));
    found.writable = static_cast<bool>(found.file);
    if (!found.file) {
        found.file = UniqueFd(openat(proc_, name.c_str(), O_RDONLY | O_CLOEXEC));
    }
}

Found Caller::find(const std::string& path, const InTree& in_tree) const {
    Found found;
    if (path.empty()) {
        found.error = ENOENT;
        return found;
    }
    const UniqueFd root(
        openat(proc_, fmt::format("{}/root", thread_).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const UniqueFd place = root ? open_below(root, from_root(path)) : UniqueFd();
    if (!place) {
        found.error = errno;
        return found;
    }
    found.path = link_text(proc_, fmt::format("self/fd/{}", place.get()));
    found.entry = in_tree(found.path);
    if (!found.entry && has_contents(place)) {
        open(place, found);
    }
    return found;
}

} // namespace vb
