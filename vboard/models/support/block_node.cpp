#include "models/support/block_node.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>

#include <algorithm>
#include <cerrno>

namespace vb {

namespace {

constexpr std::int64_t kUnflushedFor = 30'000 * kMillisecond; // the kernel's dirty_expire_centisecs
constexpr std::uint64_t kReadAhead = 256;                     // sectors: the kernel's default

// --- the requests of every block device ---

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

// Gives a number in the width that its row has.
Outcome give_number(RequestCall& call, std::uint64_t number) {
    std::memcpy(call.record.data(), &number, std::min(call.record.size(), sizeof number));
    return Outcome::done();
}

template <std::uint64_t number>
Outcome give_constant(BlockFile&, RequestCall& call) {
    return give_number(call, number);
}

Outcome give_size(BlockFile& file, RequestCall& call) {
    return give_number(call, file.view().size);
}

Outcome give_sectors(BlockFile& file, RequestCall& call) {
    return give_number(call, file.view().size / BlockStore::kSector);
}

Outcome give_read_only(BlockFile& file, RequestCall& call) {
    return give_number(call, file.view().read_only || file.disk().is_protected() ? 1 : 0);
}

Outcome set_read_only(BlockFile& file, RequestCall& call) {
    file.view().read_only = record_from<std::int32_t>(call.record) != 0;
    return Outcome::done();
}

Outcome flush_buffers(BlockFile& file, RequestCall&) {
    return file.sync();
}

// The partitions of a disk are its model's; one that can find them anew has a row of its own.
Outcome refuse_to_look_again(BlockFile&, RequestCall&) {
    return Outcome::failed(EINVAL);
}

Outcome discard_range(BlockFile& file, RequestCall& call) {
    const auto offset = record_from<std::uint64_t>(call.record);
    return file.discard(offset, record_from<std::uint64_t>(call.record.subspan(sizeof offset)));
}

Outcome give_geometry(BlockFile& file, RequestCall& call) {
    const BlockView& view = file.view();
    hd_geometry geometry{};
    geometry.heads = view.heads;
    geometry.sectors = view.sectors;
    geometry.cylinders = static_cast<std::uint16_t>(file.disk().size() / BlockStore::kSector /
                                                    (std::uint64_t{view.heads} * view.sectors));
    geometry.start = view.offset / BlockStore::kSector;
    std::memcpy(call.record.data(), &geometry, sizeof geometry);
    return Outcome::done();
}

// The size field of a code says little: several have none, and BLKBSZGET gives an int.
constexpr BlockRequest kBlockRequests[] = {
    {{BLKGETSIZE, "BLKGETSIZE", Direction::out, 8, kBlockNumber64}, give_sectors},
    {{BLKGETSIZE64, "BLKGETSIZE64", Direction::out, 8, kBlockNumber64}, give_size},
    {{BLKSSZGET, "BLKSSZGET", Direction::out, 4, kBlockNumber32},
     give_constant<BlockStore::kSector>},
    {{BLKPBSZGET, "BLKPBSZGET", Direction::out, 4, kBlockNumber32},
     give_constant<BlockStore::kSector>},
    {{BLKBSZGET, "BLKBSZGET", Direction::out, 4, kBlockNumber32}, give_constant<4096>},
    {{BLKIOMIN, "BLKIOMIN", Direction::out, 4, kBlockNumber32}, give_constant<BlockStore::kSector>},
    {{BLKIOOPT, "BLKIOOPT", Direction::out, 4, kBlockNumber32}, give_constant<0>},
    {{BLKALIGNOFF, "BLKALIGNOFF", Direction::out, 4, kBlockNumber32}, give_constant<0>},
    {{BLKRAGET, "BLKRAGET", Direction::out, 8, kBlockNumber64}, give_constant<kReadAhead>},
    {{BLKFRAGET, "BLKFRAGET", Direction::out, 8, kBlockNumber64}, give_constant<kReadAhead>},
    {{BLKSECTGET, "BLKSECTGET", Direction::out, 2, kBlockNumber16}, give_constant<1024>},
    {{BLKROTATIONAL, "BLKROTATIONAL", Direction::out, 2, kBlockNumber16}, give_constant<0>},
    {{BLKDISCARDZEROES, "BLKDISCARDZEROES", Direction::out, 4, kBlockNumber32}, give_constant<0>},
    {{BLKROGET, "BLKROGET", Direction::out, 4, kBlockNumber32}, give_read_only},
    {{BLKROSET, "BLKROSET", Direction::in, 4, kBlockNumber32}, set_read_only},
    {{BLKFLSBUF, "BLKFLSBUF", Direction::none, 0}, flush_buffers},
    {{BLKRRPART, "BLKRRPART", Direction::none, 0}, refuse_to_look_again},
    {{BLKDISCARD, "BLKDISCARD", Direction::in, 16, kBlockRange}, discard_range},
    {{BLKZEROOUT, "BLKZEROOUT", Direction::in, 16, kBlockRange}, discard_range},
    {{HDIO_GETGEO, "HDIO_GETGEO", Direction::out, sizeof(hd_geometry), kBlockGeometry},
     give_geometry},
};

} // namespace

// --- the disk ---

BlockDisk::BlockDisk(Board& board, UniqueFd file, std::uint64_t size)
    : board_(board), store_(std::move(file), size) {
    board.power().add(*this);
}

Outcome BlockDisk::read(std::size_t size, std::uint64_t offset) const {
    return on() ? Outcome::bytes(store_.read(offset, size)) : Outcome::wait();
}

Outcome BlockDisk::write(ByteView data, std::uint64_t offset, bool synchronous) {
    if (!on()) {
        return Outcome::wait();
    }
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
    if (!on()) {
        return Outcome::wait();
    }
    store_.flush(offset, size);
    return Outcome::done();
}

Outcome BlockDisk::discard(std::uint64_t offset, std::uint64_t size) {
    if (!on()) {
        return Outcome::wait();
    }
    store_.discard(offset, size);
    return Outcome::done();
}

void BlockDisk::write_back_later() {
    const auto since = store_.unflushed_since();
    if (since && !will_write_back_) {
        will_write_back_ = true;
        board_.after(*since + kUnflushedFor - board_.now(), [this] { write_back(); });
    }
}

void BlockDisk::write_back() {
    will_write_back_ = false;
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

BlockNode::BlockNode(BlockView view, std::span<const BlockRequest> more)
    : Node(S_IFREG | 0660), view_(std::move(view)) {
    for (const auto& requests : {more, std::span<const BlockRequest>(kBlockRequests)}) {
        for (const BlockRequest& request : requests) {
            rows_.push_back(request.row);
            handlers_.push_back(request.handle);
        }
    }
}

// A medium that is protected is found so by its driver, at the open.
int BlockNode::open(const OpenCall& call, std::unique_ptr<File>& file) {
    if ((call.flags & O_ACCMODE) != O_RDONLY && view_.disk->is_protected()) {
        return EROFS;
    }
    file = std::make_unique<BlockFile>(shared_from_this(), call.flags);
    return 0;
}

Outcome BlockNode::request(BlockFile& file, RequestCall& call) const {
    return handlers_[static_cast<std::size_t>(&call.row - rows_.data())](file, call);
}

// --- one open ---

bool BlockFile::writable() const {
    return (flags_ & O_ACCMODE) != O_RDONLY;
}

std::uint64_t BlockFile::room(std::uint64_t offset) const {
    return view().size - std::min(offset, view().size);
}

Outcome BlockFile::request(RequestCall& call) {
    return disk().on() ? node_->request(*this, call) : Outcome::wait();
}

Outcome BlockFile::read(std::size_t size, std::uint64_t offset) {
    return disk().read(std::min<std::uint64_t>(size, room(offset)), view().offset + offset);
}

Outcome BlockFile::write(ByteView data, std::uint64_t offset) {
    if (view().read_only) {
        return Outcome::failed(EPERM);
    }
    if (room(offset) == 0 && !data.empty()) {
        return Outcome::failed(ENOSPC);
    }
    return disk().write(data.first(std::min<std::uint64_t>(data.size(), room(offset))),
                        view().offset + offset, (flags_ & O_DSYNC) != 0);
}

Outcome BlockFile::sync() {
    return disk().sync(view().offset, view().size);
}

Outcome BlockFile::discard(std::uint64_t offset, std::uint64_t size) {
    if (!writable()) {
        return Outcome::failed(EBADF);
    }
    if (view().read_only) {
        return Outcome::failed(EPERM);
    }
    if (offset % BlockStore::kSector != 0 || size % BlockStore::kSector != 0 || size == 0 ||
        size > room(offset)) {
        return Outcome::failed(EINVAL);
    }
    return disk().discard(view().offset + offset, size);
}

} // namespace vb
