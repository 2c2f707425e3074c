// The GPIO class played by files: what is opened, in which order, and what is written there.
#include "tests/support/captured.h"
#include "tests/support/fake_nodes.h"
#include "tests/support/log_tap.h"

#include <hal_bsp/hal_bsp.h>

#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

using hal_test::Captured;
using hal_test::FakeNodes;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kClass = "/sys/class/gpio/";
const std::string kLine = kClass + "gpio471/";

class SysGpio : public testing::Test {
  protected:
    void SetUp() override {
        log_set_quiet(true);
        nodes().reset();
        hal_test::LogTap::instance().take();
    }
    void TearDown() override { EXPECT_EQ(nodes().open_count(), 0U); }
    static FakeNodes& nodes() { return FakeNodes::instance(); }

    static void add_line(const std::string& value = "0\n") {
        nodes().add(kLine + "direction");
        nodes().add(kLine + "edge");
        nodes().add(kLine + "value", value);
    }
};

TEST_F(SysGpio, SetExportsOnlyWhatIsNotExported) {
    nodes().add(kClass + "export");
    EXPECT_EQ(util_gpio_set(471, 1), -1); // the export brings no line here
    EXPECT_EQ(nodes().content(kClass + "export"), "471");
    EXPECT_THAT(nodes().take_opens(), ElementsAre(kClass + "export w", kLine + "direction w"));

    add_line();
    EXPECT_EQ(util_gpio_set(471, 0x100), 0);
    EXPECT_EQ(nodes().content(kLine + "direction"), "out");
    EXPECT_EQ(nodes().content(kLine + "value"), "1\n");
    EXPECT_EQ(util_gpio_set(471, 0), 0);
    EXPECT_EQ(nodes().content(kLine + "value"), "0\n");
    EXPECT_THAT(nodes().take_opens(), ElementsAre(kLine + "direction w", kLine + "value w",
                                                  kLine + "direction w", kLine + "value w"));
}

TEST_F(SysGpio, GetMakesTheLineAnInputAndReadsIt) {
    const std::vector<std::pair<std::string, int>> cases{{"0\n", 0}, {"1\n", 1}, {"9", 1},
                                                         {"x\n", 0}, {"01", 0},  {"", -1}};
    for (const auto& [value, expected] : cases) {
        add_line(value);
        EXPECT_EQ(util_gpio_get(471), expected) << value;
        EXPECT_EQ(nodes().content(kLine + "direction"), "in");
        EXPECT_THAT(nodes().take_opens(), ElementsAre(kLine + "direction w", kLine + "value r"));
    }
}

TEST_F(SysGpio, EveryFailedStepEndsSetAndGet) {
    const Captured errors(stderr);
    for (const std::string missing : {"direction", "value", "export"}) {
        nodes().reset();
        if (missing != "export") {
            add_line("1");
            nodes().remove(kLine + missing);
        }
        EXPECT_EQ(util_gpio_set(471, 1), -1) << missing;
        EXPECT_EQ(util_gpio_get(471), -1) << missing;
    }
    EXPECT_EQ(errors.text(), "");
    EXPECT_THAT(hal_test::LogTap::instance().take_lines(), IsEmpty());
}

TEST_F(SysGpio, PrimitivesWriteTheirWords) {
    nodes().add(kClass + "export");
    nodes().add(kClass + "unexport");
    add_line();
    EXPECT_EQ(gpio_export(471), 0);
    EXPECT_EQ(gpio_unexport(4711), 0);
    EXPECT_EQ(nodes().content(kClass + "export"), "471");
    EXPECT_EQ(nodes().content(kClass + "unexport"), "4711");
    const auto messages = hal_test::LogTap::instance().take();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].text, "gpio is 471\n");
    EXPECT_EQ(messages[0].level, HAL_LOG_INFO);

    EXPECT_EQ(gpio_set_dir(471, 0), 0);
    EXPECT_EQ(nodes().content(kLine + "direction"), std::string("in\0", 3));
    EXPECT_EQ(gpio_set_dir(471, 2), 0);
    EXPECT_EQ(nodes().content(kLine + "direction"), std::string("out\0", 4));
    EXPECT_EQ(gpio_set_edge(471, "both"), 0);
    EXPECT_EQ(nodes().content(kLine + "edge"), std::string("both\0", 5));
    EXPECT_EQ(gpio_set_edge(471, nullptr), -1);
}

TEST_F(SysGpio, GetValueStoresWhatWasReadAndNothingElse) {
    uint32_t value = 77;
    for (const auto& [text, expected] :
         {std::pair("0\n", 0U), std::pair("1\n", 1U), std::pair("x", 1U), std::pair("", 1U)}) {
        add_line(text);
        EXPECT_EQ(gpio_get_value(471, &value), 0);
        EXPECT_EQ(value, expected);
    }
    nodes().take_opens();
    EXPECT_EQ(gpio_get_value(471, nullptr), -1);
    EXPECT_THAT(nodes().take_opens(), IsEmpty());
}

TEST_F(SysGpio, PrimitivesReportWhatTheyCannotOpen) {
    const Captured errors(stderr);
    uint32_t value = 77;
    EXPECT_EQ(gpio_export(471), -1);
    EXPECT_EQ(gpio_unexport(471), -1);
    EXPECT_EQ(gpio_set_dir(471, 1), -1);
    EXPECT_EQ(gpio_get_value(471, &value), -1);
    EXPECT_EQ(gpio_set_edge(471, "both"), -1);
    EXPECT_EQ(gpio_fd_open(471), -1);
    EXPECT_EQ(value, 77U);
    const std::string text = "No such file or directory\n";
    EXPECT_EQ(errors.text(), "gpio/export: " + text + text + "gpio/direction: " + text +
                                 "gpio/get-value: " + text + "gpio/set-edge: " + text +
                                 "gpio/fd_open: " + text);
    EXPECT_THAT(nodes().take_opens(),
                ElementsAre(kClass + "export w", kClass + "unexport w", kLine + "direction w",
                            kLine + "value r", kLine + "edge w", kLine + "value rn"));
}

TEST_F(SysGpio, HugeLineNumbersStayWithinThePath) {
    const Captured errors(stderr);
    EXPECT_EQ(gpio_set_dir(0xFFFFFFFF, 1), -1);
    EXPECT_EQ(util_gpio_get(0x80000000), -1);
    EXPECT_THAT(nodes().take_opens(),
                ElementsAre(kClass + "gpio-1/direction w", kClass + "export w"));
}

TEST_F(SysGpio, ValueDescriptorIsTheCallersToClose) {
    add_line("1\n");
    const int fd = gpio_fd_open(471);
    ASSERT_GT(fd, 2);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(fd, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDONLY | O_NONBLOCK);
    EXPECT_EQ(gpio_fd_close(fd), 0);
    EXPECT_EQ(gpio_fd_close(fd), -1);
    EXPECT_EQ(gpio_fd_close(-1), -1);
}

} // namespace
