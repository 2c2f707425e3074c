#include "models/support/block_node.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/fs.h>
#include <linux/hdreg.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace vb {

namespace {

constexpr std::int64_t kUnflushedFor = 30'000 * kMillisecond; // the kernel's dirty_expire_centisecs
constexpr std::uint64_t kReadAhead = 256;                     // sectors: the kernel's default
constexpr std::int32_t kPage = 4096;

using Direction = RequestRow::Direction;
using FieldType = RecordField::Type;

constexpr RecordField kBlockNumber64[] = {{"value", FieldType::u64, 0}};
constexpr RecordField kBlockNumber32[] = {{"value", FieldType::u32, 0}};
constexpr RecordField kBlockNumber16[] = {{"value", FieldType::u16, 0}};
constexpr RecordField kBlockRange[] = {{"offset", FieldType::u64, 0}, {"size", FieldType::u64, 8}};
constexpr RecordField kBlockGeometry[] = {{"heads", FieldType::u8, 0},
                                          {"sectors", FieldType::u8, 1},
                                          {"cylinders", FieldType::u16, 2},
                                          {"start", FieldType::u64, 8}};

// Rows of numbers that are the same for every device.
template <std::uint16_t number>
consteval RequestRow row_of_16(std::uint32_t code, const char* name) {
    return request<&BlockFile::give<std::uint16_t, number>>(code, name, Direction::out,
                                                            kBlockNumber16);
}

template <std::uint32_t number>
consteval RequestRow row_of_32(std::uint32_t code, const char* name) {
    return request<&BlockFile::give<std::uint32_t, number>>(code, name, Direction::out,
                                                            kBlockNumber32);
}

template <std::uint64_t number>
consteval RequestRow row_of_64(std::uint32_t code, const char* name) {
    return request<&BlockFile::give<std::uint64_t, number>>(code, name, Direction::out,
                                                            kBlockNumber64);
}

// The size field of a code says little: several have none, and BLKBSZGET gives an int.
constexpr RequestRow kBlockRequests[] = {
    request<&BlockFile::sectors>(BLKGETSIZE, "BLKGETSIZE", Direction::out, kBlockNumber64),
    request<&BlockFile::size>(BLKGETSIZE64, "BLKGETSIZE64", Direction::out, kBlockNumber64),
    row_of_32<BlockStore::kSector>(BLKSSZGET, "BLKSSZGET"),
    row_of_32<BlockStore::kSector>(BLKPBSZGET, "BLKPBSZGET"),
    request<&BlockFile::block_size>(BLKBSZGET, "BLKBSZGET", Direction::out, kBlockNumber32),
    request<&BlockFile::set_block_size>(BLKBSZSET, "BLKBSZSET", Direction::in, kBlockNumber32),
    row_of_32<BlockStore::kSector>(BLKIOMIN, "BLKIOMIN"),
    row_of_32<0>(BLKIOOPT, "BLKIOOPT"),
    row_of_32<0>(BLKALIGNOFF, "BLKALIGNOFF"),
    row_of_64<kReadAhead>(BLKRAGET, "BLKRAGET"),
    row_of_64<kReadAhead>(BLKFRAGET, "BLKFRAGET"),
    row_of_16<1024>(BLKSECTGET, "BLKSECTGET"),
    row_of_16<0>(BLKROTATIONAL, "BLKROTATIONAL"),
    row_of_32<0>(BLKDISCARDZEROES, "BLKDISCARDZEROES"),
    request<&BlockFile::is_read_only>(BLKROGET, "BLKROGET", Direction::out, kBlockNumber32),
    request<&BlockFile::set_read_only>(BLKROSET, "BLKROSET", Direction::in, kBlockNumber32),
    request<&BlockFile::flush>(BLKFLSBUF, "BLKFLSBUF", Direction::none),
    request<&BlockFile::look_again>(BLKRRPART, "BLKRRPART", Direction::none),
    request<&BlockFile::discard>(BLKDISCARD, "BLKDISCARD", Direction::in, kBlockRange),
    request<&BlockFile::discard>(BLKZEROOUT, "BLKZEROOUT", Direction::in, kBlockRange),
    request<&BlockFile::geometry>(HDIO_GETGEO, "HDIO_GETGEO", Direction::out, kBlockGeometry),
};

} // namespace

// --- the disk ---

BlockDisk::BlockDisk(Board& board, UniqueFd file, std::uint64_t size)
    : board_(board), store_(std::move(file), size) {
    board.power().add(*this);
}

Outcome BlockDisk::read(std::size_t size, std::uint64_t offset) const {
    return Outcome::bytes(store_.read(offset, size));
}

Outcome BlockDisk::write(ByteView data, std::uint64_t offset, bool synchronous) {
    const std::size_t taken = store_.write(offset, data, board_.now());
    if (board_.power().count_write()) {
        return Outcome::wait();
    }
    if (synchronous) {
        store_.flush(offset, taken);
    }
    write_back_later();
    return Outcome::done(static_cast<int>(taken));
}

Outcome BlockDisk::sync(std::uint64_t offset, std::uint64_t size) {
    store_.flush(offset, size);
    return Outcome::done();
}

Outcome BlockDisk::discard(std::uint64_t offset, std::uint64_t size) {
    store_.discard(offset, size);
    return Outcome::done();
}

void BlockDisk::pull_out(std::mt19937_64& chance) {
    board_.cancel(std::exchange(write_back_timer_, 0));
    board_.power().remove(*this);
    lose_power(chance);
}

void BlockDisk::write_back_later() {
    const auto since = store_.unflushed_since();
    if (since && write_back_timer_ == 0) {
        write_back_timer_ =
            board_.after(*since + kUnflushedFor - board_.now(), [this] { write_back(); });
    }
}

void BlockDisk::write_back() {
    write_back_timer_ = 0;
    try {
        store_.flush_until(board_.now() - kUnflushedFor);
    } catch (const std::exception& failure) {
        // No caller to tell. It stays unflushed until something is written or flushed again.
        board_.trace().add("bug", {{"text", failure.what()}});
        return;
    }
    write_back_later();
}

// --- the node ---

BlockNode::BlockNode(BlockView view, std::span<const RequestRow> more)
    : Node(S_IFREG | 0660), view_(std::move(view)), rows_(more.begin(), more.end()) {
    rows_.insert(rows_.end(), std::begin(kBlockRequests), std::end(kBlockRequests));
}

// A medium that is protected is found so by its driver, at the open.
Outcome BlockNode::open(const OpenCall& call, std::unique_ptr<File>& file) {
    if ((call.flags & O_ACCMODE) != O_RDONLY && view_.disk->is_protected()) {
        return Outcome::failed(EROFS);
    }
    file = std::make_unique<BlockFile>(shared_from_this(), call.flags);
    return Outcome::done();
}

void BlockNode::opened() {
    if (opens_++ == 0) {
        block_size_ = BlockStore::kSector;
        while (block_size_ < kPage &&
               view_.size % (2 * static_cast<std::uint64_t>(block_size_)) == 0) {
            block_size_ *= 2;
        }
    }
}

// --- one open ---

bool BlockFile::is_whole(std::uint64_t size, std::uint64_t offset) {
    return size % BlockStore::kSector == 0 && offset % BlockStore::kSector == 0;
}

std::uint64_t BlockFile::room(std::uint64_t offset) const {
    return view().size - std::min(offset, view().size);
}

Outcome BlockFile::read(std::size_t size, std::uint64_t offset) {
    const std::uint64_t taken = std::min<std::uint64_t>(size, room(offset));
    if ((flags_ & O_DIRECT) != 0 && room(offset) > 0 && !is_whole(taken, offset)) {
        return Outcome::failed(EINVAL);
    }
    return disk().read(taken, view().offset + offset);
}

Outcome BlockFile::write(WriteCall& call) {
    if (view().read_only) {
        return Outcome::failed(EPERM);
    }
    const std::uint64_t size = std::min<std::uint64_t>(call.data.size(), room(call.offset));
    if (size == 0 && !call.data.empty()) {
        return Outcome::failed(ENOSPC);
    }
    if (call.direct && !is_whole(size, call.offset)) {
        return Outcome::failed(EINVAL);
    }
    return disk().write(call.data.first(size), view().offset + call.offset,
                        (flags_ & O_DSYNC) != 0);
}

Outcome BlockFile::sync() {
    return disk().sync(view().offset, view().size);
}

// --- requests ---

Outcome BlockFile::size(std::uint64_t& bytes) const {
    bytes = view().size;
    return Outcome::done();
}

Outcome BlockFile::sectors(std::uint64_t& count) const {
    count = view().size / BlockStore::kSector;
    return Outcome::done();
}

Outcome BlockFile::block_size(std::int32_t& bytes) const {
    bytes = node_->block_size();
    return Outcome::done();
}

Outcome BlockFile::set_block_size(const std::int32_t& bytes, RequestCall& call) {
    if (!call.caller.may(CAP_SYS_ADMIN)) {
        return Outcome::failed(EACCES);
    }
    if (bytes < static_cast<std::int32_t>(BlockStore::kSector) || bytes > kPage ||
        (bytes & (bytes - 1)) != 0) {
        return Outcome::failed(EINVAL);
    }
    node_->block_size() = bytes;
    return Outcome::done();
}

Outcome BlockFile::is_read_only(std::int32_t& value) const {
    value = view().read_only || disk().is_protected() ? 1 : 0;
    return Outcome::done();
}

Outcome BlockFile::set_read_only(std::int32_t value) const {
    view().read_only = value != 0;
    return Outcome::done();
}

Outcome BlockFile::flush() {
    return sync();
}

// The partitions of a disk are its model's; one that can find them anew has a row of its own.
Outcome BlockFile::look_again() {
    return Outcome::failed(EINVAL);
}

Outcome BlockFile::discard(const Range& range) {
    if ((flags_ & O_ACCMODE) == O_RDONLY) {
        return Outcome::failed(EBADF);
    }
    if (view().read_only) {
        return Outcome::failed(EPERM);
    }
    if (range.offset % BlockStore::kSector != 0 || range.size % BlockStore::kSector != 0 ||
        range.size == 0 || range.size > room(range.offset)) {
        return Outcome::failed(EINVAL);
    }
    return disk().discard(view().offset + range.offset, range.size);
}

Outcome BlockFile::geometry(hd_geometry& record) const {
    record = {};
    record.heads = view().heads;
    record.sectors = view().sectors;
    record.cylinders = static_cast<std::uint16_t>(disk().size() / BlockStore::kSector /
                                                  (std::uint64_t{view().heads} * view().sectors));
    record.start = view().offset / BlockStore::kSector;
    return Outcome::done();
}

} // namespace vb
