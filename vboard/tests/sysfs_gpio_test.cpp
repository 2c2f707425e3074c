// The GPIO class as a program meets it: plain files.

#include "client/board_fixture.h"

#include "core/unique_fd.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <thread>

namespace vb {
namespace {

const std::string kClass = "/sys/class/gpio/";

class SysfsGpioModel : public BoardTest {
  protected:
    static UniqueFd open_file(const std::string& name, int flags) {
        return UniqueFd(open((kClass + name).c_str(), flags | O_CLOEXEC));
    }
    static int write_text(const std::string& name, std::string_view text, int flags = 0) {
        const UniqueFd fd = open_file(name, O_WRONLY | flags);
        const ssize_t written = fd ? write(fd.get(), text.data(), text.size()) : -1;
        return written < 0 ? -errno : static_cast<int>(written);
    }
    static std::string read_on(const UniqueFd& fd, off_t offset = 0) {
        char text[32];
        lseek(fd.get(), offset, SEEK_SET);
        const ssize_t size = read(fd.get(), text, sizeof text);
        return size < 0 ? "error" : std::string(text, static_cast<std::size_t>(size));
    }
    static std::string read_text(const std::string& name) {
        return read_on(open_file(name, O_RDONLY));
    }
    static short ready(const UniqueFd& fd, int milliseconds = 0) {
        pollfd entry{fd.get(), POLLPRI, 0};
        poll(&entry, 1, milliseconds);
        return entry.revents;
    }
    void drive_line(unsigned line, int level) {
        board().ask("sysgpio.drive", {{"line", line}, {"level", level}});
    }
    Json show(unsigned line) { return board().ask("sysgpio.show", {{"line", line}}); }
};

TEST_F(SysfsGpioModel, ExportsAndUnexportsAsTheKernelDoes) {
    EXPECT_EQ(write_text("export", "7\n"), 2);
    EXPECT_EQ(write_text("export", "7"), -EBUSY);
    EXPECT_EQ(write_text("export", "0x8", O_TRUNC), 3);
    EXPECT_EQ(board().ask("sysgpio.list").at("lines").size(), 2U);
    for (const char* text : {"512", "-1", "x", "7 ", "", "\n"}) {
        EXPECT_EQ(write_text("export", text), *text == '\0' ? 0 : -EINVAL) << text;
    }
    EXPECT_EQ(write_text("export", "99999999999999999999"), -ERANGE);
    EXPECT_EQ(write_text("unexport", "9"), -EINVAL);

    const UniqueFd value = open_file("gpio7/value", O_RDONLY);
    EXPECT_EQ(write_text("unexport", std::string_view("7\0", 2)), 2);
    EXPECT_EQ(access((kClass + "gpio7").c_str(), F_OK), -1);
    char byte = 0;
    EXPECT_EQ(read(value.get(), &byte, 1), -1);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(ready(value), POLLPRI | POLLERR);
    EXPECT_EQ(write_text("unexport", "7"), -EINVAL);
}

TEST_F(SysfsGpioModel, OpensAttributesOnlyTheWayTheyAre) {
    EXPECT_FALSE(open_file("export", O_RDONLY));
    EXPECT_EQ(errno, EACCES);
    EXPECT_FALSE(open_file("gpiochip0/base", O_RDWR));
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(read_text("gpiochip0/ngpio"), "512\n");
    struct stat status {};
    EXPECT_EQ(stat((kClass + "gpiochip0/label").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 4096);
    EXPECT_EQ(status.st_mode & 0777U, 0444U);
}

TEST_F(SysfsGpioModel, DrivesOutputsAndReadsInputs) {
    write_text("export", "9");
    EXPECT_EQ(read_text("gpio9/direction"), "in\n");
    EXPECT_EQ(write_text("gpio9/value", "1"), -EPERM);
    drive_line(9, 1);
    EXPECT_EQ(read_text("gpio9/value"), "1\n");
    EXPECT_EQ(write_text("gpio9/direction", std::string_view("out\0", 4)), 4);
    EXPECT_EQ(show(9).at("level"), 0) << "out begins low";
    EXPECT_EQ(write_text("gpio9/value", "1"), 1);
    EXPECT_EQ(show(9).at("level"), 1);
    EXPECT_EQ(write_text("gpio9/value", "high"), -EINVAL);
    EXPECT_EQ(write_text("gpio9/active_low", "1"), 1);
    EXPECT_EQ(read_text("gpio9/value"), "0\n");
    EXPECT_EQ(write_text("gpio9/value", "1"), 1);
    EXPECT_EQ(show(9).at("level"), 0);
    EXPECT_EQ(write_text("gpio9/direction", "high"), 4);
    EXPECT_EQ(show(9).at("level"), 1) << "high and low are levels, whatever active_low says";
    EXPECT_EQ(write_text("gpio9/edge", "both"), -EIO);
    EXPECT_THROW(drive_line(9, 0), ClientError);
    EXPECT_EQ(write_text("gpio9/direction", "sideways"), -EINVAL);

    write_text("export", "471"); // pulled up
    EXPECT_EQ(read_text("gpio471/value"), "1\n");
    write_text("gpio471/direction", "out");
    write_text("gpio471/direction", "in");
    EXPECT_EQ(read_text("gpio471/value"), "1\n") << "an input has the level of the outside";
}

TEST_F(SysfsGpioModel, TellsOfTheChosenEdgesOnly) {
    write_text("export", "5");
    const UniqueFd value = open_file("gpio5/value", O_RDONLY);
    EXPECT_EQ(ready(value), POLLPRI | POLLERR) << "a fresh open has something to read";
    EXPECT_EQ(read_on(value), "0\n");
    const auto fires = [&](int level) {
        drive_line(5, level);
        const bool fired = ready(value) != 0;
        EXPECT_EQ(read_on(value).size(), 2U);
        EXPECT_EQ(ready(value), 0);
        return fired;
    };
    struct Case {
        const char* edge;
        bool rising, falling;
    };
    for (const Case& each : {Case{"none", false, false}, Case{"rising\n", true, false},
                             Case{"falling", false, true}, Case{"both", true, true}}) {
        write_text("gpio5/edge", each.edge);
        EXPECT_EQ(fires(1), each.rising) << each.edge;
        EXPECT_EQ(fires(0), each.falling) << each.edge;
    }
    EXPECT_EQ(write_text("gpio5/edge", "sharp"), -EINVAL);
    EXPECT_EQ(write_text("gpio5/direction", "out"), -EIO) << "it has an edge";
    write_text("gpio5/edge", "rising");
    write_text("gpio5/active_low", "1");
    EXPECT_FALSE(fires(1));
    EXPECT_TRUE(fires(0));
    EXPECT_EQ(read_on(value, 1), "\n");
}

TEST_F(SysfsGpioModel, WakesWhoeverSelectsOnAnEdge) {
    write_text("export", "5");
    write_text("gpio5/edge", "rising");
    const UniqueFd value = open_file("gpio5/value", O_RDONLY | O_NONBLOCK);
    read_on(value);
    std::jthread world([] {
        Client::of_this_board().ask("sysgpio.drive", {{"line", 5}, {"level", 1}});
    });
    EXPECT_EQ(ready(value, -1), POLLPRI | POLLERR);
    EXPECT_EQ(read_on(value), "1\n");
}

} // namespace
} // namespace vb
