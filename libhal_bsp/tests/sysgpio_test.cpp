// The kernel's GPIO lines against the board: what its files saw, what came back, what was said.

#include "tests/support/captured.h"
#include "tests/support/on_board.h"

#include <hal_bsp/sysgpio.h>

#include <fcntl.h>
#include <poll.h>
#include <thread>

namespace hal_test::sysgpio {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SysGpio : public OnBoard {
  protected:
    void SetUp() override {
        OnBoard::SetUp();
        for (const std::uint32_t line : {5U, 7U, 12U}) { // as on a new board
            util_gpio_get(line);
            drive_line(line, 0);
            gpio_unexport(line);
        }
        forget_trace();
    }
    Json show(unsigned line) { return ask("sysgpio.show", {{"line", line}}); }
    void drive_line(unsigned line, int level) {
        ask("sysgpio.drive", {{"line", line}, {"level", level}});
    }
    // The writes that were tried, as "FILE BYTES".
    std::vector<std::string> writes() {
        std::vector<std::string> all;
        for (const Json& event : events({{"kind", "write"}})) {
            const auto node = event["node"].get<std::string>();
            all.push_back(node.substr(node.rfind("gpio/") + 5) + " " +
                          event["bytes"].get<std::string>());
        }
        return all;
    }
    static short urgent(int fd, int milliseconds) {
        pollfd entry{fd, POLLPRI, 0};
        poll(&entry, 1, milliseconds);
        return static_cast<short>(entry.revents & POLLPRI);
    }
    static char value_at(int fd) {
        char value = '?';
        return pread(fd, &value, 1, 0) == 1 ? value : '!';
    }
};

TEST_F(SysGpio, SetExportsOnFirstUseAndGetMakesAnInputAgain) {
    EXPECT_EQ(util_gpio_set(12, 0x100), 0);
    EXPECT_THAT(writes(), ElementsAre("export 3132", "gpio12/direction 6f7574", "gpio12/value 31"));
    EXPECT_EQ(show(12).at("level"), 1);
    forget_trace();
    EXPECT_EQ(util_gpio_set(12, 0), 0);
    EXPECT_THAT(writes(), ElementsAre("gpio12/direction 6f7574", "gpio12/value 30"));
    EXPECT_EQ(show(12).at("level"), 0);
    EXPECT_EQ(show(12).at("direction"), "out");

    forget_trace();
    for (const int level : {0, 1}) {
        EXPECT_EQ(util_gpio_get(12), level);
        EXPECT_EQ(show(12).at("direction"), "in");
        drive_line(12, 1);
    }
    EXPECT_THAT(writes(), ElementsAre("gpio12/direction 696e", "gpio12/direction 696e"));
    gpio_unexport(471);
    forget_trace();
    EXPECT_EQ(util_gpio_get(471), 1) << "exported by the way";
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(SysGpio, WhatCannotBeExportedEndsSetAndGetInSilence) {
    const Captured errors(stderr);
    EXPECT_EQ(util_gpio_set(512, 1), -1) << "no such line";
    EXPECT_EQ(util_gpio_get(0x80000000), -1);
    EXPECT_THAT(writes(), ElementsAre("export 353132", "export 2d32313437343833363438"));
    add_fault("/sys/class/gpio/export:open:EACCES:once");
    EXPECT_EQ(util_gpio_set(12, 1), -1);
    ASSERT_EQ(util_gpio_set(12, 1), 0);
    add_fault("/sys/class/gpio/gpio12/value:read:short=0:once");
    EXPECT_EQ(util_gpio_get(12), -1) << "nothing to read";
    EXPECT_EQ(errors.text(), "");
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(SysGpio, PrimitivesDoOneStepEachAndLookAtNoWrite) {
    EXPECT_EQ(gpio_export(7), 0);
    EXPECT_EQ(gpio_export(7), 0) << "refused, which is not looked at";
    EXPECT_THAT(logged("INFO"), ElementsAre("gpio is 7\n", "gpio is 7\n"));
    EXPECT_EQ(gpio_set_dir(7, 2), 0);
    EXPECT_EQ(show(7).at("direction"), "out");
    EXPECT_EQ(gpio_set_edge(7, "both"), 0) << "refused for an output";
    EXPECT_EQ(gpio_set_dir(7, 0), 0);
    EXPECT_EQ(gpio_set_edge(7, "both"), 0);
    EXPECT_EQ(show(7).at("edge"), "both");
    EXPECT_EQ(gpio_set_edge(7, nullptr), -1);
    for (std::uint32_t level : {0U, 1U}) {
        std::uint32_t value = 77;
        EXPECT_EQ(gpio_get_value(7, &value), 0);
        EXPECT_EQ(value, level);
        drive_line(7, 1);
    }
    std::uint32_t kept = 77;
    add_fault("/sys/class/gpio/gpio7/value:read:EIO:once");
    EXPECT_EQ(gpio_get_value(7, &kept), 0);
    EXPECT_EQ(kept, 77U);
    EXPECT_EQ(gpio_get_value(7, nullptr), -1);
    EXPECT_EQ(gpio_unexport(7), 0);
    EXPECT_EQ(show(7).at("exported"), false);
    EXPECT_EQ(gpio_unexport(7), 0);
    EXPECT_THAT(writes(), ElementsAre("export 37", "export 37", "gpio7/direction 6f757400",
                                      "gpio7/edge 626f746800", "gpio7/direction 696e00",
                                      "gpio7/edge 626f746800", "unexport 37", "unexport 37"));
}

TEST_F(SysGpio, PrimitivesReportWhatTheyCannotOpen) {
    add_fault("/sys/class/gpio/*export:open:EACCES");
    const std::string absent = "No such file or directory\n";
    const Captured errors(stderr);
    std::uint32_t value = 77;
    EXPECT_EQ(gpio_export(9), -1);
    EXPECT_EQ(gpio_unexport(9), -1);
    EXPECT_EQ(gpio_set_dir(9, 1), -1);
    EXPECT_EQ(gpio_get_value(9, &value), -1);
    EXPECT_EQ(gpio_set_edge(9, "both"), -1);
    EXPECT_EQ(gpio_fd_open(0xFFFFFFFF), -1);
    EXPECT_EQ(value, 77U);
    EXPECT_EQ(errors.text(), "gpio/export: Permission denied\nPermission denied\n"
                             "gpio/direction: " +
                                 absent + "gpio/get-value: " + absent + "gpio/set-edge: " + absent +
                                 "gpio/fd_open: " + absent);
    clear_faults();
}

TEST_F(SysGpio, EdgesAreWaitedForOnTheValueDescriptor) {
    ASSERT_EQ(gpio_export(5), 0);
    ASSERT_EQ(gpio_set_edge(5, "falling"), 0);
    const int fd = gpio_fd_open(5);
    ASSERT_GT(fd, 2);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(events({{"kind", "open"}, {"mode", "read"}, {"nonblocking", true}}).size(), 1U);
    EXPECT_EQ(value_at(fd), '0');
    drive_line(5, 1);
    EXPECT_EQ(urgent(fd, 0), 0);
    {
        const std::jthread world([] {
            vb::Client::of_this_board().ask("sysgpio.drive", {{"line", 5}, {"level", 0}});
        });
        EXPECT_EQ(urgent(fd, -1), POLLPRI);
    }
    EXPECT_EQ(value_at(fd), '0');
    EXPECT_EQ(urgent(fd, 0), 0);
    EXPECT_EQ(gpio_fd_close(fd), 0);
    EXPECT_EQ(gpio_fd_close(fd), -1);
}

} // namespace
} // namespace hal_test::sysgpio
