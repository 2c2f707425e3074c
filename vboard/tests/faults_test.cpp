// Which calls a fault strikes, and what is said of one that is written wrongly.

#include "core/faults.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace vb::faults_test {
namespace {

constexpr char kNode[] = "/dev/drvgpio";

bool strikes(Faults& faults, Operation operation = Operation::open, const char* node = kNode,
             const char* request = "", std::uint32_t code = 0) {
    return faults.strike(node, operation, request, code).has_value();
}

TEST(Faults, StrikeTheStatedNodesOperationsAndRequestsOnly) {
    Faults faults;
    faults.add("/dev/drvgpio:open:EACCES");
    faults.add("/dev/i2c-*:ioctl=I2C_RDWR:EIO");
    faults.add("/dev/led:ioctl=0x40086722:EIO");
    EXPECT_EQ(faults.strike(kNode, Operation::open, "", 0)->error, EACCES);
    EXPECT_FALSE(strikes(faults, Operation::read));
    EXPECT_FALSE(strikes(faults, Operation::open, "/dev/led"));
    EXPECT_TRUE(strikes(faults, Operation::request, "/dev/i2c-3", "I2C_RDWR", 0x707));
    EXPECT_FALSE(strikes(faults, Operation::request, "/dev/i2c-3", "I2C_RETRIES", 0x701));
    EXPECT_TRUE(strikes(faults, Operation::request, "/dev/led", "SET", 0x40086722));
}

TEST(Faults, CountWhatPassesAndWhatTheyStrike) {
    Faults faults;
    faults.add("/dev/drvgpio:any:EIO:after=2:times=2");
    const bool expected[] = {false, false, true, true, false, false};
    for (const bool strike : expected) {
        EXPECT_EQ(strikes(faults), strike);
    }
    const Json rule = faults.list().at(0);
    EXPECT_EQ(rule.at("seen"), 6);
    EXPECT_EQ(rule.at("struck"), 2);
}

TEST(Faults, WithASeedAreTheSameEveryTime) {
    const auto run = [] {
        Faults faults;
        faults.add("*:any:EIO:probability=0.3:seed=7");
        std::string pattern;
        for (int i = 0; i < 200; ++i) {
            pattern.push_back(strikes(faults) ? 'x' : '.');
        }
        return pattern;
    };
    const std::string first = run();
    EXPECT_EQ(first, run());
    const auto struck = std::count(first.begin(), first.end(), 'x');
    EXPECT_GT(struck, 30);
    EXPECT_LT(struck, 90);
}

TEST(Faults, SayWhatIsWrongWithThem) {
    const std::pair<const char*, const char*> wrong[] = {
        {"/dev/drvgpio:open", "is no fault"},
        {"/dev/drvgpio:seek:EIO", "unknown operation \"seek\""},
        {"/dev/drvgpio:open:ENOSUCH", "unknown action \"ENOSUCH\""},
        {"/dev/drvgpio:open:EIO:sometimes", "unknown condition \"sometimes\""},
        {"/dev/drvgpio:open:EIO:after=x", "after= wants a number"},
        {"/dev/drvgpio:open:hold=", "unknown action"},
    };
    for (const auto& [text, complaint] : wrong) {
        Faults faults;
        try {
            faults.add(text);
            ADD_FAILURE() << text << " was taken";
        } catch (const std::invalid_argument& error) {
            EXPECT_NE(std::string(error.what()).find(complaint), std::string::npos) << error.what();
        }
        EXPECT_TRUE(faults.list().empty());
    }
}

} // namespace
} // namespace vb::faults_test
