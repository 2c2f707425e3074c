// Block devices: views of a disk, what their nodes refuse, and what programs ask of them.

#include "models/support/block_node.h"

#include "tests/run_on_board.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <sys/mman.h>

namespace vb::block_node_test {
namespace {

using testing::HasSubstr;

constexpr std::size_t kSector = BlockStore::kSector;

class BlockNodeTest : public testing::Test {
  protected:
    // Opens of it are alive as long as the test.
    File& opened(const std::shared_ptr<BlockNode>& node, int flags = O_RDWR) {
        EXPECT_EQ(node->open({"/dev/block", flags}, files_.emplace_back()).error, 0);
        return *files_.back();
    }

    // What a request answers, with its record; the record is `number` at first.
    static Outcome ask(File& file, std::uint32_t code, std::uint64_t& number,
                       std::uint64_t second = 0) {
        for (const RequestRow& row : file.requests()) {
            if (row.code == code) {
                const Caller caller(gettid(), -1);
                Bytes record = bytes_of(std::array{number, second});
                RequestCall call{row, 0, std::span(record).first(row.size), caller};
                Outcome outcome = row.handler(file, call);
                number = record_from<std::uint64_t>(record);
                return outcome;
            }
        }
        return Outcome::failed(ENOTTY);
    }
    static Outcome put(File& file, const Bytes& data, std::uint64_t offset, bool direct = false) {
        Found none;
        const Caller caller(gettid(), -1);
        WriteCall call{0, data, offset, caller, none, direct};
        return file.write(call);
    }
    static std::uint64_t number_of(File& file, std::uint32_t code) {
        std::uint64_t number = 0;
        EXPECT_EQ(ask(file, code, number).kind, Outcome::Kind::done);
        return number;
    }

    TemporaryFolder folder_;
    Board board_{BoardClock::create(folder_ / "clock")};
    std::shared_ptr<BlockDisk> disk_ = std::make_shared<BlockDisk>(
        board_, UniqueFd(memfd_create("disk", MFD_CLOEXEC)), 64 * kSector);
    std::shared_ptr<BlockNode> whole_ = std::make_shared<BlockNode>(BlockView(disk_));
    std::shared_ptr<BlockNode> part_ =
        std::make_shared<BlockNode>(BlockView(disk_, 8 * kSector, 4 * kSector));
    std::vector<std::unique_ptr<File>> files_;
};

TEST_F(BlockNodeTest, AViewIsItsPartOfTheDiskAndNothingBesideIt) {
    File& whole = opened(whole_);
    File& part = opened(part_);
    put(whole, Bytes(64 * kSector, 1), 0);
    EXPECT_EQ(put(part, Bytes(2 * kSector, 2), 3 * kSector).result, kSector);
    EXPECT_EQ(put(part, Bytes(1, 2), 4 * kSector).error, ENOSPC);
    EXPECT_EQ(part.read(9 * kSector, 3 * kSector).data, Bytes(kSector, 2));
    EXPECT_EQ(part.read(1, 4 * kSector).result, 0);
    EXPECT_EQ(whole.read(kSector, 11 * kSector).data, Bytes(kSector, 2));
    EXPECT_EQ(whole.read(kSector, 12 * kSector).data, Bytes(kSector, 1));
    EXPECT_EQ(part_->size(), 4 * kSector);
    EXPECT_EQ(number_of(part, BLKGETSIZE), 4U);
    EXPECT_EQ(number_of(part, BLKGETSIZE64), 4 * kSector);
    std::uint64_t geometry[2] = {};
    EXPECT_EQ(ask(part, HDIO_GETGEO, geometry[0]).result, 0);
    EXPECT_EQ(geometry[0] & 0xFFFFFFFF, 4U | 16U << 8 | 1U << 16) << "a cylinder of 64 sectors";

    std::uint64_t offset = 3 * kSector;
    EXPECT_EQ(ask(part, BLKDISCARD, offset, 2 * kSector).error, EINVAL);
    EXPECT_EQ(ask(opened(part_, O_RDONLY), BLKDISCARD, offset, kSector).error, EBADF);
    EXPECT_EQ(ask(part, BLKDISCARD, offset, kSector).result, 0);
    EXPECT_EQ(whole.read(kSector, 11 * kSector).data, Bytes(kSector, 0));
}

TEST_F(BlockNodeTest, WhatIsReadOnlyRefusesAsTheKernelDoes) {
    File& file = opened(part_);
    std::uint64_t yes = 1;
    EXPECT_EQ(ask(file, BLKROSET, yes).result, 0);
    EXPECT_EQ(number_of(file, BLKROGET), 1U);
    EXPECT_EQ(put(file, Bytes(1), 0).error, EPERM);
    EXPECT_EQ(put(opened(whole_), Bytes(1), 0).result, 1) << "a part does not speak for the disk";
    disk_->protect(true);
    std::unique_ptr<File> none;
    EXPECT_EQ(whole_->open({"/dev/block", O_WRONLY}, none).error, EROFS);
    EXPECT_EQ(number_of(opened(whole_, O_RDONLY), BLKROGET), 1U);
}

TEST_F(BlockNodeTest, BlocksAreAsLargeAsItsSizeAllowsUntilAnOpenSetsThem) {
    EXPECT_EQ(number_of(opened(part_), BLKBSZGET), 4 * kSector);
    EXPECT_EQ(number_of(opened(whole_), BLKBSZGET), 4096U);
    const CommandResult asked = sh_on_board(
        "n=/dev/block/by-name/misc; PATH=$PATH:/sbin:/usr/sbin\n"
        "for size in 513 256 8192; do blockdev --setbsz $size $n 2>&1; done | grep -c Invalid\n"
        "blockdev --setbsz 1024 --getbsz $n; blockdev --getbsz $n");
    EXPECT_EQ(asked.out, "3\n1024\n4096\n") << asked.err;
}

TEST_F(BlockNodeTest, WhatGoesPastTheCacheComesInWholeSectors) {
    File& direct = opened(part_, O_RDWR | O_DIRECT);
    EXPECT_EQ(direct.read(kSector, 1).error, EINVAL);
    EXPECT_EQ(direct.read(100, 0).error, EINVAL);
    EXPECT_EQ(direct.read(9 * kSector, 3 * kSector).data.size(), kSector);
    EXPECT_EQ(direct.read(100, 4 * kSector).error, 0) << "at the end there is nothing to refuse";
    EXPECT_EQ(put(direct, Bytes(100), 0).result, 100) << "it may be switched off after the open";
    EXPECT_EQ(put(opened(part_), Bytes(100), 0, true).error, EINVAL);
    EXPECT_EQ(put(direct, Bytes(kSector), 0, true).result, kSector);
}

TEST_F(BlockNodeTest, AnOwnersRequestsComeBeforeThoseOfEveryBlockDevice) {
    static constexpr RequestRow kMore[] = {
        {0x2285,
         "SG_IO",
         RequestRow::Direction::inout,
         4,
         {},
         [](File& at, RequestCall& call) {
             const BlockView& view = dynamic_cast<BlockFile&>(at).view();
             call.record[0] = static_cast<std::uint8_t>(view.size / kSector);
             return Outcome::done();
         }},
        {BLKRRPART,
         "BLKRRPART",
         RequestRow::Direction::none,
         0,
         {},
         [](File&, RequestCall&) { return Outcome::done(5); }},
    };
    File& file = opened(std::make_shared<BlockNode>(BlockView(disk_), kMore));
    EXPECT_EQ(number_of(file, 0x2285), 64U);
    std::uint64_t none = 0;
    EXPECT_EQ(ask(file, BLKRRPART, none).result, 5);
    EXPECT_EQ(ask(opened(whole_), BLKRRPART, none).error, EINVAL);
    EXPECT_EQ(number_of(file, BLKSSZGET), kSector);
}

TEST_F(BlockNodeTest, ProgramsFindAPartitionsSizeAndItsTable) {
    const CommandResult asked =
        sh_on_board("n=/dev/block/by-name/boot_a\n"
                    "PATH=$PATH:/sbin:/usr/sbin\n"
                    "blockdev --getsize64 --getsz --getss --getbsz --getro --flushbufs $n\n"
                    "printf 'o\\nn\\np\\n1\\n\\n+4M\\nw\\n' | fdisk $n >/dev/null\n"
                    "LC_ALL=C fdisk -l $n");
    EXPECT_THAT(asked.out, HasSubstr("16777216\n32768\n512\n4096\n0\n"));
    EXPECT_THAT(asked.out, HasSubstr("16 MiB, 16777216 bytes, 32768 sectors"));
    EXPECT_THAT(asked.out, testing::ContainsRegex("boot_a1 +2048 +10239 +8192 +4M 83 Linux"));
    EXPECT_THAT(asked.err, testing::Not(HasSubstr("blockdev")));
}

TEST_F(BlockNodeTest, ADeviceIsNotCutOffThoughAShellOpensItAnew) {
    const CommandResult asked =
        sh_on_board("n=/dev/block/by-name/misc\n"
                    "printf new >$n && head -c 3 $n\n"
                    "for node in $n /dev/led; do truncate -s 1 $node; done");
    EXPECT_EQ(asked.out, "new");
    EXPECT_EQ(asked.status, 1);
    EXPECT_THAT(asked.err, testing::ContainsRegex("misc' .*Invalid argument\n.*led' .*Invalid"));
}

} // namespace
} // namespace vb::block_node_test
