// Which slot runs, and which partition that makes the target.
#include <hal_bsp/partition.h>

#include "hal/hal_partitionupdate/partitions.h"
#include "support/fd.h"
#include "support/log.h"
#include "support/text.h"
#include "support/transfer.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace hal::partition {

bool fits(const char* name) {
    return strnlen(name, kNameMax + 1) <= kNameMax;
}

const char* suffix_of(int slot) {
    return slot == HAL_SLOT_A ? "_a" : "_b";
}

} // namespace hal::partition

namespace {

using namespace hal::partition;

constexpr int32_t kFound = 1;
constexpr int32_t kNotFound = 0;

using KernelArguments = std::array<char, 1024 + 1>;

// A text; empty where it cannot be read.
KernelArguments kernel_arguments() {
    KernelArguments text{};
    const hal::Fd file = hal::open_fd("/proc/cmdline", O_RDONLY);
    if (!file || hal::read_some(file.get(), text.data(), text.size() - 1) < 0) {
        text.front() = '\0';
    }
    return text;
}

uint64_t partition_size(const char* path) {
    const hal::Fd device = path != nullptr ? hal::open_fd(path, O_RDONLY) : hal::Fd();
    if (!device) {
        HAL_LOG(HAL_LOG_ERROR, "open %s failed.\n", hal::shown(path));
        return 0;
    }
    const off_t end = lseek(device.get(), 0, SEEK_END);
    const uint64_t size = end < 0 ? 0 : static_cast<uint64_t>(end);
    HAL_LOG(HAL_LOG_INFO, "%s size is %llu\n", path, static_cast<unsigned long long>(size));
    return size;
}

// With room for a name that fits and its suffix.
using FullName = std::array<char, 100>;
static_assert(std::tuple_size_v<FullName> == kNameMax + sizeof "_a");

int32_t find_record(const char* full_name, char* path) {
    HAL_LOG(HAL_LOG_INFO, "getPartitionType===== tmp_name:%s\n", full_name);
    for (const Partition& record : kPartitions) {
        if (std::strcmp(record.name.data(), full_name) == 0) {
            HAL_LOG(HAL_LOG_INFO, "getPartitionType is %s\n", record.path.data());
            std::strcpy(path, record.path.data()); // NOLINT: the record's size is the buffer's
            return kFound;
        }
    }
    return kNotFound;
}

} // namespace

uint64_t get_kernel_partition_size(const char* path) {
    return partition_size(path);
}

uint64_t get_rootfs_partition_size(const char* path) {
    return partition_size(path);
}

int32_t getNowSlot(void) {
    const KernelArguments text = kernel_arguments();
    const char* const key = std::strstr(text.data(), "androidboot.slot_suffix");
    if (key == nullptr) {
        return HAL_SLOT_B;
    }
    const char* const equals = std::strchr(key, '=');
    // The letter behind the underscore, if the text goes on so far.
    const char letter = equals != nullptr && equals[1] != '\0' ? equals[2] : '\0';
    if (letter == 'a') {
        HAL_LOG(HAL_LOG_INFO, "boot from slot_a.\n");
        return HAL_SLOT_A;
    }
    if (letter == 'b') {
        HAL_LOG(HAL_LOG_INFO, "boot from slot_b.\n");
        return HAL_SLOT_B;
    }
    HAL_LOG(HAL_LOG_WARN, "unknow boot from where\n");
    return HAL_SLOT_UNKNOWN;
}

int32_t getPartitionType(const char* name, char* path) {
    HAL_LOG(HAL_LOG_INFO, "getPartitionType===== name:%s\n", hal::shown(name));
    if (name == nullptr || path == nullptr || !fits(name)) {
        return kNotFound;
    }
    if (std::strcmp(name, "uboot") == 0) {
        HAL_LOG(HAL_LOG_INFO, "uboot partition\n");
        return find_record(name, path);
    }
    const int32_t running = getNowSlot();
    if (running == HAL_SLOT_UNKNOWN) {
        return kNotFound;
    }
    FullName full_name{};
    std::snprintf(full_name.data(), full_name.size(), "%s%s", name, suffix_of(1 - running));
    return find_record(full_name.data(), path);
}
