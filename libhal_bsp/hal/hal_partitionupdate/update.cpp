// Updates from OEM images, and backups of the slot that runs.
#include <hal_bsp/md5sum.h>
#include <hal_bsp/partition.h>

#include "hal/hal_partitionupdate/partitions.h"
#include "hal/md5sum.h"
#include "support/command.h"
#include "support/log.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <optional>

namespace {

using namespace hal::partition;

constexpr int32_t kBackedUp = 0;
constexpr int32_t kFailed = -1;

using DevicePath = std::array<char, 128>;
static_assert(std::tuple_size_v<DevicePath> > sizeof "/dev/block/by-name/_a" + kNameMax);

// The share of the memory that may wait to be written to storage, while an object lives that was
// told to lower it; set to the system's own values at its end. A kernel without these settings
// copies all the same.
class DirtyPages {
  public:
    DirtyPages() = default;
    ~DirtyPages() {
        HAL_LOG(HAL_LOG_INFO, "set vm.dirty_background_rati=10, vm.dirty_ratio=20\n");
        hal::run_command("sysctl -w vm.dirty_background_ratio=10");
        hal::run_command("sysctl -w vm.dirty_ratio=20");
    }
    DirtyPages(const DirtyPages&) = delete;
    DirtyPages& operator=(const DirtyPages&) = delete;

    static void lower() {
        HAL_LOG(HAL_LOG_INFO, "set vm.dirty_background_rati=1, vm.dirty_ratio=1\n");
        hal::run_command("sysctl -w vm.dirty_background_ratio=1");
        hal::run_command("sysctl -w vm.dirty_ratio=1");
    }
};

// The size of the partition to copy; 0, and logged, where there is nothing to copy.
uint64_t size_to_copy(const char* part, const char* path) {
    if (std::strcmp(part, "boot") == 0) {
        const uint64_t size = get_kernel_partition_size(path);
        if (size == 0) {
            HAL_LOG(HAL_LOG_ERROR, "get_kernel_partition_size failed\n");
        }
        return size;
    }
    if (std::strcmp(part, "system") == 0) {
        const uint64_t size = get_rootfs_partition_size(path);
        if (size == 0) {
            HAL_LOG(HAL_LOG_ERROR, "get_rootfs_partition_size failed\n");
        }
        return size;
    }
    HAL_LOG(HAL_LOG_ERROR, "unknow partition name: %s!\n", part);
    return 0;
}

// The partition of the slot that runs.
bool find_source(const char* part, DevicePath& path) {
    const int32_t running = getNowSlot();
    if (running == HAL_SLOT_UNKNOWN) {
        return false;
    }
    std::snprintf(path.data(), path.size(), "%s%s%s", kFolder, part, suffix_of(running));
    return true;
}

bool copy(const char* path, const char* part, uint64_t size, std::optional<uint16_t> delay_us) {
    return (delay_us ? writeImageToCustomPart_withdealy(path, part, 0, size, *delay_us)
                     : writeImageToCustomPart(path, part, 0, size)) == 1;
}

int32_t back_up(const char* part, std::optional<uint16_t> delay_us) {
    if (part == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "please set the partition to be backup, ERR_CODE = %d\n",
                kNoPartition);
        return kFailed;
    }
    DevicePath path{};
    const uint64_t size = find_source(part, path) ? size_to_copy(part, path.data()) : 0;
    if (size == 0) {
        return kFailed;
    }
    if (delay_us) {
        DirtyPages::lower();
    }
    HAL_LOG(HAL_LOG_INFO, "start backup partiton %s\n", path.data());
    if (!copy(path.data(), part, size, delay_us)) {
        HAL_LOG(HAL_LOG_ERROR, "backup partiton %s failed.\n", path.data());
        return kFailed;
    }
    HAL_LOG(HAL_LOG_INFO, "backup partiton %s is ok! ERR_CODE = %d\n", part, kOk);
    return kBackedUp;
}

bool too_long(const char* part) {
    return part != nullptr && !fits(part);
}

} // namespace

int32_t hal_partition_update(const char* img_path, const char* part, uint32_t img_offset,
                             uint32_t img_len) {
    if (part == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "please set the partition to be upgraded, ERR_CODE = %d\n",
                kNoPartition);
        return kFailed;
    }
    if (img_path == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "img_path is NULL, ERR_CODE = %d\n", kNoImagePath);
        return kFailed;
    }
    uint32_t header_len = 0;
    hal::ImageFile image(img_path); // once: what is checked is what is written
    const int32_t result = hal::check_oem_image(image, img_path, img_offset, img_len, &header_len);
    if (result < 0) {
        HAL_LOG(HAL_LOG_ERROR, "kaOemMd5 failed!\n");
        return kFailed;
    }
    HAL_LOG(HAL_LOG_INFO, "start update partiton %s\n", part);
    if (write_open_image(image.descriptor(), img_path, part, uint64_t{img_offset} + header_len,
                         img_len - header_len) == 0) {
        HAL_LOG(HAL_LOG_ERROR, "writeImageToPartition failed.\n");
        return kFailed;
    }
    HAL_LOG(HAL_LOG_INFO, "update partiton %s is ok! ERR_CODE = %d\n", part, kOk);
    return result;
}

int32_t zeda_partition_backup(const char* part) {
    return too_long(part) ? kFailed : back_up(part, std::nullopt);
}

int32_t hal_partition_backup(const char* part) {
    return zeda_partition_backup(part);
}

int32_t zeda_partition_backup_withdelay(const char* part, uint32_t delay_us) {
    if (too_long(part)) {
        return kFailed;
    }
    const DirtyPages restored_at_the_end;
    return back_up(part, static_cast<uint16_t>(delay_us));
}
