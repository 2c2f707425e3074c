// Boot-control records: the first byte says what to do, the rest is the misc partition. Half of
// the runs get a right checksum, without which hardly one would be believed. What is stored
// afterwards has to verify, unless it could not be read at all.
#include "file_of_bytes.h"

#include "hal/hal_absystem/record.h"

#include <hal_bsp/log.h>

#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <vector>

namespace {

int misc = -1;

} // namespace

// Stands before the C library's: the partition is what this run was given.
extern "C" int open(const char* path, int flags, ...) {
    if (std::strcmp(path, "/dev/block/by-name/misc") == 0) {
        return fcntl(misc, F_DUPFD_CLOEXEC, 3);
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    log_set_quiet(true);
    const std::uint8_t deed = size > 0 ? data[0] : 0;
    std::vector<std::uint8_t> bytes(HAL_AVB_RECORD_OFFSET);
    bytes.insert(bytes.end(), data + (size > 0 ? 1 : 0), data + size);
    const bool whole = bytes.size() >= HAL_AVB_RECORD_OFFSET + sizeof(avb_ctrl_block);
    avb_ctrl_block record{};
    if (whole && (deed & 1) != 0) {
        std::memcpy(&record, bytes.data() + HAL_AVB_RECORD_OFFSET, sizeof record);
        hal::avb::update_crc(record);
        std::memcpy(bytes.data() + HAL_AVB_RECORD_OFFSET, &record, sizeof record);
    }
    const hal_fuzz::FileOfBytes file(bytes);
    misc = file.fd();
    const auto slot = static_cast<std::uint8_t>(deed >> 4 & 3);
    const auto tries = static_cast<std::uint8_t>(deed >> 6);
    hal_avb_data_show();
    switch (deed >> 1 & 3) {
    case 0:
        hal_avb_set_retry(slot, tries);
        break;
    case 1:
        hal_avb_set_bootslot(slot);
        break;
    case 2:
        hal_avb_set_now();
        break;
    default:
        hal_absystem_switch();
    }
    if (whole && (pread(misc, &record, sizeof record, HAL_AVB_RECORD_OFFSET) !=
                      static_cast<ssize_t>(sizeof record) ||
                  !hal::avb::verify(record))) {
        std::abort();
    }
    return 0;
}
