// Writers that know nothing of the cable, while it is pulled and put in again: none of their writes
// may reach a descriptor that was closed, or what has its number since.

#include "tests/support/otg_port.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <thread>

namespace hal_test::otg {
namespace {

class OtgRace : public Port {};

TEST_F(OtgRace, WritersAgainstTheCable) {
    set_speed(50);
    bring_up();
    std::atomic<bool> stop{false};
    std::atomic<int> written{0};
    // They never rest: on one slow processor they would leave the library and the board no time to
    // get a cable out within the patience of this test. So they take what nobody else wants.
    const auto repeat = [&](auto deed) {
        return std::jthread([&stop, deed] {
            EXPECT_EQ(setpriority(PRIO_PROCESS, 0, 15), 0); // of this thread alone
            while (!stop) {
                deed();
            }
        });
    };
    const auto type = [&](std::uint32_t dev, std::uint8_t id, std::size_t length) {
        std::vector<std::uint8_t> bytes(length);
        bytes[0] = id;
        const hal_hid_data report{dev, static_cast<int32_t>(length), bytes.data()};
        const int32_t result = hal_hid_write(&report);
        EXPECT_TRUE(result == -8 || result == -1 || result == report.len) << result;
        written += result > 0 ? 1 : 0;
    };
    const auto answer = [&] {
        const std::array<std::uint8_t, 13> bytes{};
        const hal_mass_reply reply{0, bytes.size(), bytes.data(), 1};
        const int32_t result = hal_mass_write(&reply);
        EXPECT_TRUE(result == -7 || result == -1 || result == 13) << result;
        written += result > 0 ? 1 : 0;
    };
    // Takes every number that is let go, for a file that has to stay empty.
    const auto take_numbers = [] {
        const int fd = open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        ASSERT_GE(fd, 0);
        sched_yield();
        struct stat status {};
        EXPECT_EQ(fstat(fd, &status), 0);
        EXPECT_EQ(status.st_size, 0) << "a write for another descriptor";
        EXPECT_EQ(close(fd), 0);
    };
    {
        const std::jthread threads[] = {
            repeat([&] { type(0, 1, 9); }),
            repeat([&] { type(0, 2, 7); }),
            repeat([&] { type(1, 0x10, 64); }),
            repeat([&] { type(2, 2, 5); }),
            repeat(answer),
            repeat(answer),
            repeat(take_numbers),
        };
        for (int round = 0; round < 4; ++round) {
            EXPECT_EQ(hal_mass_init(nullptr, 1, nullptr), 0);
            EXPECT_TRUE(devices_are_open(true));
            EXPECT_TRUE(comes_true([] { return load_field(hal_mass_prv.mass_fd[0]) >= 0; }));
            const int before = written;
            EXPECT_TRUE(comes_true([&] { return written > before + 20; }));
            ask("host.unplug");
            EXPECT_TRUE(devices_are_open(false));
            EXPECT_TRUE(comes_true([] { return load_field(hal_mass_prv.thread_state) == 0; }));
            ask("host.plug");
            EXPECT_TRUE(devices_are_open(true));
        }
        stop = true;
        ask("host.unplug"); // of what still waits for the host
    }
}

} // namespace
} // namespace hal_test::otg
