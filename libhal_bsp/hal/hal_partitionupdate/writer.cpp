// Copies a file into a partition.
#include <hal_bsp/partition.h>

#include "hal/hal_partitionupdate/partitions.h"
#include "support/fd.h"
#include "support/log.h"
#include "support/text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
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

std::optional<Source> open_source(const char* path) {
    Source source{path != nullptr ? hal::open_fd(path, O_RDONLY) : hal::Fd()};
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

// A source that cannot be sought in, such as a pipe, stands at its start.
bool seek_source(const hal::Fd& source, uint64_t offset) {
    return lseek(source.get(), static_cast<off_t>(offset), SEEK_SET) >= 0 || offset == 0 ||
           log_read_failure(-1);
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
        usleep(*delay_us);
    }
}

bool copy(const hal::Fd& source, const hal::Fd& target, uint64_t count,
          std::optional<uint16_t> delay_us) {
    std::array<char, kBlock> block;
    while (count > 0) {
        const auto wanted = static_cast<std::size_t>(std::min<uint64_t>(count, block.size()));
        std::fill(block.begin() + static_cast<std::ptrdiff_t>(wanted), block.end(), '\0');
        const ssize_t got = read(source.get(), block.data(), wanted);
        if (got != static_cast<ssize_t>(wanted)) {
            return log_read_failure(got);
        }
        pace(delay_us);
        count -= wanted;
        const ssize_t put = write(target.get(), block.data(), block.size());
        if (put != static_cast<ssize_t>(block.size())) {
            return log_write_failure(put);
        }
        pace(delay_us);
    }
    return true;
}

// What is not in storage is not written. A target that has no storage behind it is flushed.
bool flush(const hal::Fd& target) {
    return fsync(target.get()) == 0 || errno == EINVAL || errno == EROFS || log_write_failure(-1);
}

int32_t write_image(const char* img_path, const char* part, uint64_t offset, uint64_t size,
                    std::optional<uint16_t> delay_us) {
    std::array<char, HAL_PARTITION_PATH_MAX> device{};
    if (getPartitionType(part, device.data()) == 0) {
        HAL_LOG(HAL_LOG_ERROR, "%s partition not found, ERR_CODE = %d\n", hal::shown(part),
                kNoPartition);
        return kFailed;
    }
    HAL_LOG(HAL_LOG_INFO, "write image of %s to %s.\n", part, device.data());
    const std::optional<Source> source = open_source(img_path);
    if (!source) {
        return kFailed;
    }
    const uint64_t count = size != 0 ? size : source->size;
    HAL_LOG(HAL_LOG_INFO, "filesize %llu\n", static_cast<unsigned long long>(count));
    if (!seek_source(source->file, offset)) {
        return kFailed;
    }
    const hal::Fd target = open_target(device.data());
    const bool done = target && copy(source->file, target, count, delay_us) && flush(target);
    return done ? kWritten : kFailed;
}

} // namespace

int32_t writeImageToCustomPart(const char* img_path, const char* part, uint64_t offset,
                               uint64_t size) {
    HAL_LOG(HAL_LOG_INFO, "writeImageToCustomPart ==== part:%s\n", hal::shown(part));
    return write_image(img_path, part, offset, size, std::nullopt);
}

int32_t writeImageToCustomPart_withdealy(const char* img_path, const char* part, uint64_t offset,
                                         uint64_t size, uint16_t delay_us) {
    HAL_LOG(HAL_LOG_INFO, "writeImageToCustomPart ==== part:%s, delay_time: %d\n", hal::shown(part),
            delay_us);
    return write_image(img_path, part, offset, size, delay_us);
}
