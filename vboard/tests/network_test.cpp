// The links of a board's own network are those of the board file, and its files in /sys/class/net
// say the same of them as the kernel does, whichever of the two was changed.

#include "tests/run_on_board.h"

#include "core/json.h"
#include "core/unique_fd.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

namespace vb::network_test {
namespace {

// What the board's files and the kernel say, alternately, a line each.
constexpr char kLook[] = R"(
look() {
    for link in lo eth0 eth1 bond0; do
        (cd /sys/class/net/$link && echo $(
            cat ifindex mtu flags address operstate
            cat carrier 2>/dev/null || echo none))
        ip -j link show $link
    done
}
cable() { # the kernel comes to know of a cable that is out within a second
    vboard ctl net link eth0 $1
    until ip link show eth0 | grep -q "state $2"; do sleep 0.1; done
})";

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

// As the line of the files: "3 1500 up|broadcast 02:00:00:00:00:03 up 1"; a
// link that is taken down tells of no carrier.
std::string in_words(const Json& link) {
    const auto flags = link["flags"].get<std::vector<std::string>>();
    const auto has = [&](const char* flag) {
        return std::find(flags.begin(), flags.end(), flag) != flags.end();
    };
    const unsigned bits = (has("UP") ? 1U : 0) + (has("BROADCAST") ? 2U : 0) +
                          (has("LOOPBACK") ? 8U : 0) + (has("MULTICAST") ? 0x1000U : 0);
    return fmt::format("{} {} {:#x} {} {} {}", link["ifindex"].get<int>(), link["mtu"].get<int>(),
                       bits, link["address"].get<std::string>(),
                       lower(link["operstate"].get<std::string>()),
                       !has("UP")        ? "none"
                       : has("LOWER_UP") ? "1"
                                         : "0");
}

TEST(Network, LinksOfTheKernelAndFilesOfTheBoardSayTheSame) {
    if (const UniqueFd taps(open("/dev/net/tun", O_RDWR | O_CLOEXEC)); !taps) {
        GTEST_SKIP() << "this machine makes no taps";
    }
    const CommandResult result =
        sh_on_board(std::string(kLook) + "\nlook; cable 0 DOWN; ip link set eth1 down; "
                                         "ip link set bond0 mtu 1400; look;"
                                         "cable 1 UP; ip link set eth1 up; look");
    std::istringstream lines(result.out);
    std::vector<std::string> states;
    std::string files;
    for (std::string kernel; std::getline(lines, files) && std::getline(lines, kernel);) {
        EXPECT_EQ(files, in_words(Json::parse(kernel).at(0)));
        states.push_back(files.substr(files.find("0x")));
    }
    const std::string loopback = "0x9 00:00:00:00:00:00 unknown 1";
    const std::string bond = "0x1003 02:00:00:00:00:04 up 1";
    EXPECT_THAT(states, testing::ElementsAre(loopback, "0x1003 02:00:00:00:00:02 up 1",
                                             "0x1003 02:00:00:00:00:03 up 1", bond, loopback,
                                             "0x1003 02:00:00:00:00:02 down 0",
                                             "0x1002 02:00:00:00:00:03 down none", bond, loopback,
                                             "0x1003 02:00:00:00:00:02 up 1",
                                             "0x1003 02:00:00:00:00:03 up 1", bond))
        << result.out << result.err;
    EXPECT_THAT(result.out, testing::HasSubstr(" 1400 0x1003 "));
}

// A machine without taps, or a program that takes a link away, takes nothing from the model.
TEST(Network, TheModelStandsWithoutALink) {
    const CommandResult result =
        sh_on_board("ip link del eth0 2>/dev/null; vboard ctl net link eth0 0 && "
                    "cat /proc/ethernet-mdio0/link_status /sys/class/net/eth0/operstate;"
                    "vboard ctl net link lo 0");
    EXPECT_EQ(result.out, "0\ndown\n") << result.err;
    EXPECT_THAT(result.err, testing::HasSubstr("the loopback interface has no cable"));
}

} // namespace
} // namespace vb::network_test
