// The stores of settings behind command-line tools: what the application gets, what the tools saw.

#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>

namespace hal_test::tool_store {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

constexpr char kEnv[] = "/dev/block/by-name/env";
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
    std::array<char, std::size_t{2} * HAL_FW_VALUE_SIZE> buffer{};
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

class ToolStore : public OnBoard {};

// --- the bootloader environment ---

Value env(const std::string& name) {
    return value_of(hal_fw_printenv, name.c_str());
}

bool env_becomes(const char* name, const std::string& value) {
    return comes_true([&] { return env(name) == Value{0, value}; });
}

TEST_F(ToolStore, TheEnvironmentIsReadFromTheToolsFirstLine) {
    EXPECT_EQ(std::system("/usr/bin/fw_setenv bootdelay 2;"
                          "/usr/bin/fw_setenv cr \"$(printf '3\\r')\";"
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

TEST_F(ToolStore, WhatCannotBeReadFromTheEnvironmentLeavesTheBuffer) {
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

TEST_F(ToolStore, TheEnvironmentIsSetInTheBackground) {
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
    ask("fault.release", {{"tag", "tool"}});
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

TEST_F(ToolStore, TheSystemConfigurationIsReadAndSet) {
    const auto config = [](const std::string& key) {
        return value_of(hal_sysconfig_get, key.c_str());
    };
    const auto store = [&](const std::string& key, const std::string& value) {
        ask("sysconfig.set", {{"key", key}, {"value", value}});
    };
    store("hostname", "board");
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

    store("q", R"(a="b" \c)");
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

} // namespace
} // namespace hal_test::tool_store
