// Updates and backups on a board whose slot A runs.
#include "oem_image.h"
#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

namespace hal_test::partition {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;

const std::string kFolder = "/dev/block/by-name/";
const std::string kOther = kFolder + "system_b";
constexpr char kSource[] = "/dev/shm/source";

void fill(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string head(const std::string& path, std::size_t size) {
    std::string bytes(size, '\0');
    std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(size));
    return bytes;
}

std::string noise(std::size_t size) {
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), std::mt19937(static_cast<unsigned>(size)));
    return bytes;
}

std::string image_of(const std::string& payload) {
    fill(kSource, payload);
    std::uint64_t length = 0;
    EXPECT_EQ(oem_image_pack(kSource, "/dev/shm/image", &length), 0);
    return head("/dev/shm/image", length);
}

std::string printed_by(const char* command) {
    std::string text(4096, '\0');
    FILE* const pipe = popen(command, "r");
    text.resize(std::fread(text.data(), 1, text.size(), pipe));
    pclose(pipe);
    return text;
}

class Partition : public OnBoard {
  protected:
    void TearDown() override {
        for (const std::string& node : gone_) {
            appear(node);
        }
        OnBoard::TearDown();
    }
    void take_away(const std::string& node) {
        vanish(node);
        gone_.push_back(node);
    }
    std::size_t count(const std::string& kind, const std::string& node) {
        return events({{"kind", kind}, {"node", node}}).size();
    }

  private:
    std::vector<std::string> gone_;
};

TEST_F(Partition, SizesAreThoseOfTheBoard) {
    EXPECT_EQ(get_kernel_partition_size("/dev/block/by-name/boot_a"), 16U << 20);
    EXPECT_EQ(get_rootfs_partition_size("/dev/block/by-name/misc"), 65536U);
    EXPECT_EQ(get_kernel_partition_size("/no/such"), 0U);
    EXPECT_EQ(get_rootfs_partition_size(nullptr), 0U);
    EXPECT_THAT(logged(), ElementsAre("/dev/block/by-name/boot_a size is 16777216\n",
                                      "/dev/block/by-name/misc size is 65536\n",
                                      "open /no/such failed.\n", "open (null) failed.\n"));
}

TEST_F(Partition, WriterFillsTheLastBlockWithZerosAndFlushesOnce) {
    const std::string payload = noise(20000);
    fill(kOther, std::string(49152, 'x'));
    fill(kSource, "header" + payload + "rest");
    forget_trace();
    EXPECT_EQ(writeImageToCustomPart(kSource, "system", 6, 20000), 1);
    EXPECT_EQ(head(kOther, 49152), payload + std::string(12768, '\0') + std::string(16384, 'x'));
    EXPECT_EQ(count("write", kOther), 2U);
    EXPECT_EQ(count("fsync", kOther), 1U);
    EXPECT_THAT(logged(), ElementsAre("writeImageToCustomPart ==== part:system\n",
                                      "getPartitionType===== name:system\n", "boot from slot_a.\n",
                                      "getPartitionType===== tmp_name:system_b\n",
                                      "getPartitionType is /dev/block/by-name/system_b\n",
                                      "write image of system to /dev/block/by-name/system_b.\n",
                                      "filesize 20000\n"));
    forget_trace();
    EXPECT_EQ(writeImageToCustomPart_withdealy(kSource, "system", 0, 0, 1), 1);
    EXPECT_EQ(head(kOther, 20010), "header" + payload + "rest");
    EXPECT_THAT(logged().front(), "writeImageToCustomPart ==== part:system, delay_time: 1\n");
}

TEST_F(Partition, WriterSaysWhatFailed) {
    fill(kSource, "abc");
    const struct {
        const char* source;
        const char* part;
        std::uint64_t offset;
        std::uint64_t size;
        const char* error;
    } cases[] = {
        {kSource, "vbmeta", 0, 0, "vbmeta partition not found, ERR_CODE = 6\n"},
        {kSource, nullptr, 0, 0, "(null) partition not found, ERR_CODE = 6\n"},
        {"/no/such", "system", 0, 0, "Can't open /no/such, ERR_CODE = 7\n"},
        {nullptr, "system", 0, 0, "Can't open (null), ERR_CODE = 7\n"},
        {kSource, "system", 1, 0, "Read failed(No data available), ERR_CODE = 9\n"},
        {kSource, "system", ~0ULL, 3, "Read failed(Invalid argument), ERR_CODE = 9\n"},
        {"/dev/shm", "system", 0, 8, "Read failed(Is a directory), ERR_CODE = 9\n"},
        {"/dev/zero", "uboot", 0, (4U << 20) + 1,
         "Write failed(No space left on device), ERR_CODE = 10\n"},
    };
    for (const auto& each : cases) {
        forget_trace();
        EXPECT_EQ(writeImageToCustomPart(each.source, each.part, each.offset, each.size), 0);
        EXPECT_THAT(logged("ERROR"), ElementsAre(each.error));
    }
    take_away(kOther);
    forget_trace();
    EXPECT_EQ(writeImageToCustomPart(kSource, "system", 0, 0), 0);
    EXPECT_THAT(logged("ERROR"),
                ElementsAre("Can't open /dev/block/by-name/system_b\n, ERR_CODE = 8\n"));
}

TEST_F(Partition, WriterSurvivesTheFailureOfAnyCallOnItsTarget) {
    fill(kSource, noise(40000));
    std::vector<std::string> errors;
    sweep(
        kOther, "EIO",
        [&] {
            forget_trace();
            const bool done = writeImageToCustomPart(kSource, "system", 0, 0) == 1;
            const auto said = logged("ERROR");
            EXPECT_EQ(said.size(), done ? 0U : 1U);
            errors.push_back(done ? "" : said.front().substr(0, 12));
        },
        [](bool) {});
    EXPECT_THAT(errors,
                ElementsAre("Can't open /", "Write failed", "Write failed", "Write failed", "", ""))
        << "the open, three blocks, the flush, whose result nobody looks at";
}

TEST_F(Partition, UpdateWritesThePayloadOfAGoodImage) {
    const std::string payload = noise(16384);
    const std::string image = image_of(payload);
    fill(kSource, "front" + image);
    forget_trace();
    EXPECT_EQ(hal_partition_update(kSource, "system", 5, static_cast<std::uint32_t>(image.size())),
              1);
    EXPECT_EQ(head(kOther, 16384), payload);
    EXPECT_THAT(logged("INFO"), AllOf(Contains("start update partiton system\n"),
                                      Contains("update partiton system is ok! ERR_CODE = 0\n")));
}

// Whose path is another file's by the time that it is written.
TEST_F(Partition, UpdateWritesWhatItHasChecked) {
    const std::string payload = noise(16384);
    const std::string image = image_of(payload);
    const std::string other = std::string(kSource) + ".other";
    fill(kSource, image);
    fill(other, std::string(image.size(), '!'));
    static std::string open_in_children;
    log_add_callback(
        [](log_event* event) {
            if (std::strcmp(event->fmt, "start update partiton %s\n") == 0) {
                std::rename((std::string(kSource) + ".other").c_str(), kSource);
                open_in_children = printed_by("ls -l /proc/self/fd");
            }
        },
        nullptr, HAL_LOG_INFO);
    EXPECT_EQ(hal_partition_update(kSource, "system", 0, static_cast<std::uint32_t>(image.size())),
              1);
    EXPECT_EQ(head(kOther, 16384), payload);
    EXPECT_THAT(open_in_children,
                AllOf(testing::HasSubstr("/proc/"), Not(testing::HasSubstr(kSource))));
}

TEST_F(Partition, UpdateOpensNoPartitionForABadImage) {
    const std::string good = image_of(noise(100));
    std::string bad = good;
    bad.back() ^= 1;
    forget_trace();
    for (const auto& [image, last] :
         {std::pair(bad, "kaOemMd5 failed!\n"), std::pair("Yeda" + good, "kaOemMd5 failed!\n")}) {
        fill(kSource, image);
        EXPECT_EQ(
            hal_partition_update(kSource, "system", 0, static_cast<std::uint32_t>(good.size())),
            -1);
        EXPECT_EQ(logged("ERROR").back(), last);
    }
    EXPECT_EQ(hal_partition_update(nullptr, nullptr, 0, 8), -1);
    EXPECT_EQ(logged("ERROR").back(), "please set the partition to be upgraded, ERR_CODE = 6\n");
    EXPECT_EQ(hal_partition_update(nullptr, "system", 0, 8), -1);
    EXPECT_EQ(logged("ERROR").back(), "img_path is NULL, ERR_CODE = 3\n");
    EXPECT_EQ(count("open", kOther), 0U);

    const std::string empty = image_of("");
    fill(kSource, empty + "behind");
    EXPECT_EQ(hal_partition_update(kSource, "system", 0, static_cast<std::uint32_t>(empty.size())),
              -1);
    EXPECT_THAT(logged("ERROR"), Contains("writeImageToPartition failed.\n"));
}

TEST_F(Partition, BackupCopiesTheRunningSlot) {
    const std::string contents = noise(1 << 20);
    fill(kFolder + "boot_a", contents);
    EXPECT_EQ(hal_partition_backup("boot"), 0);
    EXPECT_EQ(head(kFolder + "boot_b", contents.size()), contents);
    EXPECT_THAT(logged("INFO"), AllOf(Contains("start backup partiton /dev/block/by-name/boot_a\n"),
                                      Contains("backup partiton boot is ok! ERR_CODE = 0\n")));
    forget_trace();
    EXPECT_EQ(zeda_partition_backup("oem"), -1);
    EXPECT_EQ(zeda_partition_backup(nullptr), -1);
    EXPECT_EQ(zeda_partition_backup(std::string(98, 'x').c_str()), -1);
    take_away(kOther);
    EXPECT_EQ(zeda_partition_backup("system"), -1);
    take_away(kFolder + "system_a");
    EXPECT_EQ(zeda_partition_backup("system"), -1);
    EXPECT_THAT(logged("ERROR"),
                ElementsAre("unknow partition name: oem!\n",
                            "please set the partition to be backup, ERR_CODE = 6\n",
                            "Can't open /dev/block/by-name/system_b\n, ERR_CODE = 8\n",
                            "backup partiton /dev/block/by-name/system_a failed.\n",
                            "open /dev/block/by-name/system_a failed.\n",
                            "get_rootfs_partition_size failed\n"));
}

TEST_F(Partition, BackupWithDelayRestoresTheDirtyPagesHoweverItEnds) {
    // A sysctl that takes notes.
    fs::create_directory("/dev/shm/bin");
    fill("/dev/shm/bin/sysctl", "#!/bin/sh\necho \"$*\" >> /dev/shm/sysctl.log\n");
    fs::permissions("/dev/shm/bin/sysctl", fs::perms::all);
    setenv("PATH", (std::string("/dev/shm/bin:") + std::getenv("PATH")).c_str(), 1);
    const std::string restored = "-w vm.dirty_background_ratio=10\n-w vm.dirty_ratio=20\n";
    const std::string lowered = "-w vm.dirty_background_ratio=1\n-w vm.dirty_ratio=1\n";
    const struct {
        const char* part;
        std::int32_t result;
        std::string commands;
    } cases[] = {{"boot", 0, lowered + restored}, {nullptr, -1, restored}, {"oem", -1, restored}};
    for (const auto& each : cases) {
        fs::remove("/dev/shm/sysctl.log");
        forget_trace();
        EXPECT_EQ(zeda_partition_backup_withdelay(each.part, 0x10001), each.result);
        EXPECT_EQ(head("/dev/shm/sysctl.log", each.commands.size() + 5),
                  each.commands + std::string(5, '\0'));
        EXPECT_EQ(logged("INFO").back(), "set vm.dirty_background_rati=10, vm.dirty_ratio=20\n");
    }
    fs::remove("/dev/shm/sysctl.log");
    EXPECT_EQ(zeda_partition_backup_withdelay(std::string(98, 'x').c_str(), 1), -1);
    EXPECT_FALSE(fs::exists("/dev/shm/sysctl.log"));
}

} // namespace
} // namespace hal_test::partition
