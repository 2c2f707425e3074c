// Uevents, as whoever listens on the board hears them.

#include "client/board_fixture.h"
#include "core/unique_fd.h"

#include <gmock/gmock.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include <array>

namespace vb::uevents_test {
namespace {

using testing::ElementsAre;
using testing::StartsWith;
using Texts = std::vector<std::string>;

class UeventsTest : public BoardTest {
  protected:
    UeventsTest() : socket_(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT)) {
        sockaddr_nl address{};
        address.nl_family = AF_NETLINK;
        address.nl_groups = 1;
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  0);
    }

    // The texts of the next message; none where there is no message. Where root's board has no
    // fence the kernel tells it of the machine's mounts as well.
    Texts hear() {
        Texts texts = hear_any();
        while (!texts.empty() && texts.front().find("/virtual/bdi/") != std::string::npos) {
            texts = hear_any();
        }
        return texts;
    }

  private:
    Texts hear_any() {
        std::array<char, 4096> buffer{};
        const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        Texts texts;
        for (std::string_view rest(buffer.data(),
                                   static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
             !rest.empty(); rest.remove_prefix(texts.back().size() + 1)) {
            texts.emplace_back(rest.substr(0, rest.find('\0')));
        }
        return texts;
    }

    UniqueFd socket_;
};

constexpr char kPath[] = "/devices/virtual/android_usb/android0";

TEST_F(UeventsTest, AreHeardAsTheKernelSendsThem) {
    board().ask("uevent.send", {{"action", "change"},
                                {"devpath", kPath},
                                {"values", {{"SUBSYSTEM", "x"}, {"USB_STATE", "CONFIGURED"}}}});
    const std::string path = kPath;
    EXPECT_THAT(hear(), ElementsAre("change@" + path, "ACTION=change", "DEVPATH=" + path,
                                    "SUBSYSTEM=x", "USB_STATE=CONFIGURED", StartsWith("SEQNUM=")));
    board().ask("uevent.raw", {{"lines", "add@/x\nANY=text"}});
    EXPECT_THAT(hear(), ElementsAre("add@/x", "ANY=text", StartsWith("SEQNUM=")));
    EXPECT_EQ(events({{"kind", "uevent"}}).back().at("text"), "add@/x\nANY=text");
}

TEST_F(UeventsTest, ThatAreTooLongAreRefusedAndNotSent) {
    const auto of_length = [&](std::size_t length) {
        board().ask("uevent.raw", {{"lines", std::string(length, 'x')}});
    };
    EXPECT_THROW(of_length(2048), ClientError);
    EXPECT_EQ(hear(), Texts{});
    of_length(1990);
    EXPECT_EQ(hear().front().size(), 1990U);
    EXPECT_THROW(
        board().ask("uevent.send", {{"action", "add"}, {"devpath", "/x"}, {"values", {{"A", 1}}}}),
        ClientError);
}

} // namespace
} // namespace vb::uevents_test
