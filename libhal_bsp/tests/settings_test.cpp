// The three stores of settings: what the application gets, and what tools and driver saw.

#include "client/board_fixture.h"

#include <hal_bsp/hal_bsp.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

constexpr char kEnv[] = "/dev/block/by-name/env";
constexpr char kVendor[] = "/dev/vendor_storage";
constexpr char kTooLong[] = "the command would be longer than 127 characters: not run";
constexpr char kNoBuffer[] = "the buffer for the value is null";
constexpr char kNotStarted[] = "popen read_device_info";

// One descriptor can be had while it lives, for the system log: too few for a pipe. (The sanitizers
// make pipes in their own checks: look at results afterwards.)
class OneDescriptor {
  public:
    OneDescriptor() {
        getrlimit(RLIMIT_NOFILE, &kept_);
        const int next = open("/dev/null", O_RDONLY);
        close(next);
        const rlimit one{static_cast<rlim_t>(next) + 1, kept_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &one);
    }
    ~OneDescriptor() { setrlimit(RLIMIT_NOFILE, &kept_); }
    OneDescriptor(const OneDescriptor&) = delete;
    OneDescriptor& operator=(const OneDescriptor&) = delete;

  private:
    rlimit kept_{};
};

struct Value {
    int32_t result;
    std::string text;
    bool operator==(const Value&) const = default;
};

void PrintTo(const Value& value, std::ostream* out) {
    *out << "result " << value.result << ", \"" << value.text << '"';
}

const std::string kUntouched = "untouched";

using Get = int32_t(const char*, char*);

// Also sees that nothing beyond the least buffer is touched.
Value value_of(Get& get, const char* name) {
    std::array<char, 2 * HAL_FW_VALUE_SIZE> buffer{};
    kUntouched.copy(buffer.data(), kUntouched.size());
    std::memset(buffer.data() + HAL_FW_VALUE_SIZE, 'G', HAL_FW_VALUE_SIZE);
    const int32_t result = get(name, buffer.data());
    EXPECT_EQ(std::string(buffer.data() + HAL_FW_VALUE_SIZE, HAL_FW_VALUE_SIZE),
              std::string(HAL_FW_VALUE_SIZE, 'G'));
    return {result, buffer.data()};
}

std::string letters(std::size_t count) {
    return std::string(count, 'x');
}

class Settings : public vb::BoardTest {
  protected:
    void SetUp() override {
        BoardTest::SetUp();
        log_set_quiet(true);
    }
};

// --- the bootloader environment ---

Value env(const std::string& name) {
    return value_of(hal_fw_printenv, name.c_str());
}

bool env_becomes(const char* name, const std::string& value) {
    for (int tries = 0; tries < 500; ++tries) {
        if (env(name) == Value{0, value}) {
            return true;
        }
        usleep(10000);
    }
    return false;
}

TEST_F(Settings, TheEnvironmentIsReadFromTheToolsFirstLine) {
    EXPECT_EQ(std::system("/usr/bin/fw_setenv cr \"$(printf '3\\r')\";"
                          "/usr/bin/fw_setenv long $(printf %0200d 7);"
                          "/usr/bin/fw_setenv equals a=b=c"),
              0);
    EXPECT_EQ(env("bootdelay"), (Value{0, "2"}));
    EXPECT_EQ(env("cr"), (Value{0, "3"}));
    EXPECT_EQ(env("long"), (Value{0, std::string(126 - 5, '0')}));
    EXPECT_EQ(env("equals"), (Value{0, "a=b=c"}));
    EXPECT_EQ(env(letters(106)), (Value{0, ""})); // the tool's way with one that is not set
    EXPECT_EQ(env("-n bootdelay"), (Value{-35, kUntouched}));
    EXPECT_THAT(logged("INFO"),
                ElementsAre("get env :bootdelay result :=2", "get env :cr result :=3",
                            EndsWith("00"), "get env :equals result :=a=b=c",
                            EndsWith(" result :="), "get env :-n bootdelay result :2"));
    EXPECT_THAT(logged("ERROR"), IsEmpty());
}

TEST_F(Settings, WhatCannotBeReadFromTheEnvironmentLeavesTheBuffer) {
    EXPECT_EQ(value_of(hal_fw_printenv, nullptr), (Value{-1, kUntouched}));
    EXPECT_EQ(hal_fw_printenv(nullptr, nullptr), -1);
    EXPECT_EQ(hal_fw_printenv("bootdelay", nullptr), -35);
    EXPECT_EQ(env(letters(107)), (Value{-35, kUntouched}));
    expect_none({{"kind", "open"}, {"node", kEnv}});
    {
        const OneDescriptor one;
        EXPECT_EQ(env("bootdelay"), (Value{-35, kUntouched}));
    }
    EXPECT_THAT(logged("ERROR"), ElementsAre(kNoBuffer, kTooLong, kNotStarted));
    forget_trace();
    add_fault(std::string(kEnv) + ":read:EIO");
    EXPECT_EQ(env("bootdelay"), (Value{-35, kUntouched}));
    EXPECT_THAT(logged(), IsEmpty()); // neither a line nor a failure of ours
}

TEST_F(Settings, TheEnvironmentIsSetInTheBackground) {
    EXPECT_EQ(hal_fw_setenv("bootdelay", "5"), 0);
    EXPECT_TRUE(env_becomes("bootdelay", "5"));
    EXPECT_EQ(hal_fw_setenv("bootdelay", nullptr), 0);
    EXPECT_TRUE(env_becomes("bootdelay", ""));
    EXPECT_THAT(logged(), Contains("set_value:[/usr/bin/fw_setenv bootdelay 5 &]"));
    EXPECT_THAT(logged(), Contains("set_value:[/usr/bin/fw_setenv bootdelay &]"));

    // The tool is kept from its work; the call does not wait, and does not hear of its failure.
    add_fault(std::string(kEnv) + ":read:hold=tool:once");
    add_fault(std::string(kEnv) + ":write:EIO");
    EXPECT_EQ(hal_fw_setenv("bootdelay", "6"), 0);
    expect_event({{"kind", "fault"}, {"action", "hold=tool"}});
    expect_none({{"kind", "write"}, {"node", kEnv}, {"error", "EIO"}});
    board().ask("fault.release", {{"tag", "tool"}});
    expect_event({{"kind", "write"}, {"node", kEnv}, {"error", "EIO"}});

    forget_trace();
    EXPECT_EQ(hal_fw_setenv(nullptr, "1"), -35);
    EXPECT_EQ(hal_fw_setenv("name", letters(127 - 19 - 5 - 2 + 1).c_str()), -35);
    EXPECT_EQ(hal_fw_setenv(letters(127 - 19 - 2 + 1).c_str(), nullptr), -35);
    {
        const OneDescriptor one;
        EXPECT_EQ(hal_fw_setenv("name", "1"), -35);
    }
    EXPECT_THAT(logged("ERROR"), ElementsAre(kTooLong, kTooLong, kNotStarted));
}

// --- the system configuration ---

TEST_F(Settings, TheSystemConfigurationIsReadAndSet) {
    const auto config = [](const std::string& key) {
        return value_of(hal_sysconfig_get, key.c_str());
    };
    const auto store = [&](const std::string& key, const std::string& value) {
        board().ask("sysconfig.set", {{"key", key}, {"value", value}});
    };
    EXPECT_EQ(config("hostname"), (Value{0, "board"}));
    EXPECT_EQ(hal_sysconfig_set("hostname", "desk"), 0);
    EXPECT_EQ(config("hostname"), (Value{0, "desk"}));
    EXPECT_EQ(hal_sysconfig_set("hostname", nullptr), 0);
    EXPECT_EQ(config("hostname"), (Value{-35, kUntouched}));
    EXPECT_EQ(hal_sysconfig_set("a", "b c"), 0); // refused by the tool, unheard
    EXPECT_EQ(config("a"), (Value{-35, kUntouched}));
    EXPECT_THAT(logged("INFO"), ElementsAre("get env :hostname result :board\n",
                                            "set_value:[/usr/bin/sysconfig set hostname desk]",
                                            "get env :hostname result :desk\n",
                                            "set_value:[/usr/bin/sysconfig set hostname]",
                                            "set_value:[/usr/bin/sysconfig set a b c]"));

    store("q", "a=\"b\" \\c");
    EXPECT_EQ(config("q"), (Value{0, "a=\"b\" \\c"}));
    store("l", letters(300));
    EXPECT_EQ(config("l"), (Value{0, letters(126)}));
    store(letters(104), "1");
    EXPECT_EQ(config(letters(104)), (Value{0, "1"}));
    EXPECT_THAT(logged("ERROR"), IsEmpty());

    EXPECT_EQ(config(letters(105)), (Value{-35, kUntouched}));
    EXPECT_EQ(value_of(hal_sysconfig_get, nullptr), (Value{-35, kUntouched}));
    EXPECT_EQ(hal_sysconfig_get("q", nullptr), -35);
    EXPECT_EQ(hal_sysconfig_set(nullptr, "1"), -35);
    EXPECT_EQ(hal_sysconfig_set("q", letters(127 - 23 - 2 + 1).c_str()), -35);
    {
        const OneDescriptor one;
        EXPECT_EQ(hal_sysconfig_set("q", "1"), -35);
        EXPECT_EQ(config("q"), (Value{-35, kUntouched}));
    }
    EXPECT_THAT(logged("ERROR"),
                ElementsAre(kTooLong, kNoBuffer, kTooLong, kNotStarted, kNotStarted));
}

// --- the vendor storage ---

constexpr char kWriteError[] = "vendor write fail, ret:-1\n";
constexpr char kCleanError[] = "vendor clean fail, ret:-1\n";

TEST_F(Settings, AnItemIsClearedThenWritten) {
    EXPECT_EQ(hal_vendor_write(0x10007, "abcdEFG", 4), 0);
    const auto requests = events({{"kind", "ioctl"}, {"request", "VENDOR_WRITE"}});
    ASSERT_EQ(requests.size(), 2U);
    const std::string head = "51455256"
                             "0700"
                             "0400";
    EXPECT_EQ(requests[0]["bytes"], head + std::string(128, '0'));
    EXPECT_EQ(requests[1]["bytes"], head + "61626364" + std::string(120, '0'));
    EXPECT_THAT(logged(),
                ElementsAre(testing::MatchesRegex("sys_fd: [0-9]+, buf: abcd, len: 4\n")));
    EXPECT_EQ(board().ask("vendor.list"), (vb::Json{{"7", "61626364"}}));

    std::array<char, 12> item{};
    item.fill('G');
    EXPECT_EQ(hal_vendor_read(7, item.data(), 8), 0); // more than it has
    EXPECT_EQ(std::string(item.data(), item.size()), std::string("abcd\0\0\0\0GGGG", 12));
    EXPECT_EQ(hal_vendor_read(0xFFFF0007, item.data(), 1), 0);
    EXPECT_EQ(item[0], 'a');
    EXPECT_EQ(opens(kVendor, 0), 0);
}

TEST_F(Settings, ItemsHaveUpTo64Bytes) {
    std::array<char, 65> item{};
    item.fill('7');
    EXPECT_EQ(hal_vendor_write(1, item.data(), 64), 0);
    EXPECT_EQ(hal_vendor_write(2, item.data(), 0), 0);
    std::string sevens;
    for (int i = 0; i < 64; ++i) {
        sevens += "37";
    }
    EXPECT_EQ(board().ask("vendor.list"), (vb::Json{{"1", sevens}, {"2", ""}}));
    std::array<char, 65> back{};
    EXPECT_EQ(hal_vendor_read(1, back.data(), 64), 0);
    EXPECT_EQ(std::string(back.data()), std::string(64, '7'));
    forget_trace();
    EXPECT_EQ(hal_vendor_write(1, item.data(), 65), -35);
    EXPECT_EQ(hal_vendor_read(1, back.data(), UINT32_MAX), -35);
    EXPECT_EQ(hal_vendor_write(1, nullptr, 0), -35);
    EXPECT_EQ(hal_vendor_read(1, nullptr, 4), -35);
    expect_none({{"kind", "open"}, {"node", kVendor}});
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Settings, FailuresOfTheVendorStorageAreTold) {
    struct Case {
        const char* fault;
        int32_t result;
        std::vector<std::string> errors;
    };
    const std::vector<Case> cases = {
        {"ioctl=VENDOR_WRITE:EIO:once", 0, {kCleanError}},
        {"ioctl=VENDOR_WRITE:EIO:after=1:once", -35, {kWriteError}},
        {"ioctl=VENDOR_WRITE:EIO", -35, {kCleanError, kWriteError}},
        {"open:EACCES", -35, {"vendor storage open fail\n"}},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.fault);
        forget_trace();
        add_fault(std::string(kVendor) + ":" + each.fault);
        EXPECT_EQ(hal_vendor_write(3, "abc", 3), each.result);
        EXPECT_EQ(logged("ERROR"), each.errors);
        clear_faults();
    }
    forget_trace();
    std::string item = kUntouched;
    EXPECT_EQ(hal_vendor_read(4, item.data(), 3), -35); // there is none
    add_fault(std::string(kVendor) + ":ioctl=VENDOR_READ:EIO");
    EXPECT_EQ(hal_vendor_read(3, item.data(), 3), -35);
    clear_faults();
    vanish(kVendor);
    EXPECT_EQ(hal_vendor_read(3, item.data(), 3), -35);
    EXPECT_EQ(item, kUntouched);
    EXPECT_THAT(logged("ERROR"),
                ElementsAre("vendor storage read error, ret:-1\n",
                            "vendor storage read error, ret:-1\n", "vendor storage open fail\n"));
}

} // namespace
