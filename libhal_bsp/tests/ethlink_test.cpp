// Whether Ethernet adapters have a link, from each of the sources that there are.

#include "tests/support/on_board.h"

#include <hal_bsp/ethlink.h>

#include <cstring>

namespace hal_test::ethlink {
namespace {

using testing::Contains;
using testing::IsEmpty;

struct Link {
    int32_t result;
    int status;
    bool operator==(const Link&) const = default;
};

void PrintTo(const Link& link, std::ostream* out) {
    *out << "result " << link.result << ", status " << link.status;
}

constexpr int kUntouched = 777;

Link link_of(const char* name) {
    uint16_t status = kUntouched;
    const int32_t result = hal_get_ethlink_status_byname(name, &status);
    return {result, status};
}

class EthLink : public OnBoard {
  protected:
    void TearDown() override {
        adapter_ = kept_;
        for (const char* name : {"eth0", "eth1", "bond0"}) {
            link(name, 1);
        }
        OnBoard::TearDown();
    }
    void link(const char* interface, int state) {
        ask("net.link", {{"interface", interface}, {"link", state}});
    }
    ethlink_info& adapter_ = board_ethlink_info_list[0]; // eth0's
    const ethlink_info kept_ = adapter_;
};

TEST_F(EthLink, EachAdapterIsReadFromItsOwnSource) {
    EXPECT_EQ(link_of("eth0"), (Link{0, 1}));
    expect_event({{"kind", "read"}, {"node", "/proc/ethernet-mdio0/link_status"}});
    expect_none(
        {{"kind", "open"}, {"node", "/sys/devices/platform/fe1b0000.ethernet/net/eth0/operstate"}});
    EXPECT_EQ(link_of("eth1"), (Link{0, 1}));
    expect_event(
        {{"kind", "read"}, {"node", "/sys/devices/platform/fe010000.ethernet/net/eth1/carrier"}});
    EXPECT_EQ(link_of("bond0"), (Link{0, 1}));
    EXPECT_THAT(logged(), Contains("virtual ethernet adapter: bond0"));
    for (const char* name : {"eth0", "eth1", "bond0"}) {
        link(name, 0);
        EXPECT_EQ(link_of(name), (Link{0, 0})) << name;
    }
    EXPECT_THAT(logged("ERROR"), IsEmpty());
}

TEST_F(EthLink, ATypeInTheTableChangesTheSourceAndHooksSurroundIt) {
    static int before;
    static int after;
    before = after = 0;
    adapter_.pre_hook = [] { EXPECT_EQ(++before, after + 1); };
    adapter_.post_hook = [] { EXPECT_EQ(++after, before); };
    adapter_.type = HAL_ETHLINK_PHY;
    EXPECT_EQ(link_of("eth0"), (Link{0, 2}));
    ask("net.speed", {{"interface", "eth0"}, {"speed", 100}});
    EXPECT_EQ(link_of("eth0"), (Link{0, 1}));
    ask("net.speed", {{"interface", "eth0"}, {"speed", 1000}});
    link("eth0", 0);
    EXPECT_EQ(link_of("eth0"), (Link{0, 0}));
    adapter_.type = HAL_ETHLINK_NONE;
    EXPECT_EQ(link_of("eth0"), (Link{0, kUntouched}));
    adapter_.type = 99; // as the interface state
    EXPECT_EQ(link_of("eth0"), (Link{0, 0}));
    EXPECT_EQ(before, 5);
    adapter_.type = HAL_ETHLINK_FILE;
    std::memset(adapter_.link_file, 'x', sizeof adapter_.link_file); // no room for its end
    EXPECT_EQ(link_of("eth0"), (Link{-22, kUntouched}));
    EXPECT_EQ(after, 6);
}

TEST_F(EthLink, ANameThatIsNoAdapterIsToldAndChangesNothing) {
    EXPECT_EQ(link_of("eth"), (Link{-6, kUntouched})); // eth0 and eth1
    EXPECT_EQ(link_of("wlan0"), (Link{-6, kUntouched}));
    EXPECT_EQ(link_of(""), (Link{-6, kUntouched}));
    EXPECT_EQ(link_of("lo"), (Link{-6, kUntouched}));    // no device of the table
    EXPECT_EQ(link_of("eth.$"), (Link{-6, kUntouched})); // a pattern that matches two
    EXPECT_EQ(link_of(std::string(200, 'e').c_str()), (Link{-22, kUntouched}));
    EXPECT_EQ(link_of(nullptr), (Link{-22, kUntouched}));
    EXPECT_EQ(hal_get_ethlink_status_byname("eth0", nullptr), -22);
    add_fault("/proc/ethernet-mdio0/link_status:open:EACCES");
    EXPECT_EQ(link_of("eth0"), (Link{-35, kUntouched}));
    EXPECT_THAT(logged("ERROR"), testing::IsSupersetOf({"No such ethernet adapter: eth",
                                                        "can not find adapter in config list!",
                                                        "Invalid argument: adapter_name!",
                                                        "cmd excute failed, cmd:cat "
                                                        "/proc/ethernet-mdio0/link_status"}));
    uint16_t status = kUntouched;
    EXPECT_EQ(hal_get_ethlink_status(&status), 0);
    EXPECT_EQ(hal_get_ethlink_status(nullptr), 0);
    EXPECT_EQ(status, kUntouched);
    EXPECT_THAT(logged(), Contains("ethlink_status:777"));
}

} // namespace
} // namespace hal_test::ethlink
