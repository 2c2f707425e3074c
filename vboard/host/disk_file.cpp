#include "host/disk_file.h"

#include "core/fail.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace vb::host {

namespace {

// Without the kernel's own links, which lead to what a process has open.
int open_plainly(const std::string& path, int flags) {
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags);
    how.mode = (flags & O_CREAT) != 0 ? 0666 : 0;
    how.resolve = RESOLVE_NO_MAGICLINKS;
    return static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how));
}

bool keeps_files(int file) {
    constexpr std::uint32_t kZfs = 0x2FC12FC1;
    constexpr std::array<std::uint32_t, 10> kFileSystems = {
        EXT4_SUPER_MAGIC,      XFS_SUPER_MAGIC, BTRFS_SUPER_MAGIC, F2FS_SUPER_MAGIC, TMPFS_MAGIC,
        OVERLAYFS_SUPER_MAGIC, NFS_SUPER_MAGIC, V9FS_MAGIC,        FUSE_SUPER_MAGIC, kZfs};
    struct statfs system {};
    return fstatfs(file, &system) == 0 &&
           std::find(kFileSystems.begin(), kFileSystems.end(),
                     static_cast<std::uint32_t>(system.f_type)) != kFileSystems.end();
}

} // namespace

DiskFile::DiskFile(const std::string& path, int flags) {
    if (!path.starts_with('/')) {
        throw std::invalid_argument(fmt::format("{} is no whole path, from / on", path));
    }
    file_ = UniqueFd(open_plainly(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file_ || fstat(file_.get(), &status) != 0) {
        fail(path);
    }
    if (!S_ISREG(status.st_mode) || !keeps_files(file_.get())) {
        throw std::invalid_argument(fmt::format("{} is no ordinary file", path));
    }
    size_ = static_cast<std::uint64_t>(status.st_size);
}

DiskFile DiskFile::to_write(const std::string& path) {
    DiskFile file(path, O_WRONLY | O_CREAT);
    if (ftruncate(file.file_.get(), 0) != 0) {
        fail(path);
    }
    file.size_ = 0;
    return file;
}

DiskFile DiskFile::to_read(const std::string& path) {
    return {path, O_RDONLY};
}

DiskFile DiskFile::to_change(const std::string& path) {
    return {path, O_RDWR};
}

bool DiskFile::write(ByteView bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file_.get(), bytes.data(), bytes.size());
        if (written < 0) {
            return false;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
        size_ += static_cast<std::uint64_t>(written);
    }
    return true;
}

Bytes DiskFile::read(std::uint64_t place, std::size_t length) const {
    Bytes bytes(length);
    const ssize_t got = pread(file_.get(), bytes.data(), length, static_cast<off_t>(place));
    errno = got < 0 ? errno : 0;
    bytes.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return bytes;
}

} // namespace vb::host
