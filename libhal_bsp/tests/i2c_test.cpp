// I2C against the board: what its adapters saw, what came back, what was said.

#include "tests/support/buses.h"
#include "tests/support/captured.h"
#include "tests/support/on_board.h"

#include <hal_bsp/i2c.h>

#include <array>
#include <cstdlib>
#include <thread>

namespace hal_test::i2c {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kAddr8 = 0xA8; // the synthesizer's, 0x54, as it stands on the bus
const std::string kAbsent = "No such file or directory\n";

int write(std::uint8_t bus, const Bytes& reg, const Bytes& data) {
    return i2c_writenumbytes(bus, kAddr8, reg.data(), static_cast<std::uint16_t>(reg.size()),
                             data.data(), static_cast<std::uint16_t>(data.size()));
}

int read(std::uint8_t bus, const Bytes& reg, Bytes& data, std::uint8_t addr8 = kAddr8) {
    return i2c_readnumbytes(bus, addr8, reg.data(), static_cast<std::uint16_t>(reg.size()),
                            data.data(), static_cast<std::uint16_t>(data.size()));
}

class I2c : public OnBoard {
  protected:
    // What went over the buses, as "BUS/ADDRESS w BYTES".
    std::vector<std::string> messages() {
        std::vector<std::string> all;
        for (const Json& event : events({{"kind", "i2c"}})) {
            all.push_back(event["bus"].dump() + "/" + event["address"].dump() +
                          (event["direction"] == "read" ? " r " : " w ") +
                          event.value("bytes", event.value("error", "")));
        }
        return all;
    }
    std::vector<std::string> requests() {
        std::vector<std::string> all;
        for (const Json& event : events({{"kind", "ioctl"}})) {
            const bool transfer = event["request"] == "I2C_RDWR";
            all.push_back(event["request"].get<std::string>() + " " +
                          (transfer ? event["record"]["count"] : event["argument"]).dump());
        }
        return all;
    }
};

class OpenI2c : public I2c {
  protected:
    void SetUp() override {
        open_buses();
        I2c::SetUp();
    }
};

TEST_F(I2c, AWriteIsOneMessageAndAReadACombinedOne) {
    in_a_new_process([this] {
        EXPECT_EQ(write(2, {0, 4}, {0x12, 0x34}), 0);
        Bytes data(2);
        EXPECT_EQ(read(2, {0, 4}, data), 0);
        EXPECT_THAT(data, ElementsAre(0x12, 0x34));
        EXPECT_EQ(read(2, {0, 4}, data, kAddr8 + 1), 0) << "the lowest bit is not the address's";
        EXPECT_THAT(messages(), ElementsAre("2/84 w 00041234", "2/84 w 0004", "2/84 r 1234",
                                            "2/84 w 0004", "2/84 r 1234"));
        EXPECT_THAT(requests(), ElementsAre("I2C_TIMEOUT 1", "I2C_RETRIES 2", "I2C_RDWR 1",
                                            "I2C_TIMEOUT 1", "I2C_RETRIES 2", "I2C_RDWR 2",
                                            "I2C_TIMEOUT 1", "I2C_RETRIES 2", "I2C_RDWR 2"));
        const Json shown = ask("i2c.show", {{"bus", 2}});
        EXPECT_EQ(shown.at("timeout_ms"), 10);
        EXPECT_EQ(shown.at("retries"), 2);
        EXPECT_EQ(events({{"kind", "open"}, {"mode", "read-write"}}).size(), 1U) << "it stays open";
        EXPECT_THAT(logged(), IsEmpty());
    });
}

TEST_F(OpenI2c, LengthsBeyondTheBoundsAreCutWithAWarning) {
    expect_misuse(); // the chip has not so many registers
    const Captured errors(stderr);
    EXPECT_EQ(write(2, {0, 4, 9}, Bytes(1025, 0xAB)), 0);
    std::string sent = "2/84 w 0004";
    for (int i = 0; i < 1024; ++i) {
        sent += "ab";
    }
    EXPECT_THAT(messages(), ElementsAre(sent));
    EXPECT_EQ(errors.text(), "Warning: !!!(data_len = 1025)at most 1024 bytes! \n"
                             "Warning: !!!(regaddr_len=3) at most 2 bytes! \n");
    forget_trace();
    EXPECT_EQ(write(2, {0, 4}, Bytes(1024, 0xAB)), 0);
    EXPECT_THAT(messages(), ElementsAre(sent)) << "and as much goes without one";
    forget_trace();
    Bytes two(2);
    EXPECT_EQ(read(2, Bytes(65535, 0), two), 0);
    EXPECT_THAT(errors.text(), testing::EndsWith("bytes! \nWarning: !!!(regaddr_len=65535) at most "
                                                 "2 bytes! \n"));
    EXPECT_THAT(messages(),
                ElementsAre("2/84 w 0000", testing::MatchesRegex("2/84 r [0-9a-f]{4}")));
    Bytes all(65535);
    EXPECT_EQ(read(2, {0, 0}, all), 1) << "no adapter takes that";
}

TEST_F(OpenI2c, AnAddressThatNobodyAnswersFails) {
    Bytes data{77};
    EXPECT_EQ(read(2, {0}, data, 0x22), 1);
    EXPECT_THAT(messages(), ElementsAre("2/17 w 00"));
    EXPECT_THAT(data, ElementsAre(77));
    ask("i2c.mute", {{"bus", 2}, {"address", 0x54}, {"muted", 1}});
    EXPECT_EQ(write(2, {0, 4}, {1, 2}), 1);
    ask("i2c.mute", {{"bus", 2}, {"address", 0x54}, {"muted", 0}});
}

TEST_F(I2c, MissingArgumentsFailAndOnlyAWriteOpensTheBus) {
    in_a_new_process([this] {
        std::uint8_t byte = 1;
        // NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): in the order of the arguments
        struct {
            const std::uint8_t* reg;
            std::uint16_t reg_len;
            std::uint8_t* data;
            std::uint16_t data_len;
        } const incomplete[] = {{nullptr, 1, &byte, 1},
                                {&byte, 1, nullptr, 1},
                                {&byte, 0, &byte, 1},
                                {&byte, 1, &byte, 0}};
        const Captured errors(stderr);
        for (const auto& [reg, reg_len, data, data_len] : incomplete) {
            EXPECT_EQ(i2c_readnumbytes(2, kAddr8, reg, reg_len, data, data_len), 1);
        }
        expect_none({{"kind", "open"}});
        for (const auto& [reg, reg_len, data, data_len] : incomplete) {
            EXPECT_EQ(i2c_writenumbytes(2, kAddr8, reg, reg_len, data, data_len), 1);
            EXPECT_EQ(events({{"kind", "open"}, {"node", "/dev/i2c-2"}}).size(), 1U);
        }
        EXPECT_EQ(errors.text(), "");
        EXPECT_EQ(i2c_writenumbytes(77, kAddr8, nullptr, 1, &byte, 1), 1);
        EXPECT_EQ(errors.text(),
                  "Error: Could not open file `/dev/i2c-77' or `/dev/i2c/77': " + kAbsent);
        EXPECT_THAT(messages(), IsEmpty());
    });
}

TEST_F(I2c, ABusThatCannotBeOpenedIsReportedAndTriedAgain) {
    in_a_new_process([this] {
        vanish("/dev/i2c-51"); // which no other test uses
        add_fault("/dev/i2c-5:open:EACCES:once");
        add_fault("/dev/i2c-5:open:EIO:once");
        const Captured errors(stderr);
        Bytes data(2);
        EXPECT_EQ(read(51, {0x10}, data), 1);
        EXPECT_EQ(read(5, {0, 4}, data), 1);
        EXPECT_EQ(write(5, {0, 4}, data), 1);
        EXPECT_EQ(errors.text(),
                  "Error: Could not open file `/dev/i2c-51' or `/dev/i2c/51': " + kAbsent +
                      "Error: Could not open file `/dev/i2c-5': Permission denied\nRun as root?\n"
                      "Error: Could not open file `/dev/i2c-5': Input/output error\n");
        appear("/dev/i2c-51");
        EXPECT_EQ(read(51, {0x10}, data), 1) << "nobody is there";
        EXPECT_EQ(opens("/dev/i2c-51", 1), 1);
        EXPECT_EQ(read(5, {0, 4}, data), 0);
    });
}

TEST_F(OpenI2c, OnlyTheTransferItselfCanFailAReadOfAnOpenBus) {
    Bytes data(2);
    std::vector<int> results;
    sweep(
        "/dev/i2c-2", "EIO",
        [&] {
            results.push_back(read(2, {0, 4}, data));
        },
        [](bool) {});
    EXPECT_THAT(results, ElementsAre(0, 0, 1, 0)) << "time-out, retries, transfer, nothing";
}

TEST_F(I2c, ThreadsThatOpenABusTogetherShareOneDescriptor) {
    in_a_new_process([this] {
        const auto others = ask("node.opens", {{"path", "/dev/i2c-2"}}).get<int>();
        add_fault("/dev/i2c-2:open:hold=gate");
        std::array<int, 4> results{};
        {
            std::vector<std::jthread> threads;
            threads.reserve(results.size());
            for (int& result : results) {
                threads.emplace_back([&result] { result = write(2, {0, 4}, {0, 1}); });
            }
            EXPECT_TRUE(comes_true([&] {
                return events({{"kind", "fault"}, {"action", "hold=gate"}}).size() ==
                       results.size();
            }));
            ask("fault.release", {{"tag", "gate"}});
        }
        EXPECT_THAT(results, testing::Each(0));
        EXPECT_EQ(messages().size(), results.size());
        EXPECT_EQ(opens("/dev/i2c-2", others + 1), others + 1);
    });
}

} // namespace
} // namespace hal_test::i2c
