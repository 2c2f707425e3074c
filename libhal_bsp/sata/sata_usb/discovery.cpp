// The bridge disk: where it appears, and its opening. It is target 0:0:0 at the first port of the
// board's SATA controller.
#include <hal_bsp/timing.h>

#include "sata/sata_usb/bridge.h"
#include "support/caller.h"
#include "support/command.h"
#include "support/fd.h"
#include "support/log.h"
#include "support/wait.h"

#include <atomic>
#include <cstdio>
#include <fcntl.h>

namespace {

using namespace hal::sata;
using namespace std::chrono_literals;

constexpr const char* kTarget = "/sys/devices/platform/soc/10390000.sata/ata1/host0/target0:0:0";
constexpr const char* kListing =
    "ls /sys/devices/platform/soc/10390000.sata/ata1/host0/target0:0:0/0:0:0:0/block/";
constexpr int kLooks = 600;

void wait_for_target() {
    for (int left = kLooks - 1; left >= 0; --left) {
        if (is_dir_exist(kTarget) != 0) {
            HAL_LOG(HAL_LOG_ERROR, "ata1/host0/target0:0:0 find, %d\n", left);
            return;
        }
        HAL_LOG(HAL_LOG_ERROR, "ata1/host0/target0:0:0 can't find, retry, %d\n", left);
        hal::rest(100ms);
    }
}

} // namespace

bool hal::sata::find_disk(Search search, DiskName& name) {
    if (search == Search::kPatient) {
        wait_for_target();
    }
    if (is_dir_exist(kTarget) == 0) {
        HAL_LOG(HAL_LOG_ERROR, "ata1/host0/target0:0:0 can't find\n");
        return false;
    }
    hal::CommandOutput output(kListing);
    if (!output) {
        HAL_LOG(HAL_LOG_ERROR, "open sata block error\n");
        return false;
    }
    const int names = output.keep_first_line(
        name, [](const char* text) { HAL_LOG(HAL_LOG_INFO, "sdx is :%s\n", text); });
    if (names == 0) {
        HAL_LOG(HAL_LOG_ERROR, "can't find sdx in "
                               "/sys/devices/platform/soc/10390000.sata/ata1/host0/target0:0:0/"
                               "0:0:0:0/block/!\n");
        return false;
    }
    return true;
}

bool hal::sata::open_disk(const DiskName& name, const char* opening) {
    const std::span<char> path(sata_usb_prv.sata_dev_path);
    const int length = std::snprintf(path.data(), path.size(), "/dev/%s", name.data());
    hal::Caller(kModule).log(HAL_LOG_INFO, opening, path.data());
    const bool is_whole = length > 0 && static_cast<std::size_t>(length) < path.size();
    hal::Fd fd = is_whole ? hal::open_fd(path.data(), O_RDWR) : hal::Fd(); // cut, it is another
    hal::close_shared(sata_usb_prv.sata_dev_fd);
    std::atomic_ref(sata_usb_prv.sata_dev_fd).store(fd.get());
    if (!fd) {
        HAL_LOG(HAL_LOG_ERROR, "open sata dev failed\n");
        return false;
    }
    static_cast<void>(fd.release());
    return true;
}

void hal::sata::test_read() {
    hal::rest(500ms);
    const std::unique_ptr<Block> unread = make_block();
    if (sata_read(unread.get(), MCU_BLOCK_BYTES, 0, 0) >= 0) {
        HAL_LOG(HAL_LOG_INFO, "sata test read success!\n");
    } else {
        HAL_LOG(HAL_LOG_ERROR, "sata test read fail!\n");
    }
}
