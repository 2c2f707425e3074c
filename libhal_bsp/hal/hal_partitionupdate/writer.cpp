// Copies a file into a partition.
#include <hal_bsp/partition.h>

#include "hal/hal_partitionupdate/partitions.h"
#include "support/fd.h"
#include "support/log.h"
#include "support/text.h"
#include "support/transfer.h"
#include "support/wait.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace hal::partition;

constexpr int32_t kWritten = 1;
constexpr int32_t kFailed = 0;

constexpr std::size_t kBlock = 16384;

struct Source {
    hal::Fd file;
    uint64_t size = 0;
};

// A transfer that came back short is no error of the system's; `otherwise` says what it means.
bool log_failure(const char* format, ssize_t result, int otherwise, ErrorCode code) {
    std::array<char, 128> text{};
    const int error = result < 0 ? errno : otherwise;
    log_log(HAL_LOG_ERROR, kModule, __LINE__, format, strerror_r(error, text.data(), text.size()),
            code);
    return false;
}

bool log_read_failure(ssize_t result) {
    return log_failure("Read failed(%s), ERR_CODE = %d\n", result, ENODATA, kReadFailed);
}

bool log_write_failure(ssize_t result) {
    return log_failure("Write failed(%s), ERR_CODE = %d\n", result, ENOSPC, kWriteFailed);
}

std::optional<Source> source_of(hal::Fd file, const char* path) {
    Source source{std::move(file)};
    if (!source.file) {
        HAL_LOG(HAL_LOG_ERROR, "Can't open %s, ERR_CODE = %d\n", hal::shown(path), kNoSource);
        return std::nullopt;
    }
    struct stat status {};
    if (fstat(source.file.get(), &status) != 0) {
        const int fd = source.file.get();
        source.file.reset();
        HAL_LOG(HAL_LOG_ERROR, "Can't get fd(%d) info, ERR_CODE = %d\n", fd, kNoStatus);
        return std::nullopt;
    }
    source.size = static_cast<uint64_t>(status.st_size);
    return source;
}

// Where the bytes come from: a path, or a file that is open already.
struct Image {
    const char* path = nullptr;
    int open = -1;

    [[nodiscard]] hal::Fd descriptor() const {
        if (open >= 0) {
            return hal::Fd(fcntl(open, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        }
        return path != nullptr ? hal::open_fd(path, O_RDONLY) : hal::Fd();
    }
};

// A source that cannot be sought in, such as a pipe, stands at its start.
bool seek_source(const hal::Fd& source, uint64_t offset) {
    return lseek(source.get(), static_cast<off_t>(offset), SEEK_SET) >= 0 || offset == 0;
}

hal::Fd open_target(const char* path) {
    hal::Fd target = hal::open_fd(path, O_RDWR | O_CREAT, 0644);
    if (!target) {
        HAL_LOG(HAL_LOG_ERROR, "Can't open %s\n, ERR_CODE = %d\n", path, kNoTarget);
    } else {
        lseek(target.get(), 0, SEEK_SET);
    }
    return target;
}

void pace(std::optional<uint16_t> delay_us) {
    if (delay_us) {
        hal::sleep_through(std::chrono::microseconds(*delay_us));
    }
}

bool copy(const hal::Fd& source, const hal::Fd& target, uint64_t count,
          std::optional<uint16_t> delay_us) {
    // On the heap: a caller's thread may have less of a stack than that.
    const std::unique_ptr<char[]> memory(new (std::nothrow) char[kBlock]);
    if (!memory) {
        errno = ENOMEM;
        return log_read_failure(-1);
    }
    const std::span<char, kBlock> block(memory.get(), kBlock);
    while (count > 0) {
        const auto wanted = static_cast<std::size_t>(std::min<uint64_t>(count, block.size()));
        std::fill(block.begin() + static_cast<std::ptrdiff_t>(wanted), block.end(), '\0');
        const ssize_t got = hal::read_some(source.get(), block.data(), wanted);
        if (got != static_cast<ssize_t>(wanted)) {
            return log_read_failure(got);
        }
        pace(delay_us);
        count -= wanted;
        const ssize_t put = hal::write_some(target.get(), block.data(), block.size());
        if (put != static_cast<ssize_t>(block.size())) {
            return log_write_failure(put);
        }
        pace(delay_us);
    }
    return true;
}

int32_t write_image(const Image& image, const char* part, uint64_t offset, uint64_t size,
                    std::optional<uint16_t> delay_us) {
    std::array<char, HAL_PARTITION_PATH_MAX> device{};
    if (getPartitionType(part, device.data()) == 0) {
        HAL_LOG(HAL_LOG_ERROR, "%s partition not found, ERR_CODE = %d\n", hal::shown(part),
                kNoPartition);
        return kFailed;
    }
    HAL_LOG(HAL_LOG_INFO, "write image of %s to %s.\n", part, device.data());
    const std::optional<Source> source = source_of(image.descriptor(), image.path);
    if (!source) {
        return kFailed;
    }
    const uint64_t count = size != 0 ? size : source->size;
    HAL_LOG(HAL_LOG_INFO, "filesize %llu\n", static_cast<unsigned long long>(count));
    const bool there = seek_source(source->file, offset);
    const int seek_error = errno;
    const hal::Fd target = open_target(device.data());
    if (!target) {
        return kFailed;
    }
    if (!there) { // other bytes than those at the offset are none
        errno = seek_error;
        log_read_failure(-1);
        return kFailed;
    }
    const bool done = copy(source->file, target, count, delay_us);
    if (done) {
        while (fsync(target.get()) != 0 && errno == EINTR) {
        }
    }
    return done ? kWritten : kFailed;
}

} // namespace

int32_t hal::partition::write_open_image(int image, const char* img_path, const char* part,
                                         uint64_t offset, uint64_t size) {
    HAL_LOG(HAL_LOG_INFO, "writeImageToCustomPart ==== part:%s\n", hal::shown(part));
    return write_image({img_path, image}, part, offset, size, std::nullopt);
}

int32_t writeImageToCustomPart(const char* img_path, const char* part, uint64_t offset,
                               uint64_t size) {
    return write_open_image(-1, img_path, part, offset, size);
}

int32_t writeImageToCustomPart_withdealy(const char* img_path, const char* part, uint64_t offset,
                                         uint64_t size, uint16_t delay_us) {
    HAL_LOG(HAL_LOG_INFO, "writeImageToCustomPart ==== part:%s, delay_time: %d\n", hal::shown(part),
            delay_us);
    return write_image({img_path}, part, offset, size, delay_us);
}
