// The GPIO class as a program meets it: plain files.

#include "client/board_fixture.h"
#include "tests/plain_calls.h"

#include <sys/stat.h>

namespace vb::sysfs_gpio_test {
namespace {

const std::string kClass = "/sys/class/gpio/";

class SysfsGpioModel : public BoardTest {
  protected:
    static int write_text(const std::string& name, std::string_view text, int flags = 0) {
        const UniqueFd fd = plain::open(kClass + name, O_WRONLY | flags);
        const ssize_t written = fd ? write(fd.get(), text.data(), text.size()) : -1;
        return written < 0 ? -errno : static_cast<int>(written);
    }
    static std::string read_on(const UniqueFd& fd, off_t offset = 0) {
        char text[32];
        lseek(fd.get(), offset, SEEK_SET);
        const int size = plain::read(fd, text, sizeof text);
        return size < 0 ? "error" : std::string(text, static_cast<std::size_t>(size));
    }
    static std::string read_text(const std::string& name) {
        return read_on(plain::open(kClass + name, O_RDONLY));
    }
    void drive_line(unsigned line, int level) {
        board().ask("sysgpio.drive", {{"line", line}, {"level", level}});
    }
    int level_of(unsigned line) {
        return board().ask("sysgpio.show", {{"line", line}}).at("level").get<int>();
    }
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

    const UniqueFd value = plain::open(kClass + "gpio7/value", O_RDONLY);
    EXPECT_EQ(write_text("unexport", std::string_view("7\0", 2)), 2);
    EXPECT_EQ(access((kClass + "gpio7").c_str(), F_OK), -1);
    char byte = 0;
    EXPECT_EQ(plain::read(value, &byte, 1), -ENODEV);
    EXPECT_EQ(plain::wait(value, POLLPRI), POLLPRI | POLLERR);
    EXPECT_EQ(write_text("unexport", "7"), -EINVAL);
}

TEST_F(SysfsGpioModel, OpensAttributesOnlyTheWayTheyAre) {
    EXPECT_FALSE(plain::open(kClass + "export", O_RDONLY));
    EXPECT_EQ(errno, EACCES);
    EXPECT_FALSE(plain::open(kClass + "gpiochip0/base", O_RDWR));
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(read_text("gpiochip0/ngpio"), "512\n");
    struct stat status {};
    EXPECT_EQ(stat((kClass + "gpiochip0/label").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 4096);
    EXPECT_EQ(status.st_mode & 0777U, 0444U);
}

TEST_F(SysfsGpioModel, TakesOrRefusesWhatIsWrittenAndHasTheLevelForIt) {
    write_text("export", "9");
    drive_line(9, 1);
    const struct {
        const char* file;
        const char* text;
        int error;
        int level;
        const char* value; // which may read the other way round
    } writes[] = {
        {"value", "1", EPERM, 1, "1\n"},    {"direction", "out", 0, 0, "0\n"}, // begins low
        {"value", "1", 0, 1, "1\n"},        {"value", "high", EINVAL, 1, "1\n"},
        {"active_low", "1", 0, 1, "0\n"},   {"value", "1", 0, 0, "1\n"},
        {"direction", "high", 0, 1, "0\n"}, // a level, whatever active_low says
        {"edge", "both", EIO, 1, "0\n"},    {"direction", "sideways", EINVAL, 1, "0\n"},
    };
    for (const auto& each : writes) {
        const std::string_view text = each.text;
        EXPECT_EQ(write_text(std::string("gpio9/") + each.file, text),
                  each.error == 0 ? static_cast<int>(text.size()) : -each.error)
            << each.file << " " << text;
        EXPECT_EQ(level_of(9), each.level) << each.file << " " << text;
        EXPECT_EQ(read_text("gpio9/value"), each.value) << each.file << " " << text;
    }
    EXPECT_THROW(drive_line(9, 0), ClientError);

    write_text("export", "471"); // pulled up
    write_text("gpio471/direction", "out");
    write_text("gpio471/direction", "in");
    EXPECT_EQ(read_text("gpio471/value"), "1\n") << "an input has the level of the outside";
}

TEST_F(SysfsGpioModel, TellsOfTheChosenEdgesOnly) {
    write_text("export", "5");
    const UniqueFd value = plain::open(kClass + "gpio5/value", O_RDONLY);
    EXPECT_EQ(plain::wait(value, POLLPRI), POLLPRI | POLLERR) << "a fresh open can be read";
    EXPECT_EQ(read_on(value), "0\n");
    const auto fires = [&](int level) {
        drive_line(5, level);
        const bool fired = plain::wait(value, POLLPRI) != 0;
        EXPECT_EQ(read_on(value).size(), 2U);
        EXPECT_EQ(plain::wait(value, POLLPRI), 0);
        return fired;
    };
    const struct {
        const char* edge;
        bool rising, falling;
    } cases[] = {{"none", false, false},
                 {"rising\n", true, false},
                 {"falling", false, true},
                 {"both", true, true}};
    for (const auto& each : cases) {
        write_text("gpio5/edge", each.edge);
        EXPECT_EQ(fires(1), each.rising) << each.edge;
        EXPECT_EQ(fires(0), each.falling) << each.edge;
    }
    EXPECT_EQ(write_text("gpio5/edge", "sharp"), -EINVAL);
    EXPECT_EQ(write_text("gpio5/direction", "out"), 3) << "an edge is no reason against it";
    EXPECT_EQ(write_text("gpio5/edge", "both"), 4) << "which it has";
    EXPECT_EQ(write_text("gpio5/edge", "rising"), -EIO);
    EXPECT_EQ(read_text("gpio5/edge"), "none\n") << "it lost the old one over the new one";
    write_text("gpio5/direction", "in");
    write_text("gpio5/edge", "rising");
    write_text("gpio5/direction", "out");
    EXPECT_EQ(write_text("gpio5/active_low", "1"), -EIO) << "the edge would have to be another";
    EXPECT_EQ(read_text("gpio5/edge") + read_text("gpio5/active_low"), "none\n1\n");
    write_text("gpio5/direction", "in");
    write_text("gpio5/edge", "rising");
    EXPECT_FALSE(fires(1));
    EXPECT_TRUE(fires(0));
    EXPECT_EQ(read_on(value, 1), "\n");
}

} // namespace
} // namespace vb::sysfs_gpio_test
