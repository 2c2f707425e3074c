#pragma once
// Block devices: a disk, and nodes that show a part of it or all.
//
// A disk and its partitions are views of one BlockDisk, each with a node of its own, so that what
// is written to one is read from the other. A model makes the disk from a file of its own and puts
// the nodes; block_node.cpp has the requests that the kernel answers for every block device, and
// an owner adds those of its driver (SG_IO of a stick, say). What such a request moves through
// pointers of its record never comes to the trace, which shows the record alone.

#include "core/board.h"
#include "models/support/block_store.h"
#include "serve/request_handler.h"
#include "serve/tree.h"

#include <linux/hdreg.h>

#include <cerrno>

namespace vb {

// A disk, as the board's power and time treat it: what is written is stored when it is flushed,
// when it has waited for 30 s of board time, or when too much waits. It lasts as long as the board.
class BlockDisk final : public Storage {
  public:
    BlockDisk(Board& board, UniqueFd file, std::uint64_t size);
    virtual ~BlockDisk() = default;

    std::uint64_t size() const { return store_.size(); }
    std::size_t unflushed_sectors() const { return store_.unflushed_sectors(); }
    bool on() const { return board_.power().on(); }
    // As a switch on the medium does: it cannot be opened for writing.
    void protect(bool is_protected) { protected_ = is_protected; }
    bool is_protected() const { return protected_; }

    void flush() override { store_.flush(); }
    void lose_power(std::mt19937_64& chance) override { store_.lose_power(chance); }
    // Takes it off the board, when its nodes are gone: what was not flushed is lost as with the
    // power. Opens that are left may keep it alive, but get no answers from it.
    void pull_out(std::mt19937_64& chance);

    // While it is on.
    Outcome read(std::size_t size, std::uint64_t offset) const;
    Outcome write(ByteView data, std::uint64_t offset, bool synchronous);
    Outcome sync(std::uint64_t offset, std::uint64_t size);
    Outcome discard(std::uint64_t offset, std::uint64_t size);

  private:
    void write_back_later();
    void write_back();

    Board& board_;
    BlockStore store_;
    bool protected_ = false;
    std::uint64_t write_back_timer_ = 0; // while there is something to write back
};

// All of a disk, or a part of it.
struct BlockView {
    explicit BlockView(std::shared_ptr<BlockDisk> whole)
        : disk(std::move(whole)), size(disk->size()) {}
    BlockView(std::shared_ptr<BlockDisk> whole, std::uint64_t part_offset, std::uint64_t part_size)
        : disk(std::move(whole)), offset(part_offset), size(part_size) {}

    std::shared_ptr<BlockDisk> disk;
    std::uint64_t offset = 0; // a multiple of a sector, as the size is
    std::uint64_t size;
    bool read_only = false; // as BLKROSET makes it: it can be opened, but not written
    // The geometry that old programs ask for, of an eMMC if nothing else is said.
    std::uint8_t heads = 4;
    std::uint8_t sectors = 16;
};

class BlockNode : public Node, public std::enable_shared_from_this<BlockNode> {
  public:
    // `more` are requests that only this one answers, asked of its BlockFiles; they come before
    // those of every block device.
    explicit BlockNode(BlockView view, std::span<const RequestRow> more = {});

    Outcome open(const OpenCall& call, std::unique_ptr<File>& file) override;
    std::uint64_t size() const override { return view_.size; }
    bool can_be_cut() const override { return false; }
    BlockView& view() { return view_; }
    // What the kernel counts in: as large as a page where the size is a multiple of that, unless an
    // open has set it, which holds as long as there are opens.
    std::int32_t& block_size() { return block_size_; }
    void opened();
    void closed() { --opens_; }

    std::span<const RequestRow> requests() const { return rows_; }

  private:
    BlockView view_;
    std::vector<RequestRow> rows_;
    std::int32_t block_size_ = 0;
    unsigned opens_ = 0;
};

// One open of a block device.
class BlockFile : public File {
  public:
    BlockFile(std::shared_ptr<BlockNode> node, int flags) : node_(std::move(node)), flags_(flags) {
        node_->opened();
    }
    ~BlockFile() override { node_->closed(); }
    BlockFile(const BlockFile&) = delete;
    BlockFile& operator=(const BlockFile&) = delete;

    BlockView& view() const { return node_->view(); }
    BlockDisk& disk() const { return *view().disk; }
    std::span<const RequestRow> requests() const override { return node_->requests(); }
    int unknown_request() const override { return EINVAL; }
    // Without power there are no answers, and no caller who could take one.
    bool answers() const override { return disk().on(); }
    Outcome read(std::size_t size, std::uint64_t offset) override;
    Outcome write(WriteCall& call) override;
    Outcome sync() override;
    bool seekable() const override { return true; }
    bool bulky() const override { return true; }

    // What a program asks of a block device.
    struct Range {
        std::uint64_t offset;
        std::uint64_t size;
    };
    template <class Number, Number number>
    Outcome give(Number& value) {
        value = number;
        return Outcome::done();
    }
    Outcome size(std::uint64_t& bytes) const;
    Outcome sectors(std::uint64_t& count) const;
    Outcome block_size(std::int32_t& bytes) const;
    Outcome set_block_size(const std::int32_t& bytes, RequestCall& call);
    Outcome is_read_only(std::int32_t& value) const;
    Outcome set_read_only(std::int32_t value) const;
    Outcome flush();
    Outcome look_again();
    Outcome discard(const Range& range);
    Outcome geometry(hd_geometry& record) const;

  private:
    std::uint64_t room(std::uint64_t offset) const;
    // What goes past the cache comes in whole sectors.
    static bool is_whole(std::uint64_t size, std::uint64_t offset);

    std::shared_ptr<BlockNode> node_;
    int flags_;
};

} // namespace vb
