// USB sticks: which commands are run, and what the application is told. The commands are this
// test's own: the library's calls of system and popen come here.

#include "core/unique_fd.h"
#include "tests/support/log_tap.h"
#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <linux/netlink.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cstring>
#include <map>

namespace hal_test::usb {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using Texts = std::vector<std::string>;

Heard<std::string> commands;
std::map<std::string, std::string> listings; // what popen's commands print
std::atomic<time_t> clock_offset{0};         // of the time of day, in seconds
std::atomic<bool> mounts_hang{false};

} // namespace
} // namespace hal_test::usb

extern "C" int
system(const char* command) { // NOLINT(readability-inconsistent-declaration-parameter-name)
    hal_test::usb::commands.add(command);
    if (std::string_view(command).starts_with("mount")) {
        EXPECT_TRUE(hal_test::comes_true([] { return !hal_test::usb::mounts_hang; }));
    }
    return 1; // nobody asks
}

extern "C" FILE* // NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
popen(const char* command, [[maybe_unused]] const char* mode) {
    hal_test::usb::commands.add(command);
    FILE* const output = std::tmpfile();
    const auto listing = hal_test::usb::listings.find(command); // any thread's
    std::fputs(listing == hal_test::usb::listings.end() ? "" : listing->second.c_str(), output);
    std::rewind(output);
    return output;
}

extern "C" int pclose(FILE* output) { // NOLINT(readability-inconsistent-declaration-parameter-name)
    return std::fclose(output);
}

extern "C" int // NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
gettimeofday(timeval* time, [[maybe_unused]] void* zone) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    *time = {now.tv_sec + hal_test::usb::clock_offset, now.tv_nsec / 1000};
    return 0;
}

namespace hal_test::usb {
namespace {

// A list, as the callback gets it: "+ /mnt/dev/sda1 ..." or "- ...".
Heard<std::string> told;

void tell(usb_disk_list* list) {
    std::string text(list->action == HAL_USB_ADDED ? "+" : "-");
    for (std::size_t i = 0; i < list->count; ++i) {
        text += std::string(" ") + list->path[i];
    }
    told.add(text);
}

bool is_clear(const usb_disk_list& list) {
    static constexpr usb_disk_list kClear{};
    // What lies between the fields is cleared, too.
    // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison,cert-exp42-c,cert-flp37-c)
    return std::memcmp(&list, &kClear, sizeof list) == 0;
}

class Usb : public OnBoard {
  protected:
    void partition(const std::string& action, const std::string& path,
                   const std::string& type = "partition") {
        ask("uevent.send", {{"action", action},
                            {"devpath", "/devices/usb1/block" + path},
                            {"values", {{"SUBSYSTEM", "block"}, {"DEVTYPE", type}}}});
    }
    // Until the automount thread hears, and has heard all of this.
    void await_thread() {
        EXPECT_TRUE(comes_true([&] {
            partition("remove", "/sdz/sdz9");
            return !told.all().empty();
        }));
        partition("add", "/sdy/sdy1");
        EXPECT_TRUE(comes_true([] { return told.all().back().ends_with("/sdy1"); }));
        commands.clear();
        told.clear();
    }
    static std::string told_next() {
        const Texts all = told.wait_for(1);
        told.clear();
        return all.empty() ? "nothing" : all.front();
    }
    usb_disk_list list_{};
};

const std::string kListDisks = "fdisk -l | grep '/dev/sd[[:lower:]]' -w";

TEST_F(Usb, AScanTellsOfEachDiskOnceAndOfNinePartitionsInTwoLists) {
    std::atomic_ref(gst_usb_info.usb_disk_cb).store(tell);
    std::string nine;
    for (char i = '1'; i <= '9'; ++i) {
        nine += std::string("/dev/sda") + i + " *  2048 /dev/sdq1\n";
    }
    listings[kListDisks] = "Disk /dev/sda: 8 GiB\n" + std::string(1022, 'x') + "\n/dev/sdC\n" +
                           std::string(5000, 'y') + "/dev/sdb: $(reboot)\nDisk /dev/sdc: 1 GiB";
    listings["fdisk -l | grep \"/dev/sda[[:digit:]]\""] = nine;
    listings["fdisk -l | grep \"/dev/sdc[[:digit:]]\""] = "nothing\n/dev/sdc12;reboot\n";
    std::memset(&list_, 0xFF, sizeof list_);
    EXPECT_EQ(find_usb_disk_once(&list_), 0);
    EXPECT_TRUE(is_clear(list_));
    Texts expected{kListDisks, "fdisk -l | grep \"/dev/sda[[:digit:]]\""};
    for (char i = '1'; i <= '9'; ++i) {
        expected.push_back(std::string("mkdir -p /mnt/dev/sda") + i);
        expected.push_back(std::string("mount /dev/sda") + i + " /mnt/dev/sda" + i);
    }
    for (const char* more :
         {"fdisk -l | grep \"/dev/sdb[[:digit:]]\"", "fdisk -l | grep \"/dev/sdc[[:digit:]]\"",
          "mkdir -p /mnt/dev/sdc1", "mount /dev/sdc1 /mnt/dev/sdc1"}) {
        expected.emplace_back(more);
    }
    EXPECT_EQ(commands.all(), expected);
    EXPECT_THAT(told.all(), ElementsAre("+ /mnt/dev/sda1 /mnt/dev/sda2 /mnt/dev/sda3 /mnt/dev/sda4 "
                                        "/mnt/dev/sda5 /mnt/dev/sda6 /mnt/dev/sda7 /mnt/dev/sda8",
                                        "+ /mnt/dev/sda9", "+ /mnt/dev/sdc1"));
    EXPECT_EQ(find_usb_disk_once(nullptr), -1);
    EXPECT_EQ(hal_usb_init(nullptr, &list_), -22);
    EXPECT_EQ(hal_usb_init(tell, nullptr), -22);
    EXPECT_EQ(netlink_process(nullptr), nullptr);
}

TEST_F(Usb, SticksAreMountedAsTheyComeAndToldOfWhenItIsQuiet) {
    in_a_new_process([&] {
        ASSERT_EQ(hal_usb_init(tell, &list_), 0);
        await_thread();
        LogTap::instance().take();
        const auto start = std::chrono::steady_clock::now();
        for (const char* odd : {"/nvme0n1/nvme0n1p1", "/sd;/sd;1", "/sdaa/sdaa1",
                                "/sd\xC3\xA4/sd\xC3\xA4"
                                "1"}) {
            partition("add", odd);
        }
        partition("add", "/sdb/sdb1", "disk");
        partition("add", "/sdb/sdb1");
        partition("add", "/sdb/sdb2");
        EXPECT_EQ(told_next(), "+ /mnt/dev/sdb1 /mnt/dev/sdb2");
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
        EXPECT_THAT(LogTap::instance().take_lines(),
                    ElementsAre("INFO netlink_process /mnt/dev/sdb1\n",
                                "INFO netlink_process mkdir -p /mnt/dev/sdb1\n",
                                "INFO netlink_process mount /dev/sdb1 /mnt/dev/sdb1\n",
                                "INFO netlink_process /mnt/dev/sdb2\n",
                                "INFO netlink_process mkdir -p /mnt/dev/sdb2\n",
                                "INFO netlink_process mount /dev/sdb2 /mnt/dev/sdb2\n"));
        partition("remove", "/sdb/sdb2");
        EXPECT_EQ(told_next(), "- /mnt/dev/sdb2");
        EXPECT_THAT(commands.all(),
                    ElementsAre("mkdir -p /mnt/dev/sdb1", "mount /dev/sdb1 /mnt/dev/sdb1",
                                "mkdir -p /mnt/dev/sdb2", "mount /dev/sdb2 /mnt/dev/sdb2",
                                "umount /mnt/dev/sdb2"));
        partition("add", "/sdc/sdc1");
        partition("remove", "/sdc/sdc1");
        EXPECT_EQ(told_next(), "- /mnt/dev/sdc1 /mnt/dev/sdc1");

        commands.clear(); // the clock goes back while a list is to be told
        LogTap::instance().take();
        partition("remove", "/sdc/sdc1");
        commands.wait_for(1);
        clock_offset = -10;
        EXPECT_TRUE(comes_true([] {
            const Texts lines = LogTap::instance().take_lines();
            return !lines.empty() && lines.back() == "INFO netlink_process time err\n";
        }));
        partition("add", "/sdc/sdc2");
        EXPECT_EQ(told_next(), "+ /mnt/dev/sdc2");
        EXPECT_EQ(hal_usb_deinit(), 0);
    });
}

TEST_F(Usb, AnyMessageIsSurvivedAndTheFirst4096BytesOfItCount) {
    in_a_new_process([&] {
        ASSERT_EQ(hal_usb_init(tell, &list_), 0);
        await_thread();
        const vb::UniqueFd sender(
            socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
        // Ends with what makes it a partition's.
        const auto send = [&](std::size_t length, const std::string& disk) {
            sockaddr_nl kernel_group{};
            kernel_group.nl_family = AF_NETLINK;
            kernel_group.nl_groups = 1;
            const std::string text = "ACTION=add/" + disk + "/" + disk + "1SUBSYSTEM=block";
            std::string message =
                text + std::string(length - text.size() - 17, 'x') + "DEVTYPE=partition";
            sendto(sender.get(), message.data(), message.size(), 0,
                   reinterpret_cast<const sockaddr*>(&kernel_group), sizeof kernel_group);
        };
        send(4095, "sdd");
        send(4096, "sde");
        send(4097, "sdf"); // its end is cut off
        EXPECT_EQ(told_next(), "+ /mnt/dev/sdd1 /mnt/dev/sde1");
        for (int i = 0; i < 5000; ++i) {
            send(60 + static_cast<std::size_t>(i % 100) * 40, "s+;");
        }
        await_thread(); // of a burst the socket drops what does not fit
        for (char disk = 'a'; disk <= 'i'; ++disk) {
            partition("add", std::string("/sd") + disk + "/sd" + disk + "1");
        }
        EXPECT_THAT(told.wait_for(2), ElementsAre(EndsWith("/sdh1"), "+ /mnt/dev/sdi1"));
    });
}

TEST_F(Usb, AMountThatHangsHoldsUpWhatComesBehindItAndNothingIsLost) {
    in_a_new_process([&] {
        ASSERT_EQ(hal_usb_init(tell, &list_), 0);
        await_thread();
        mounts_hang = true;
        partition("add", "/sdb/sdb1");
        commands.wait_for(2);
        partition("remove", "/sdb/sdb1");
        partition("add", "/sdb/sdb1", "disk");
        partition("add", "/sdb/sdb1");
        mounts_hang = false;
        EXPECT_EQ(told_next(), "+ /mnt/dev/sdb1 /mnt/dev/sdb1 /mnt/dev/sdb1");
        EXPECT_THAT(commands.all(),
                    ElementsAre("mkdir -p /mnt/dev/sdb1", "mount /dev/sdb1 /mnt/dev/sdb1",
                                "umount /mnt/dev/sdb1", "mkdir -p /mnt/dev/sdb1",
                                "mount /dev/sdb1 /mnt/dev/sdb1"));
    });
}

// The callback may begin anew with another list, and free the one that it was given.
TEST_F(Usb, ASecondInitChangesCallbackAndListAndStartsNoSecondThread) {
    in_a_new_process([&] {
        auto* const first = new usb_disk_list{};
        static usb_disk_list second;
        static usb_disk_list* given;
        const auto renew = [](usb_disk_list* list) {
            given = list;
            EXPECT_EQ(hal_usb_init(tell, &second), 0);
            delete list;
        };
        ASSERT_EQ(hal_usb_init(renew, first), 0);
        const std::size_t threads_before = threads();
        EXPECT_TRUE(comes_true([&] {
            partition("remove", "/sdz/sdz9");
            return std::atomic_ref(gst_usb_info.disk_list).load() == &second;
        }));
        EXPECT_EQ(given, first);
        EXPECT_EQ(gst_usb_info.disk_list, &second);
        EXPECT_EQ(threads(), threads_before);
        await_thread();
    });
}

TEST(RegexMatch, CopiesTheFirstMatchOrNothing) {
    std::array<char, 10> out{"untouched"};
    const std::string untouched = out.data();
    const char* const pattern = "/sd[[:lower:]]/sd[[:lower:]][[:digit:]]";
    EXPECT_EQ(regex_match(nullptr, "x", out.data(), 10), -1);
    EXPECT_EQ(regex_match("x", nullptr, out.data(), 10), -1);
    EXPECT_EQ(regex_match("x", "x", nullptr, 10), -1);
    EXPECT_EQ(regex_match("x", "x", out.data(), 0), -1);
    EXPECT_EQ(regex_match("x", "y", out.data(), 10), -1);
    EXPECT_EQ(regex_match("x(", "x", out.data(), 10), -1) << "no pattern";
    EXPECT_EQ(regex_match(pattern, "/sda/sda1", out.data(), 9), -1) << "no room";
    EXPECT_EQ(out.data(), untouched);
    EXPECT_EQ(regex_match(pattern, "x/sda/sdb/sdb7/sdc/sdc1", out.data(), 10), 0);
    EXPECT_STREQ(out.data(), "/sdb/sdb7");
    EXPECT_EQ(regex_match("z*", "x", out.data(), 1), 0) << "an empty match is one";
    EXPECT_STREQ(out.data(), "");
}

} // namespace
} // namespace hal_test::usb
