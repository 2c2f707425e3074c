// The FPGA's nodes as a program without our library meets them.

#include "client/board_fixture.h"
#include "tests/plain_calls.h"

#include <array>

namespace vb::fpga_test {
namespace {

struct Record {
    std::uint32_t zero[2] = {};
    std::uint32_t operation = 0;
    std::uint32_t address = 0;
    std::uint32_t length = 0;
    std::uint32_t zero_too = 0;
    void* buffer = nullptr;
};
static_assert(sizeof(Record) == 32);

class FpgaModel : public BoardTest {};

TEST_F(FpgaModel, TransfersUpToItsLastByteAndRefusesWhatItCannotDo) {
    expect_misuse();
    std::array<std::uint8_t, 16> bytes{};
    const UniqueFd node = plain::open("/dev/fpga");
    const std::pair<Record, int> calls[] = {
        {{{}, 3, 65532, 4, 0, bytes.data()}, 0},
        {{{}, 1, 65535, 1, 0, bytes.data()}, 0},
        {{{}, 1, 65536, 0, 0, nullptr}, 0},
        {{{}, 1, 0, 4, 0, nullptr}, -EFAULT},
        {{{}, 3, 0, 4, 0, nullptr}, -EFAULT},
        {{{}, 2, 0, 4, 0, bytes.data()}, -EINVAL}, // neither reads nor writes
        {{{}, 1, 65530, 7, 0, bytes.data()}, -EINVAL},
        {{{}, 1, 0xFFFFFFFF, 2, 0, bytes.data()}, -EINVAL},
        {{{}, 1, 4, 0xFFFFFFFF, 0, bytes.data()}, -EINVAL},
        {{{0, 1}, 1, 0, 4, 0, bytes.data()}, -EINVAL},
    };
    for (const auto& [record, result] : calls) {
        Record copy = record;
        EXPECT_EQ(plain::request(node, 0xC00865A0, &copy), result)
            << record.operation << " of " << record.length << " at " << record.address;
    }
    EXPECT_EQ(events({{"kind", "misuse"}}).size(), 5U);
}

TEST_F(FpgaModel, ReportsEachInterruptOnceToEveryOpen) {
    const UniqueFd fd = plain::open("/dev/fpgavm");
    const UniqueFd other = plain::open("/dev/fpgavm");
    EXPECT_EQ(plain::wait(fd, POLLIN), 0);
    board().ask("fpga.interrupt", {{"count", 3}});
    EXPECT_EQ(plain::wait(fd, POLLPRI), 0) << "and nothing is taken by a poll that did not ask";
    for (int i = 0; i < 3; ++i) {
        EXPECT_NE(plain::wait(fd, POLLIN, 1000), 0);
    }
    EXPECT_EQ(plain::wait(fd, POLLIN, 20), 0);
    EXPECT_NE(plain::wait(other, POLLIN), 0);
}

} // namespace
} // namespace vb::fpga_test
