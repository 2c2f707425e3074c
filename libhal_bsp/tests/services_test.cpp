// The board services: what they tell the application, and what the board saw of it.

#include "client/board_fixture.h"

#include <hal_bsp/hal_bsp.h>

#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Services : public vb::BoardTest {
  protected:
    void SetUp() override {
        BoardTest::SetUp();
        log_set_quiet(true);
    }
    void link(const char* interface, int state) {
        board().ask("net.link", {{"interface", interface}, {"link", state}});
    }
    int value_of(const char* path) {
        return board().ask("attribute.show", {{"path", path}}).get<int>();
    }
};

// --- Ethernet ---

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

TEST_F(Services, EachAdapterIsReadFromItsOwnSource) {
    EXPECT_EQ(link_of("eth0"), (Link{0, 1}));
    EXPECT_THAT(events({{"kind", "read"}, {"node", "/proc/ethernet-mdio0/link_status"}}),
                testing::SizeIs(testing::Ge(1)));
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

int g_before = 0;
int g_after = 0;

TEST_F(Services, ATypeInTheTableChangesTheSourceAndHooksSurroundIt) {
    ethlink_info& adapter = board_ethlink_info_list[0];
    adapter.pre_hook = [] { ++g_before; };
    adapter.post_hook = [] { ++g_after; };
    adapter.type = HAL_ETHLINK_PHY;
    EXPECT_EQ(link_of("eth0"), (Link{0, 2}));
    board().ask("net.speed", {{"interface", "eth0"}, {"speed", 100}});
    EXPECT_EQ(link_of("eth0"), (Link{0, 1}));
    link("eth0", 0);
    EXPECT_EQ(link_of("eth0"), (Link{0, 0}));
    adapter.type = HAL_ETHLINK_NONE;
    EXPECT_EQ(link_of("eth0"), (Link{0, kUntouched}));
    adapter.type = 99; // as the interface state
    EXPECT_EQ(link_of("eth0"), (Link{0, 0}));
    EXPECT_EQ(g_before, 5);
    EXPECT_EQ(g_after, 5);
    adapter.type = HAL_ETHLINK_FILE;
    std::memset(adapter.link_file, 'x', sizeof adapter.link_file); // no room for its end
    EXPECT_EQ(link_of("eth0"), (Link{-22, kUntouched}));
    EXPECT_EQ(g_after, 6);
}

TEST_F(Services, ANameThatIsNoAdapterIsToldAndChangesNothing) {
    EXPECT_EQ(link_of("eth"), (Link{-6, kUntouched})); // eth0 and eth1
    EXPECT_EQ(link_of("wlan0"), (Link{-6, kUntouched}));
    EXPECT_EQ(link_of(""), (Link{-6, kUntouched}));
    EXPECT_EQ(link_of("lo"), (Link{-6, kUntouched}));    // no device of the table
    EXPECT_EQ(link_of("eth.$"), (Link{-6, kUntouched})); // a pattern that matches two
    EXPECT_EQ(link_of(std::string(200, 'e').c_str()), (Link{-22, kUntouched}));
    EXPECT_EQ(link_of(nullptr), (Link{-22, kUntouched}));
    EXPECT_EQ(hal_get_ethlink_status_byname("eth0", nullptr), -22);
    const auto errors = logged("ERROR");
    EXPECT_THAT(errors, Contains("No such ethernet adapter: eth"));
    EXPECT_THAT(errors, Contains("can not find adapter in config list!"));
    EXPECT_THAT(errors, Contains("Invalid argument: adapter_name!"));

    add_fault("/proc/ethernet-mdio0/link_status:open:EACCES");
    EXPECT_EQ(link_of("eth0"), (Link{-35, kUntouched}));
    EXPECT_THAT(logged("ERROR"),
                Contains("cmd excute failed, cmd:cat /proc/ethernet-mdio0/link_status"));

    uint16_t status = kUntouched;
    EXPECT_EQ(hal_get_ethlink_status(&status), 0);
    EXPECT_EQ(hal_get_ethlink_status(nullptr), 0);
    EXPECT_EQ(status, kUntouched);
    EXPECT_THAT(logged(), Contains("ethlink_status:777"));
}

// --- temperature ---

TEST_F(Services, TemperatureDropsItsLastDigitAndKeepsItsSign) {
    int32_t temperature = 0;
    for (const auto& [degrees, hundredths] :
         {std::pair{41.238, 4123}, {-5.019, -501}, {0.009, 0}}) {
        board().ask("thermal.pin", {{"degrees", degrees}});
        EXPECT_EQ(hal_get_boardtemp(&temperature), 0);
        EXPECT_EQ(temperature, hundredths);
    }
    temperature = kUntouched;
    add_fault("/sys/class/thermal/thermal_zone0/temp:read:EIO");
    EXPECT_EQ(hal_get_boardtemp(&temperature), 0);
    EXPECT_EQ(operation_get_boardtemp(&temperature), 0);
    EXPECT_EQ(temperature, kUntouched);
    EXPECT_EQ(hal_get_boardtemp(nullptr), 0);
    EXPECT_EQ(operation_get_boardtemp(nullptr), -35);
}

TEST_F(Services, FansSpinUpAndCoolTheBoard) {
    set_speed(500);
    int32_t warm = 0;
    int32_t cool = 0;
    fan_rpm_req speed{0, 5, 0};
    const auto settle = [] { systick_delayms(120000); };
    for (const uint32_t channel : {0U, 1U}) {
        const fan_ctl_req off{channel, {0, 0, 0}};
        EXPECT_EQ(hal_fans_power_ctl(&off), 0);
    }
    settle();
    EXPECT_EQ(hal_fans_get_rpm(&speed), 0);
    EXPECT_EQ(speed.rpm, 0U);
    hal_get_boardtemp(&warm);
    for (const uint32_t channel : {0U, 1U}) {
        const fan_ctl_req on{channel, {1, 0, 0}};
        const fan_ctl_req full{channel, {100, 0, 0}};
        EXPECT_EQ(hal_fans_power_ctl(&on), 0);
        EXPECT_EQ(hal_fans_set_speed(&full), 0);
    }
    settle();
    EXPECT_EQ(hal_fans_get_rpm(&speed), 0);
    EXPECT_EQ(speed.rpm, 4800U);
    EXPECT_EQ(speed.reserved, 5U);
    hal_get_boardtemp(&cool);
    EXPECT_LT(cool, warm - 2000);
    EXPECT_THAT(logged(), Contains("fan channel:0 fan_rpm4800"));
}

TEST_F(Services, FansThatAreNotThereOrRefuseLeaveTheRecordAlone) {
    fan_rpm_req speed{7, 0, kUntouched};
    const fan_ctl_req control{7, {50, 0, 0}};
    EXPECT_EQ(hal_fans_get_rpm(&speed), -35);
    EXPECT_EQ(hal_fans_set_speed(&control), -35);
    EXPECT_THAT(logged("ERROR"),
                ElementsAre("open dev pwm-fan dev error!", "open dev /dev/pwm-fan7 dev error!"));
    speed.channel = 1;
    const fan_ctl_req power{1, {1, 0, 0}};
    add_fault("/dev/pwm-fan1:ioctl:EIO");
    EXPECT_EQ(hal_fans_get_rpm(&speed), -35);
    EXPECT_EQ(hal_fans_power_ctl(&power), -35);
    EXPECT_THAT(logged("ERROR"), testing::IsSupersetOf({"ioctl PWM_LASER_GET_SPEED error",
                                                        "ioctl PWM_LASER_SET_SPEED error"}));
    EXPECT_EQ(speed.rpm, static_cast<uint32_t>(kUntouched));
    EXPECT_EQ(hal_fans_get_rpm(nullptr), -35);
    EXPECT_EQ(hal_fans_set_speed(nullptr), -35);
    EXPECT_EQ(opens("/dev/pwm-fan1", 0), 0);
}

// --- backlight and HDMI ---

TEST_F(Services, BacklightIsUpsideDownAndNeverOff) {
    constexpr char kFile[] = "/sys/class/backlight/backlight/brightness";
    struct Case {
        uint8_t level;
        int32_t result;
        int value;
    };
    for (const Case& each : {Case{0, 3, 255}, {1, 3, 252}, {50, 3, 127}, {99, 1, 2}, {100, 1, 1}}) {
        backlight_req request{{9, 9}, each.level};
        EXPECT_EQ(operation_set_backlight(&request), each.result);
        EXPECT_EQ(value_of(kFile), each.value);
    }
    backlight_req request{{9, 9}, 150};
    EXPECT_EQ(operation_set_backlight(&request), 1);
    EXPECT_EQ(request.level, 100);
    EXPECT_EQ(operation_set_backlight(nullptr), -35);

    add_fault(std::string(kFile) + ":write:EIO");
    EXPECT_EQ(operation_set_backlight(&request), -1);
    clear_faults();
    add_fault(std::string(kFile) + ":open:EACCES");
    EXPECT_EQ(operation_set_backlight(&request), -35);
    EXPECT_THAT(logged("ERROR"),
                ElementsAre("write bl_fd error",
                            testing::MatchesRegex("\\[operation_set_backlight\\]:\\[[0-9]+\\] "
                                                  "open backlight brightness file error")));
    EXPECT_EQ(opens(kFile, 0), 0);
}

TEST_F(Services, HdcpIsSwitchedOnItsOneOutputOnly) {
    constexpr char kFile[] = "/sys/devices/virtual/misc/hdmi_hdcp1x/enable";
    arm_video_out output{ARM_VIDEO_OUT_HDMI, 0};
    EXPECT_EQ(hal_arm_video_out_init(&output), 0);
    EXPECT_EQ(hal_arm_video_out_set_hdcp(&output, 1), 0);
    EXPECT_EQ(hal_arm_video_out_set_hdcp(&output, 1), 0);
    EXPECT_EQ(value_of(kFile), 1);
    EXPECT_EQ(hal_arm_video_out_set_hdcp(&output, 0), 0);
    EXPECT_EQ(value_of(kFile), 0);
    EXPECT_EQ(events({{"kind", "write"}, {"node", kFile}}).size(), 3U);
    forget_trace();
    EXPECT_EQ(hal_arm_video_out_set_hdcp(&output, 2), -1);
    EXPECT_EQ(hal_armhdmi_out_set_hdcp(1, 1), -1);
    output.out_type = 1;
    EXPECT_EQ(hal_arm_video_out_set_hdcp(&output, 1), -1);
    for (auto* take_null : {hal_arm_video_out_init, hal_arm_video_out_deinit}) {
        EXPECT_EQ(take_null(nullptr), -1);
    }
    EXPECT_EQ(hal_arm_video_out_set_hdcp(nullptr, 1), -1);
    expect_none({{"kind", "open"}, {"node", kFile}});
    EXPECT_THAT(logged("ERROR"), testing::Each(HasSubstr("para arm_video_out is NULL!")));
}

} // namespace
