// USB sticks as programs on a board see them: nodes, sysfs, uevents, fdisk, mount and umount.

#include "models/stick/partition_table.h"

#include "core/json.h"
#include "tests/run_on_board.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

namespace vb::stick_test {
namespace {

using testing::Contains;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class StickTest : public testing::Test {
  protected:
    // Runs a script on a board, in a folder of the test's own with two folders of files in it.
    CommandResult run(const std::string& script, const std::vector<std::string>& options = {}) {
        std::vector<std::string> words = options;
        words.insert(
            words.end(),
            {"--", "sh", "-c",
             "cd " + folder_.path() +
                 " && mkdir one two && echo first >'one/a [b].txt' && "
                 "mkdir one/Sub && echo deep >one/Sub/deep && "
                 "echo second >two/b && export LC_ALL=C.UTF-8\n" +
                 "plug() { vboard ctl stick plug $PWD/\"$@\" >/dev/null; }\n"
                 // but for the machine's control groups, which come and go
                 "nodes() { find /sys /dev -path /sys/fs/cgroup -prune -o -print | sort\n}\n"
                 "await() { end=$(($(date +%s) + 30)); until \"$@\"; do\n"
                 "[ $(date +%s) -lt $end ] || { echo never: \"$@\" >&2; return 1; }\n"
                 "done; }\n" +
                 script});
        return on_board(words);
    }

    TemporaryFolder folder_;
};

TEST_F(StickTest, ShowsItselfInNodesSysfsAndProcPartitionsWhileItIsIn) {
    const CommandResult seen =
        run("make_stick gpt s.img one two && before=$(nodes) && plug s.img\n"
            "cat /proc/partitions; cat /sys/class/block/sdb2/uevent /sys/block/sdb/sdb1/start\n"
            "readlink -f /sys/dev/block/8:17; cd /sys/block/sdb/device; cat vendor\n"
            "PATH=$PATH:/sbin:/usr/sbin; blockdev --getss --getsz /dev/sdb1\n"
            "cat /sys/class/block/sdb1/size\n"
            "vboard ctl stick unplug sdb; cat /proc/partitions >&2; cat /dev/sdb1\n"
            "[ \"$before\" = \"$(nodes)\" ] && echo as before\n"
            "vboard ctl stick unplug sdb || echo refused");
    EXPECT_THAT(seen.out, ContainsRegex("  8 +16 +[0-9]+ sdb\n +8 +17 +[0-9]+ sdb1\n"));
    EXPECT_THAT(seen.out, HasSubstr("MAJOR=8\nMINOR=18\nDEVNAME=sdb2\nDEVTYPE=partition\n"
                                    "DISKSEQ=2\nPARTN=2\n2048\n"));
    EXPECT_THAT(seen.out,
                HasSubstr("usb1/1-1/1-1:1.0/host1/target1:0:0/1:0:0:0/block/sdb/sdb1\nGeneral \n"
                          "512\n18432\n18432\nas before\nrefused\n"));
    EXPECT_THAT(seen.err, HasSubstr("1024 sda\ncat: "));
    EXPECT_THAT(seen.err, HasSubstr("/dev/sdb1: No such file"));
}

// The texts of the uevents that a trace has.
std::vector<std::string> uevents_in(const std::string& trace) {
    std::vector<std::string> texts;
    std::istringstream lines(trace);
    for (std::string line; std::getline(lines, line);) {
        const Json event = Json::parse(line);
        if (event.at("kind") == "uevent" && event.at("text").get<std::string>()[0] != '/') {
            texts.push_back(event.at("text"));
        }
    }
    return texts;
}

// "add@/devices/x/sdb\n...\nSUBSYSTEM=block\n..." -> "add sdb block"
std::string in_short(const std::string& text) {
    const std::string path = text.substr(0, text.find('\n'));
    const std::size_t subsystem = text.find("SUBSYSTEM=") + 10;
    return path.substr(0, path.find('@')) + " " + path.substr(path.rfind('/') + 1) + " " +
           text.substr(subsystem, text.find('\n', subsystem) - subsystem);
}

TEST_F(StickTest, TellsOfItselfInTheKernelsOrderAndUdevadmHearsIt) {
    const CommandResult heard = run(
        "make_stick mbr s.img one two >&2; PATH=$PATH:/sbin:/usr/sbin\n"
        "udevadm monitor --kernel --property >heard & monitor=$!\n"
        "told() { vboard ctl uevent send add /x '{\"SUBSYSTEM\":\"x\"}'; grep -q KERNEL heard; }\n"
        "await told\n"
        "plug s.img; echo change >/sys/block/sdb/uevent; blockdev --rereadpt /dev/sdb\n"
        "vboard ctl stick unplug sdb; vboard ctl uevent send remove /x '{\"SUBSYSTEM\":\"x\"}'\n"
        "await grep -q remove.*/x heard; kill $monitor; cat heard",
        {"--trace", folder_ / "trace"});
    const std::vector<std::string> told = uevents_in(contents_of(folder_ / "trace"));
    std::string order;
    std::size_t place = 0; // in what was heard
    for (const std::string& text : told) {
        if (text.find("=/x") != std::string::npos) {
            continue;
        }
        order += in_short(text) + "\n";
        // Between these may be the machine's own, where a sanitizer keeps a board in its user
        // namespace.
        const std::size_t path = text.find('@') + 1;
        place =
            heard.out.find("\nDEVPATH=" + text.substr(path, text.find('\n') + 1 - path), place + 1);
        ASSERT_NE(place, std::string::npos) << "not heard: " << text;
        const std::size_t from = heard.out.rfind("KERNEL[", place);
        const std::string block = heard.out.substr(from, heard.out.find("\n\n", from) - from);
        std::istringstream keys(text.substr(text.find('\n') + 1));
        for (std::string key; std::getline(keys, key);) {
            const bool node = key.starts_with("DEVNAME=");
            EXPECT_THAT(block, HasSubstr(node ? "\nDEVNAME=/dev/" + key.substr(8) : "\n" + key));
        }
    }
    EXPECT_EQ(order, "add 1-1 usb\nadd 1-1:1.0 usb\nadd scsi_tmf_1 workqueue\nadd host1 scsi\nadd "
                     "host1 scsi_host\n"
                     "bind 1-1:1.0 usb\nbind 1-1 usb\nadd target1:0:0 scsi\nadd 1:0:0:0 scsi\n"
                     "add 1:0:0:0 scsi_device\nadd 1:0:0:0 scsi_disk\nadd 8:16 bdi\nadd sdb block\n"
                     "add sdb1 block\nadd sdb2 block\nbind 1:0:0:0 scsi\nchange sdb block\n"
                     "remove sdb1 block\nremove sdb2 block\nadd sdb1 block\nadd sdb2 block\n"
                     "remove 1:0:0:0 scsi_device\nremove 1:0:0:0 scsi_disk\nremove sdb1 block\n"
                     "remove sdb2 block\nremove 8:16 bdi\nremove sdb block\nunbind 1:0:0:0 scsi\n"
                     "remove 1:0:0:0 scsi\nremove target1:0:0 scsi\nremove host1 scsi_host\n"
                     "remove host1 scsi\nremove scsi_tmf_1 workqueue\nunbind 1-1:1.0 usb\nremove "
                     "1-1:1.0 usb\nunbind 1-1 usb\n"
                     "remove 1-1 usb\n");
    EXPECT_THAT(told, Contains(HasSubstr("\nSUBSYSTEM=usb\nDEVTYPE=usb_interface\n"
                                         "DRIVER=usb-storage\nPRODUCT=abcd/1234/100\nTYPE=0/0/0\n"
                                         "INTERFACE=8/6/80\nMODALIAS=usb:vABCDp1234d0100dc00")));
    EXPECT_THAT(told, Contains(EndsWith("\nINTERFACE=8/6/80"))) << "when it is unbound";
    EXPECT_THAT(told, Contains(EndsWith("/block/sdb/sdb2\nSUBSYSTEM=block\nMAJOR=8\nMINOR=18\n"
                                        "DEVNAME=sdb2\nDEVTYPE=partition\nDISKSEQ=2\nPARTN=2")));
    EXPECT_THAT(told, Contains(HasSubstr("SUBSYSTEM=block\nSYNTH_UUID=0\nMAJOR=8\nMINOR=16\n")));
}

TEST_F(StickTest, TablesOfBothKindsAndOddDisksAreListedByFdisk) {
    const CommandResult listed =
        run("make_stick mbr m.img one two one two one two one two && plug m.img\n"
            "make_stick gpt g.img one two one two one two one two one && plug g.img rw sdaa\n"
            "make_stick none n.img one && plug n.img ro mmcblk1\n"
            "fdisk -l; echo; cat /proc/partitions\n"
            "echo x 2>&1 >/dev/mmcblk1; plug $PWD/m.img; truncate -s 700 odd; plug odd");
    for (const char* expected :
         {"Disk /dev/sdb: ", "/dev/sdb4 .* Extended", "/dev/sdb9 ",
          "Disk /dev/sdaa: ", "/dev/sdaa9 ", "Disk /dev/mmcblk1: .*\nDisk model: USB Flash Disk",
          " sdb9\n", " 1 sdb4\n", " sdaa9\n"}) {
        EXPECT_THAT(listed.out, ContainsRegex(expected));
    }
    EXPECT_THAT(listed.out, Not(HasSubstr("mmcblk1p")));
    EXPECT_THAT(listed.err, HasSubstr("a multiple of 512 is wanted"));
    EXPECT_THAT(listed.out + listed.err, HasSubstr("Read-only file system"));
}

TEST_F(StickTest, MountedFilesAreRealAndWhatIsWrittenIsOnTheStickAfterwards) {
    const CommandResult used = run(
        "make_stick mbr s.img one two && plug s.img; at=/mnt/dev/sdb1; mkdir -p $at\n"
        "mount /dev/sdb1 $at && cat \"$at/a [b].txt\" $at/Sub/deep && grep sdb1 /proc/mounts\n"
        "rm \"$at/a [b].txt\" && mkdir $at/New && echo new >\"$at/New/file [1] ü\"\n"
        "echo deeper >$at/Sub/deep && rm -r /mnt/dev/none 2>/dev/null\n"
        "umount $at && ls $at && vboard ctl stick unplug sdb && plug s.img\n"
        "mount -o ro,umask=0 /dev/sdb1 $at && (cd $at && find . -type f -exec cat {} + -print)\n"
        "echo x >$at/y; umount /dev/sdb1; grep sdb /proc/mounts; echo left $?");
    EXPECT_THAT(used.out, HasSubstr("first\ndeep\n/dev/sdb1 /mnt/dev/sdb1 tmpfs rw"));
    EXPECT_THAT(used.out, HasSubstr("./New/file [1] ü\n"));
    EXPECT_THAT(used.out, HasSubstr("new\n"));
    EXPECT_THAT(used.out, HasSubstr("deeper\n"));
    EXPECT_THAT(used.out, Not(HasSubstr("./a [b].txt")));
    EXPECT_THAT(used.out, HasSubstr("left 1\n"));
    EXPECT_THAT(used.err, HasSubstr("Read-only file system"));
    EXPECT_EQ(access("/mnt/dev/sdb1", F_OK), -1) << "the machine's";
}

TEST_F(StickTest, MountAndUmountFailAsTheKernelHasIt) {
    const CommandResult failed =
        run("head -c 2M /dev/zero >blank; make_stick mbr s.img one blank; plug s.img; mkdir at\n"
            "try() { \"$@\" 2>&1; echo \"= $?\"; }\n"
            "try mount /dev/sdz1 $PWD/at; try mount /dev/sdb1 $PWD/none\n"
            "try mount /dev/sdb2 $PWD/at; try mount -t ext4 /dev/sdb1 $PWD/at\n"
            "try umount $PWD/at; mount /dev/sdb1 at; try mount /dev/sdb1 at\n"
            "try blockdev --rereadpt /dev/sdb; (cd at && try umount $PWD/../at); ls at\n"
            "exec 3>at/held; vboard ctl stick unplug sdb; plug s.img; ls /dev/sd*\n"
            "cat at/Sub/deep; LD_PRELOAD= sleep 0.3; exec 3>&-\n"
            "refused() { ! echo x 2>&1 >at/lost; }; await refused; try umount at\n"
            "vboard ctl stick unplug sdc; plug s.img ro\n"
            "try mount /dev/sdb1 at; ls at; umount at; vboard ctl fault add "
            "/dev/sdb1:read:EIO >/dev/null; try mount /dev/sdb1 at; ls -A /dev/shm/.sticks");
    for (const char* expected :
         {"special device /dev/sdz1 does not exist.", "none: mount point does not exist.\n",
          "at: wrong fs type, bad option, bad superblock on /dev/sdb2,",
          "unknown filesystem type 'ext4'.\n       dmesg(1) may have more information after",
          "after failed mount system call.\n= 32", "at: not mounted.\n= 32",
          "/dev/sdb1 already mounted on ", "Device or resource busy", "at: target is busy.\n= 32",
          "Sub\na [b].txt\n/dev/sda\n/dev/sdc\n/dev/sdc1\n/dev/sdc2\ndeep\n",
          "Read-only file system\n= 0\n",
          "WARNING: source write-protected, mounted read-only.\n= 0\nSub\na [b].txt\n",
          "can't read superblock on /dev/sdb1.\n"}) {
        EXPECT_THAT(failed.out, HasSubstr(expected));
    }
    EXPECT_TRUE(failed.out.ends_with("= 32\n")) << "and nothing is left in memory: " << failed.out;
}

TEST_F(StickTest, PlugsAndUnplugsBalance) {
    const std::size_t times = HAL_SANITIZED != 0 ? 10 : 100; // a sanitizer's programs start slowly
    const CommandResult done =
        run("make_stick mbr s.img two two && state() { nodes | cksum; vboard ctl "
            "stick list; ls /mnt; }\nbefore=$(state); i=0; exec 3<two/b 4>/dev/null\n"
            "while [ $i -lt " +
                std::to_string(times) +
                " ]; do i=$((i + 1)); plug s.img && ls /dev/sdb2 >&4 && "
                "exec 3</dev/sdb2 && vboard ctl stick unplug sdb || exit 1; done; exec 3<&-\n"
                "after=$(state); [ \"$before\" = \"$after\" ] && echo balanced || echo "
                "\"$before$after\" >&2",
            {"--trace", folder_ / "trace"});
    EXPECT_EQ(done.out, "balanced\n") << done.err;
    const std::string trace = contents_of(folder_ / "trace");
    const auto count = [&](std::string_view text) {
        std::size_t found = 0;
        for (std::size_t at = trace.find(text); at != std::string::npos;
             at = trace.find(text, at + 1)) {
            ++found;
        }
        return found;
    };
    EXPECT_EQ(count("\"text\":\"add@"), times * 13);
    EXPECT_EQ(count("\"text\":\"remove@"), times * 13);
    EXPECT_EQ(count("\"kind\":\"bug\""), 0U);
}

// Tables that no tool would write.
TEST(PartitionTable, AnyBytesEndInPartitionsWithinTheDisk) {
    constexpr std::uint64_t kSector = BlockStore::kSector;
    TemporaryFolder folder;
    Board board(BoardClock::create(folder / "clock"));
    const auto find = [&](const std::vector<std::pair<std::size_t, std::uint8_t>>& bytes) {
        BlockDisk disk(board, UniqueFd(memfd_create("disk", MFD_CLOEXEC)), 64 * kSector);
        for (const auto& [place, byte] : bytes) {
            disk.write(Bytes{byte}, place, true);
        }
        auto found = stick::find_partitions(disk);
        std::mt19937_64 chance;
        disk.pull_out(chance);
        return found;
    };
    const auto slot = [](std::size_t sector, std::size_t i, std::uint8_t type, std::uint8_t start,
                         std::uint8_t count) {
        const std::size_t at = sector * kSector + 446 + i * 16;
        return std::vector<std::pair<std::size_t, std::uint8_t>>{{at + 4, type},
                                                                 {at + 8, start},
                                                                 {at + 12, count},
                                                                 {sector * kSector + 510, 0x55},
                                                                 {sector * kSector + 511, 0xAA}};
    };
    auto table = slot(0, 0, 0x0C, 60, 200); // across the end
    EXPECT_EQ(find(table).at(0).size, 4 * kSector);
    table.emplace_back(446, 0x12); // no flag: code
    EXPECT_TRUE(find(table).empty());
    EXPECT_TRUE(find(slot(0, 0, 0x0C, 64, 1)).empty()) << "behind the end";
    EXPECT_TRUE(find(slot(0, 0, 0xEE, 1, 63)).empty()) << "a GPT that is not there";
    // A chain whose link leads back to itself.
    auto circle = slot(0, 1, 0x05, 8, 50);
    for (const auto& more : {slot(8, 0, 0x0C, 1, 2), slot(8, 1, 0x05, 0, 50)}) {
        circle.insert(circle.end(), more.begin(), more.end());
    }
    const auto found = find(circle);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].size, 2 * kSector) << "the frame";
    EXPECT_EQ(found[1].number, 5U);
    EXPECT_EQ(found[1].offset, 9 * kSector);
}

} // namespace
} // namespace vb::stick_test
