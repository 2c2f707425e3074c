// The boot-control record, byte by byte, on the board's misc partition.
#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <array>
#include <fcntl.h>
#include <functional>
#include <unistd.h>

namespace hal_test::absystem {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

using Record = std::array<std::uint8_t, 32>;

constexpr char kMisc[] = "/dev/block/by-name/misc";
constexpr int kPlace = 2048;

// CRC-32 bit by bit.
std::uint32_t crc_of(const Record& record) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (int bit = 0; bit < 28 * 8; ++bit) {
        crc ^= record[static_cast<std::size_t>(bit / 8)] >> (bit % 8) & 1U;
        crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320U : 0);
    }
    return ~crc;
}

std::uint32_t stored_crc(const Record& record) {
    return std::uint32_t{record[28]} << 24 | std::uint32_t{record[29]} << 16 |
           std::uint32_t{record[30]} << 8 | record[31];
}

class AbSystem : public OnBoard {
  protected:
    static Record stored() {
        Record record{};
        const int fd = open(kMisc, O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(pread(fd, record.data(), record.size(), kPlace), ssize_t{32});
        close(fd);
        return record;
    }
    static void store(const Record& record) {
        const int fd = open(kMisc, O_WRONLY | O_CLOEXEC);
        EXPECT_EQ(pwrite(fd, record.data(), record.size(), kPlace), ssize_t{32});
        fsync(fd);
        close(fd);
    }
    // The defaults with other slots: priority and tries of A and B.
    static Record with_slots(std::array<std::uint8_t, 4> slots) {
        EXPECT_EQ(hal_avb_init(), 2048);
        Record record = stored();
        record[5] = 9;  // a minor version
        record[16] = 7; // the bootloader's marker
        record[14] = 1; // B was successful
        record[8] = slots[0];
        record[9] = slots[1];
        record[12] = slots[2];
        record[13] = slots[3];
        const std::uint32_t crc = crc_of(record);
        for (unsigned i = 0; i < 4; ++i) {
            record[28 + i] = static_cast<std::uint8_t>(crc >> (24 - 8 * i));
        }
        store(record);
        return record;
    }
    std::size_t writes() { return events({{"kind", "write"}, {"node", kMisc}}).size(); }
};

TEST_F(AbSystem, DefaultsAreTheseBytes) {
    const Json partitions = ask("partition.list");
    EXPECT_EQ(hal_avb_init(), 2048);
    EXPECT_EQ(ask("partition.list"), partitions) << "nothing more waits to be flushed";
    const Record record = stored();
    EXPECT_THAT(record,
                ElementsAre(0, 'A', 'B', '0', 1, 0, 0, 0, 15, 3, 0, 0, 14, 3, 0, 0, 0, 0, 0, 0, 0,
                            0, 0, 0, 0, 0, 0, 0, record[28], record[29], record[30], record[31]));
    EXPECT_EQ(stored_crc(record), crc_of(record));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(AbSystem, EachChangeChangesWhatItSaysAndNothingElse) {
    using Slots = std::array<std::uint8_t, 4>;
    const struct {
        const char* what;
        std::function<std::int32_t()> call;
        Slots before;
        Slots after; // the same: nothing is written
        std::int32_t result;
    } cases[] = {
        {"retry a", [] { return hal_avb_set_retry(0, 0); }, {15, 3, 14, 2}, {15, 0, 14, 2}, 0},
        {"retry b", [] { return hal_avb_set_retry(1, 1); }, {15, 3, 14, 2}, {15, 3, 14, 1}, 0},
        {"same", [] { return hal_avb_set_retry(1, 3); }, {15, 1, 14, 3}, {15, 1, 14, 3}, 0},
        {"set b", [] { return hal_avb_set_bootslot(1); }, {15, 1, 14, 0}, {14, 1, 15, 3}, 0},
        {"set a, low", [] { return hal_avb_set_bootslot(0); }, {1, 0, 9, 2}, {15, 3, 14, 2}, 0},
        {"set a again", [] { return hal_avb_set_bootslot(0); }, {15, 1, 15, 0}, {15, 1, 15, 0}, 0},
        {"now a", [] { return hal_avb_set_now(); }, {15, 1, 14, 2}, {15, 3, 14, 2}, 0},
        {"now b", [] { return hal_avb_set_now(); }, {14, 1, 200, 0}, {14, 1, 200, 3}, 0},
        {"now, equal", [] { return hal_avb_set_now(); }, {15, 3, 15, 1}, {15, 3, 15, 1}, 0},
        {"switch to b", [] { return hal_absystem_switch(); }, {15, 1, 14, 0}, {14, 3, 15, 3}, 2048},
        {"switch to a", [] { return hal_absystem_switch(); }, {3, 0, 4, 0}, {15, 3, 14, 3}, 2048},
        {"switch, equal",
         [] { return hal_absystem_switch(); },
         {15, 3, 15, 3},
         {14, 3, 15, 3},
         2048},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        Record expected = with_slots(each.before);
        forget_trace();
        EXPECT_EQ(each.call(), each.result);
        EXPECT_EQ(writes(), each.before == each.after ? 0U : 1U);
        const Record record = stored();
        EXPECT_EQ(stored_crc(record), crc_of(record));
        expected[8] = each.after[0];
        expected[9] = each.after[1];
        expected[12] = each.after[2];
        expected[13] = each.after[3];
        EXPECT_TRUE(std::equal(record.begin(), record.begin() + 28, expected.begin()));
    }
    with_slots({14, 3, 15, 3}); // a switch writes even what is so already
    EXPECT_EQ(hal_absystem_switch() + hal_absystem_switch(), 4096);
}

TEST_F(AbSystem, BadArgumentsDoNotReachTheDevice) {
    EXPECT_EQ(hal_avb_set_retry(2, 0), -35);
    EXPECT_EQ(hal_avb_set_retry(0, 4), -35);
    EXPECT_EQ(hal_avb_set_bootslot(2), -1);
    expect_none({{"kind", "open"}, {"node", kMisc}});
    EXPECT_THAT(logged("ERROR"),
                ElementsAre("hal_avb_set_retry: para is error, slot=2 >= 2, or retry=0 > 3!\n",
                            "hal_avb_set_retry: para is error, slot=0 >= 2, or retry=4 > 3!\n",
                            "hal_avb_set_bootslot: para is error, slot=2 >= 2!\n"));
}

TEST_F(AbSystem, ARecordThatDoesNotVerifyIsReplacedByTheDefaults) {
    hal_avb_init();
    const Record defaults = stored();
    const struct {
        std::size_t byte;
        std::uint8_t value;
        const char* logged;
    } cases[] = {{1, 'B', "Magic is incorrect.\n"},
                 {4, 2, "No support for given major version.\n"},
                 {4, 255, "No support for given major version.\n"},
                 {12, 15, "CRC32 does not match.\n"},
                 {31, static_cast<std::uint8_t>(defaults[31] ^ 1), "CRC32 does not match.\n"}};
    for (const auto& each : cases) {
        Record bad = defaults;
        bad[each.byte] = each.value;
        store(bad);
        forget_trace();
        EXPECT_EQ(hal_avb_set_now(), 0);
        EXPECT_EQ(stored(), defaults);
        EXPECT_THAT(logged(),
                    ElementsAre(each.logged, "avb_data_read: avb data verify failed, init\n"));
    }
    store(Record{}); // a fresh device
    EXPECT_EQ(hal_absystem_switch(), 2048);
    EXPECT_EQ(stored()[12], 15) << "as from the defaults";
}

TEST_F(AbSystem, ShowsTheRecordInTheLog) {
    with_slots({15, 1, 14, 0});
    forget_trace();
    hal_avb_data_show();
    EXPECT_THAT(logged("INFO"),
                ElementsAre("Slot A information:\n",
                            "slot A: priority = 15, tries_remaining = 1\n\n",
                            "Slot B information:\n",
                            "slot B: priority = 14, tries_remaining = 0\n\n", "last_boot=7\n"));
}

TEST_F(AbSystem, AFailureOfAnyCallIsToldAndChangesNothing) {
    with_slots({15, 1, 14, 0});
    const Record before = stored();
    sweep(
        kMisc, "EIO",
        [&] {
            forget_trace();
            const bool done = hal_avb_set_retry(1, 2) == 0;
            EXPECT_EQ(done, logged("ERROR").empty());
        },
        [&](bool failed) {
            clear_faults();
            if (failed) {
                EXPECT_EQ(stored(), before);
                EXPECT_THAT(logged("ERROR"),
                            Contains("hal_avb_set_retry: avb ab set retry fail!\n"));
            }
        });
    EXPECT_EQ(stored()[13], 2);
}

TEST_F(AbSystem, AMissingPartitionIsToldStepByStep) {
    vanish(kMisc);
    const std::string open = "AVB_MISC_DEV open failed,path: /dev/block/by-name/misc\n";
    const std::string read = "avb_data_read: avb data read failed!\n";
    EXPECT_EQ(hal_avb_init(), -5);
    EXPECT_EQ(hal_avb_set_bootslot(0), -5);
    EXPECT_EQ(hal_avb_set_now(), -5);
    EXPECT_EQ(hal_absystem_switch(), -5);
    hal_avb_data_show();
    EXPECT_THAT(logged(), ElementsAre(open, "avb_data_write: avb data write failed!\n",
                                      "hal_avb_init: avb ab init fail!\n", open, read,
                                      "hal_avb_set_bootslot: avb ab set bootslot fail!\n", open,
                                      read, "hal_avb_set_now: avb ab set now fail!\n", open, read,
                                      "hal_absystem_switch: avb ab set now fail!\n", open, read));
    EXPECT_NE(access(kMisc, F_OK), 0) << "it is not made";
    appear(kMisc);
}

} // namespace
} // namespace hal_test::absystem
