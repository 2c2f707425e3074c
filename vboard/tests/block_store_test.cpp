// Storage with a write cache: what is read, what is flushed, what a loss of power leaves.

#include "models/support/block_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

namespace vb::block_store_test {
namespace {

constexpr std::size_t kSector = BlockStore::kSector;

Bytes filled(std::size_t size, std::uint8_t value) {
    return Bytes(size, value);
}

class BlockStoreTest : public testing::Test {
  protected:
    BlockStore store_{UniqueFd(memfd_create("store", MFD_CLOEXEC)), 8 * kSector};
    std::mt19937_64 chance_{1};
};

TEST_F(BlockStoreTest, ReadsWhatWasWrittenLastAcrossSectorsUpToTheEnd) {
    EXPECT_EQ(store_.write(100, filled(kSector, 1)), kSector);
    EXPECT_EQ(store_.write(110, filled(3, 2)), 3U);
    const Bytes all = store_.read(0, 2 * kSector);
    EXPECT_EQ(all[99], 0);
    EXPECT_EQ(all[100], 1);
    EXPECT_EQ(all[110], 2);
    EXPECT_EQ(all[113], 1);
    EXPECT_EQ(all[100 + kSector], 0);
    EXPECT_EQ(store_.unflushed_sectors(), 2U);
    EXPECT_EQ(store_.read(109, 2), (Bytes{1, 2}));
    EXPECT_EQ(store_.write(8 * kSector - 1, filled(2, 1)), 1U);
    EXPECT_EQ(store_.write(8 * kSector, filled(2, 1)), 0U);
    EXPECT_EQ(store_.read(8 * kSector - 1, 5), Bytes{1});
    EXPECT_TRUE(store_.read(9 * kSector, 5).empty());
}

TEST_F(BlockStoreTest, WhatWasFlushedSurvivesALossOfPower) {
    for (int round = 0; round < 50; ++round) {
        store_.write(0, filled(8 * kSector, 1));
        store_.flush();
        store_.write(kSector, filled(2 * kSector, 2));
        store_.flush(kSector + 1, kSector); // two sectors, touched by the range
        store_.write(4 * kSector, filled(kSector, 3));
        store_.lose_power(chance_);
        EXPECT_EQ(store_.unflushed_sectors(), 0U);
        EXPECT_EQ(store_.read(0, kSector), filled(kSector, 1));
        EXPECT_EQ(store_.read(kSector, 2 * kSector), filled(2 * kSector, 2));
        EXPECT_THAT(store_.read(4 * kSector, kSector),
                    testing::AnyOf(filled(kSector, 1), filled(kSector, 3)));
    }
}

TEST_F(BlockStoreTest, EachSectorIsWholeAndAnyOfItsVersionsCanSurvive) {
    std::set<std::uint8_t> seen;
    std::set<int> survivors; // how many sectors of one write
    for (int round = 0; round < 300; ++round) {
        store_.write(0, filled(8 * kSector, 0));
        store_.flush();
        store_.write(0, filled(4 * kSector, 1));
        store_.write(0, filled(kSector, 2));
        store_.lose_power(chance_);
        int survived = 0;
        for (unsigned sector = 0; sector < 4; ++sector) {
            const Bytes bytes = store_.read(sector * kSector, kSector);
            EXPECT_EQ(bytes, filled(kSector, bytes[0]));
            survived += bytes[0] != 0 ? 1 : 0;
            seen.insert(sector == 0 ? bytes[0] : 0);
        }
        survivors.insert(survived);
    }
    EXPECT_EQ(seen, (std::set<std::uint8_t>{0, 1, 2}));
    EXPECT_EQ(survivors, (std::set<int>{0, 1, 2, 3, 4})) << "nothing, all, and torn";
}

TEST_F(BlockStoreTest, WhatWaitedSoLongIsFlushedAndWhatIsGivenUpReadsAsZeros) {
    BlockStore store(UniqueFd(memfd_create("store", MFD_CLOEXEC)), 1 << 20);
    EXPECT_EQ(store.unflushed_since(), std::nullopt);
    store.write(0, filled(kSector, 1), 10);
    store.write(512 << 10, filled(kSector, 2), 20);
    store.write(0, filled(kSector, 3), 30);
    EXPECT_EQ(store.unflushed_since(), 10) << "since its first write, however often it changes";
    store.flush_until(9);
    EXPECT_EQ(store.unflushed_sectors(), 2U);
    store.flush_until(10);
    EXPECT_EQ(store.unflushed_since(), 20);
    store.lose_power(chance_);
    EXPECT_EQ(store.read(0, kSector), filled(kSector, 3));

    store.write(0, filled(3 * kSector, 4));
    store.discard(kSector, kSector);
    store.lose_power(chance_);
    EXPECT_EQ(store.read(0, kSector), filled(kSector, 4));
    EXPECT_EQ(store.read(kSector, kSector), filled(kSector, 0));
}

TEST_F(BlockStoreTest, WhatIsWrittenOverAndOverTakesNoMoreMemoryAndStaysHonest) {
    constexpr std::size_t kSize = 3 * BlockStore::kMostCached;
    BlockStore store(UniqueFd(memfd_create("store", MFD_CLOEXEC)), kSize);
    store.write(0, filled(kSize, 1));
    store.flush();
    for (std::uint8_t round = 2; round < 5; ++round) {
        store.write(0, filled(kSize, round));
        EXPECT_LE(store.cached_bytes(), BlockStore::kMostCached);
    }
    store.lose_power(chance_);
    EXPECT_EQ(store.read(0, kSize / 2), filled(kSize / 2, 4)) << "written first, so flushed";
    for (std::size_t at = kSize / 2; at < kSize; at += kSector) {
        const Bytes bytes = store.read(at, kSector);
        ASSERT_THAT(bytes, testing::AnyOf(filled(kSector, 3), filled(kSector, 4))) << at;
    }

    std::set<std::uint8_t> seen;
    for (int round = 0; round < 150; ++round) {
        store.write(0, filled(kSector, 0));
        store.flush();
        for (std::uint8_t value = 1; value <= 100; ++value) {
            store.write(0, filled(kSector, value));
        }
        EXPECT_LE(store.cached_bytes(), BlockStore::kMostVersions << 14);
        store.lose_power(chance_);
        seen.insert(store.read(0, 1)[0]);
    }
    EXPECT_EQ(seen, (std::set<std::uint8_t>{0, 97, 98, 99, 100}));
}

} // namespace
} // namespace vb::block_store_test
