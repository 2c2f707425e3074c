#pragma once
// Block devices that take SCSI commands: SG_IO and what else the kernel's SCSI layer answers on the
// node of a disk. A model is the ScsiTarget, which executes commands; what becomes of a caller's
// record is here, as the kernel has it (drivers/scsi/scsi_ioctl.c of Linux 6.1):
//
// - Refused before the target hears of it, in this order: an interface that is not 'S' (EINVAL),
//   more data than the host takes at once (EIO), data without a direction (EINVAL), a command of
//   more than 32 bytes (EINVAL) or less than 6 (EMSGSIZE), one that is not the caller's memory
//   (EFAULT), one that the kernel allows with CAP_SYS_RAWIO only, or that writes where the node was
//   opened for reading (EPERM), data that are not the caller's memory (EFAULT).
// - Of an iovec the shorter of its sum and `dxfer_len` counts; one without any bytes is EINVAL.
// - The residue is always 0: libata counts none. Of commands of up to 32 bytes it looks at 16.
// - A time-out of 0 is that of SG_SET_TIMEOUT, or 60 s; none is shorter than 7 s. When it is over
//   the command is done with host status 3 (DID_TIME_OUT), and the data are as they were.
// - Signals do not end a command.
// - A check condition has driver status 8 and its sense, as far as `mx_sb_len` goes; `sbp` may be
//   null. `info` has its lowest bit where any of the statuses is not 0.
// What is ours: CAP_SYS_ADMIN stands for CAP_SYS_RAWIO, which a board gives nobody; a plain
// read(2) or write(2) is a READ(10) or WRITE(10) of what it covers, without a page cache.

#include "models/support/block_node.h"
#include "models/support/sg_record.h"
#include "serve/opens.h"

namespace vb {

class ScsiTarget {
  public:
    ScsiTarget() = default;
    virtual ~ScsiTarget() = default;
    ScsiTarget(const ScsiTarget&) = delete;
    ScsiTarget& operator=(const ScsiTarget&) = delete;

    // Nothing: not yet. It is asked again after ScsiNode::go_on().
    virtual std::optional<ScsiAnswer> execute(const ScsiCommand& command) = 0;
};

class ScsiFile;

class ScsiNode : public BlockNode {
  public:
    // Board and target have to last.
    ScsiNode(Board& board, ScsiTarget& target, BlockView view);

    Outcome open(const OpenCall& call, std::unique_ptr<File>& file) override;
    // Commands that wait for the target are tried again.
    void go_on();

    Board& board() const { return board_; }
    ScsiTarget& target() const { return target_; }
    std::int32_t& timeout() { return timeout_; }
    std::int32_t& reserve() { return reserve_; }

  private:
    Board& board_;
    ScsiTarget& target_;
    std::int32_t timeout_ = 0; // hundredths of a second, 0: the kernel's own
    std::int32_t reserve_ = 0;
    Opens<ScsiFile> opens_;
};

class ScsiFile : public BlockFile {
  public:
    ScsiFile(std::shared_ptr<ScsiNode> node, int flags);
    ScsiFile(const ScsiFile&) = delete;
    ScsiFile& operator=(const ScsiFile&) = delete;
    ~ScsiFile() override;

    Outcome read(std::size_t size, std::uint64_t offset) override;
    Outcome write(WriteCall& call) override;
    bool interruptible() const override { return false; }
    int unknown_request() const override { return ENOTTY; } // libata's

    Outcome send(SgRecord& record, RequestCall& call);
    Outcome version(std::int32_t& number);
    Outcome set_timeout(std::int32_t ticks);
    Outcome timeout();
    Outcome reserved_size(std::int32_t& size);
    Outcome set_reserved_size(std::int32_t size);
    Outcome is_emulated(std::int32_t& value);
    Outcome bus(std::int32_t& number);
    Outcome address(std::uint64_t& value);

  private:
    // A command that the target has not answered yet.
    struct Waiting {
        std::int64_t since = 0;
        std::uint64_t timer = 0;
        bool over = false;
    };

    bool writable() const;
    std::int64_t time_for(const SgRecord& record) const;
    // The answer, or nothing while it is waited for.
    std::optional<ScsiAnswer> ask(const SgRecord& record, const ScsiCommand& command,
                                  std::uint64_t id);

    std::shared_ptr<ScsiNode> scsi_;
    int open_flags_;
    std::map<std::uint64_t, Waiting> waiting_; // by call
};

} // namespace vb
