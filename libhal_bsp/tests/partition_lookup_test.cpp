// Which slot runs and where an update goes, by command lines that no board of ours would give.
#include "tests/support/log_tap.h"

#include <hal_bsp/partition.h>

#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace hal_test::partition_lookup {
namespace {

const std::string& cmdline_path() {
    static const std::string path =
        std::filesystem::temp_directory_path() / ("cmdline." + std::to_string(getpid()));
    return path;
}

} // namespace
} // namespace hal_test::partition_lookup

// Stands before the C library's.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    using hal_test::partition_lookup::cmdline_path;
    const bool redirected = std::strcmp(path, "/proc/cmdline") == 0;
    return static_cast<int>(
        syscall(SYS_openat, AT_FDCWD, redirected ? cmdline_path().c_str() : path, flags, mode));
}

namespace hal_test::partition_lookup {
namespace {

TEST(Lookup, TakesTheSlotFromTheCommandLine) {
    log_set_quiet(true);
    const std::string key = "androidboot.slot_suffix";
    const std::string unknown = "WARN unknow boot from where\n";
    const struct {
        std::string text;
        std::int32_t slot;
        std::string logged;
    } cases[] = {
        {"ro " + key + "=_a quiet\n", 0, "INFO boot from slot_a.\n"},
        {key + "=_b", 1, "INFO boot from slot_b.\n"},
        {key + "=_b x=_a", 1, "INFO boot from slot_b.\n"},
        {key + " x=_a", 0, "INFO boot from slot_a.\n"},
        {key + "=_c", 2, unknown},
        {key + "=", 2, unknown},
        {key + "=_", 2, unknown},
        {key, 2, unknown},
        {"slot_suffix=_a", 1, ""},
        {"", 1, ""},
        {std::string(1024 - key.size(), ' ') + key + "=_a", 2, unknown},
        {std::string(1024, ' ') + key + "=_a", 1, ""},
    };
    for (const auto& each : cases) {
        std::ofstream(cmdline_path()) << each.text;
        LogTap::instance().take();
        EXPECT_EQ(getNowSlot(), each.slot) << each.text;
        const auto lines = LogTap::instance().take_lines();
        EXPECT_EQ(lines.empty() ? "" : lines.front(), each.logged) << each.text;
    }
    std::filesystem::remove(cmdline_path());
    EXPECT_EQ(getNowSlot(), 1) << "without a command line";
}

TEST(Lookup, FindsThePartitionOfTheOtherSlot) {
    log_set_quiet(true);
    const std::string folder = "/dev/block/by-name/";
    for (const char running : {'a', 'b', 'c'}) {
        std::ofstream(cmdline_path()) << "androidboot.slot_suffix=_" << running;
        for (const std::string name : {"uboot", "boot", "system", "oem", "custom", "vbmeta", "misc",
                                       "system_a", "uboot_a", ""}) {
            const bool known = name == "boot" || name == "system" || name == "oem" ||
                               name == "custom" || (name == "vbmeta" && running == 'b');
            std::string expected = name == "uboot" ? folder + name : "untouched";
            if (known && running != 'c') {
                expected = folder + name + (running == 'a' ? "_b" : "_a");
            }
            char path[HAL_PARTITION_PATH_MAX] = "untouched";
            EXPECT_EQ(getPartitionType(name.c_str(), path), expected == "untouched" ? 0 : 1);
            EXPECT_EQ(path, expected) << running << ' ' << name;
        }
    }
    char path[HAL_PARTITION_PATH_MAX];
    EXPECT_EQ(getPartitionType(std::string(98, 'x').c_str(), path), 0);
    EXPECT_EQ(getPartitionType(nullptr, path), 0);
    EXPECT_EQ(getPartitionType("uboot", nullptr), 0);
    std::filesystem::remove(cmdline_path());
}

} // namespace
} // namespace hal_test::partition_lookup
