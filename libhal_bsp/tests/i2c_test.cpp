// I2C transfers against adapters played in this process. A bus stays open for the life of the
// process, so tests that open one each take a bus of their own.
#include "tests/support/captured.h"
#include "tests/support/fake_nodes.h"

#include <hal_bsp/hal_bsp.h>

#include <array>
#include <cerrno>
#include <gmock/gmock.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <numeric>
#include <span>
#include <thread>

using hal_test::Captured;
using hal_test::FakeNodes;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Bytes = std::vector<uint8_t>;

struct Sent {
    std::string node;
    uint16_t address;
    uint16_t flags;
    Bytes bytes; // of a read: what was put there
    bool operator==(const Sent&) const = default;
};

class I2c : public testing::Test {
  protected:
    void SetUp() override {
        nodes().reset();
        nodes().answer_with([this](const std::string& node, unsigned long code, void* argument) {
            return answer(node, code, argument);
        });
    }
    static FakeNodes& nodes() { return FakeNodes::instance(); }

    static int write(uint8_t bus, const Bytes& reg, const Bytes& data) {
        return i2c_writenumbytes(bus, 0xA9, reg.data(), static_cast<uint16_t>(reg.size()),
                                 data.data(), static_cast<uint16_t>(data.size()));
    }
    static int read(uint8_t bus, const Bytes& reg, Bytes& data) {
        return i2c_readnumbytes(bus, 0xA9, reg.data(), static_cast<uint16_t>(reg.size()),
                                data.data(), static_cast<uint16_t>(data.size()));
    }

    std::vector<Sent> sent_;
    std::vector<std::pair<unsigned long, unsigned long>> settings_;
    int result_ = 0;

  private:
    int answer(const std::string& node, unsigned long code, void* argument) {
        if (code != I2C_RDWR) {
            settings_.emplace_back(code, reinterpret_cast<unsigned long>(argument));
            return -1; // not looked at
        }
        const auto& transfer = *static_cast<i2c_rdwr_ioctl_data*>(argument);
        for (const i2c_msg& message : std::span(transfer.msgs, transfer.nmsgs)) {
            const std::span bytes(message.buf, message.len);
            if ((message.flags & I2C_M_RD) != 0 && result_ >= 0) {
                std::iota(bytes.begin(), bytes.end(), uint8_t{1});
            }
            sent_.push_back({node, message.addr, message.flags, {bytes.begin(), bytes.end()}});
        }
        return result_;
    }
};

TEST_F(I2c, WriteIsOneMessageAndReadACombinedOne) {
    nodes().add("/dev/i2c-200");
    result_ = 2;
    EXPECT_EQ(write(200, {0x12, 0x34}, {5, 6, 7}), 0);
    Bytes data(3);
    EXPECT_EQ(read(200, {0x12}, data), 0);
    EXPECT_THAT(sent_, ElementsAre(Sent{"/dev/i2c-200", 0x54, 0, {0x12, 0x34, 5, 6, 7}},
                                   Sent{"/dev/i2c-200", 0x54, 0, {0x12}},
                                   Sent{"/dev/i2c-200", 0x54, I2C_M_RD, {1, 2, 3}}));
    EXPECT_THAT(data, ElementsAre(1, 2, 3));
    EXPECT_THAT(settings_, ElementsAre(std::pair(0x0702, 1), std::pair(0x0701, 2),
                                       std::pair(0x0702, 1), std::pair(0x0701, 2)));
    EXPECT_THAT(nodes().take_opens(), ElementsAre("/dev/i2c-200 rw"));
}

TEST_F(I2c, LengthsBeyondTheBoundsAreCutWithAWarning) {
    nodes().add("/dev/i2c-201");
    const Bytes reg{1, 2, 3};
    const Bytes long_data(1025, 9);
    const Captured errors(stderr);
    EXPECT_EQ(write(201, reg, long_data), 0);
    EXPECT_EQ(errors.text(), "Warning: !!!(data_len = 1025)at most 1024 bytes! \n"
                             "Warning: !!!(regaddr_len=3) at most 2 bytes! \n");
    Bytes expected(1026, 9);
    expected[0] = 1;
    expected[1] = 2;
    EXPECT_EQ(sent_.at(0).bytes, expected);

    Bytes all(65535);
    EXPECT_EQ(read(201, Bytes(65535, 8), all), 0);
    EXPECT_THAT(errors.text(), testing::EndsWith("(regaddr_len=65535) at most 2 bytes! \n"));
    EXPECT_THAT(sent_.at(1).bytes, ElementsAre(8, 8));
    EXPECT_EQ(sent_.at(2).bytes, all);

    sent_.clear();
    EXPECT_EQ(write(201, {1, 2}, Bytes(1024, 9)), 0);
    EXPECT_EQ(sent_.at(0).bytes.size(), 1026U);
}

TEST_F(I2c, RefusedTransferFails) {
    nodes().add("/dev/i2c-202");
    result_ = -1;
    Bytes data{77};
    EXPECT_EQ(write(202, {1}, {1}), 1);
    EXPECT_EQ(read(202, {1}, data), 1);
    EXPECT_THAT(data, ElementsAre(77));
}

TEST_F(I2c, MissingArgumentsFailAndOnlyAWriteOpensTheBus) {
    uint8_t byte = 1;
    const Captured errors(stderr);
    EXPECT_EQ(i2c_readnumbytes(203, 2, nullptr, 1, &byte, 1), 1);
    EXPECT_EQ(i2c_readnumbytes(203, 2, &byte, 1, nullptr, 1), 1);
    EXPECT_EQ(i2c_readnumbytes(203, 2, &byte, 0, &byte, 1), 1);
    EXPECT_EQ(i2c_readnumbytes(203, 2, &byte, 1, &byte, 0), 1);
    EXPECT_THAT(nodes().take_opens(), IsEmpty());
    EXPECT_EQ(errors.text(), "");

    EXPECT_EQ(i2c_writenumbytes(203, 2, nullptr, 1, &byte, 1), 1);
    EXPECT_THAT(nodes().take_opens(), ElementsAre("/dev/i2c-203 rw", "/dev/i2c/203 rw"));
    EXPECT_EQ(errors.text(), "Error: Could not open file `/dev/i2c-203' or `/dev/i2c/203': "
                             "No such file or directory\n");
    nodes().add("/dev/i2c-203");
    EXPECT_EQ(i2c_writenumbytes(203, 2, &byte, 1, nullptr, 1), 1);
    EXPECT_EQ(i2c_writenumbytes(203, 2, &byte, 0, &byte, 1), 1);
    EXPECT_EQ(i2c_writenumbytes(203, 2, &byte, 1, &byte, 0), 1);
    EXPECT_THAT(nodes().take_opens(), ElementsAre("/dev/i2c-203 rw"));
    EXPECT_THAT(sent_, IsEmpty());
}

TEST_F(I2c, SecondPatternIsTriedWhenTheFirstDoesNotExistOnly) {
    nodes().add("/dev/i2c/3");
    EXPECT_EQ(write(3, {1}, {1}), 0);
    EXPECT_EQ(sent_.at(0).node, "/dev/i2c/3");

    nodes().add("/dev/i2c-4");
    nodes().add("/dev/i2c/4");
    nodes().refuse_opens("/dev/i2c-4", EACCES);
    nodes().refuse_opens("/dev/i2c/5", EIO);
    nodes().take_opens();
    const Captured errors(stderr);
    EXPECT_EQ(write(4, {1}, {1}), 1);
    EXPECT_EQ(write(5, {1}, {1}), 1);
    EXPECT_THAT(nodes().take_opens(),
                ElementsAre("/dev/i2c-4 rw", "/dev/i2c-5 rw", "/dev/i2c/5 rw"));
    EXPECT_EQ(errors.text(),
              "Error: Could not open file `/dev/i2c-4': Permission denied\nRun as root?\n"
              "Error: Could not open file `/dev/i2c/5': Input/output error\n");
}

TEST_F(I2c, BusIsKeptOpenAndAFailureIsTriedAgain) {
    Bytes data(1);
    const Captured errors(stderr);
    EXPECT_EQ(read(255, {1}, data), 1);
    nodes().add("/dev/i2c-255");
    const std::size_t before = nodes().open_count();
    EXPECT_EQ(read(255, {1}, data), 0);
    EXPECT_EQ(write(255, {1}, {1}), 0);
    EXPECT_EQ(nodes().open_count(), before + 1);
    EXPECT_THAT(nodes().take_opens(),
                ElementsAre("/dev/i2c-255 rw", "/dev/i2c/255 rw", "/dev/i2c-255 rw"));
}

TEST_F(I2c, ThreadsThatOpenABusTogetherShareOneDescriptor) {
    for (uint8_t bus = 100; bus < 120; ++bus) {
        nodes().add("/dev/i2c-" + std::to_string(bus));
        const std::size_t before = nodes().open_count();
        std::array<int, 4> results{};
        {
            std::vector<std::jthread> threads;
            for (int& result : results) {
                threads.emplace_back([bus, &result] { result = write(bus, {1}, {2}); });
            }
        }
        EXPECT_THAT(results, testing::Each(0));
        EXPECT_EQ(nodes().open_count(), before + 1);
    }
}

} // namespace
