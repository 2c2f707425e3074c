#include "models/support/register_table.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

namespace vb::register_table_test {
namespace {

constexpr RegisterRow kRows[] = {
    {0, 1, "plain", 0x12},
    {1, 1, "flags", 0xFF, 0x0F, 0x30},
    {0xFF, 1, "last", 0, 0},
};

TEST(RegisterTable, KeepsClearsAndProtectsBitsAndGoesRoundAtTheEnd) {
    const auto file =
        std::filesystem::temp_directory_path() / ("register-table-" + std::to_string(getpid()));
    Board board(BoardClock::create(file));
    std::filesystem::remove(file);
    RegisterTable table(board, "chip", {1, 1}, kRows);
    EXPECT_EQ(table.value(0), 0x12);

    unsigned before = 0;
    table.on_written([&](std::uint16_t, std::uint16_t old) { before = old; });
    table.write(Bytes{1, 0x15});
    EXPECT_EQ(before, 0xFFU);
    EXPECT_EQ(table.value(1), 0xE5) << "bits 6, 7 kept, 4 cleared by its 1, 5 kept, 0-3 written";
    table.write(Bytes{0xFF, 7, 8});
    EXPECT_EQ(board.trace().after(0, {{"kind", "misuse"}}).size(), 1U);
    EXPECT_EQ(table.value(0xFF), 0);
    EXPECT_EQ(table.value(0), 8) << "the number after the last is the first";
    table.write(Bytes{0xFF});
    EXPECT_EQ(table.read(2), (Bytes{0, 8}));
    table.reset();
    EXPECT_EQ(table.value(0), 0x12);
}

} // namespace
} // namespace vb::register_table_test
