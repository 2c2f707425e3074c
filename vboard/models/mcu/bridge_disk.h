#pragma once
// The bridge chip between the SATA port and the MCU: a disk, of which block 0 is a mailbox. A write
// there hands the MCU a packet, a read fetches what it has ready. All else it answers by itself, as
// the kernel's libata answers for an ATA disk; other blocks read as zeros, and forget.
//
// As of libata, a command with less data or room than it has blocks is an invalid field (5/24/00),
// one whose data go the other way host status 7 (DID_ERROR). Not there are the page of the disk's
// identity (0x89), commands of ATA, and MODE SELECT. While the MCU does not run, block 0 is a check
// condition: not ready (2/04/00).

#include "models/support/scsi_node.h"

namespace vb::mcu {

// Who is behind block 0.
class Mailbox {
  public:
    Mailbox() = default;
    virtual ~Mailbox() = default;
    Mailbox(const Mailbox&) = delete;
    Mailbox& operator=(const Mailbox&) = delete;

    virtual bool ready() const = 0;
    // Nothing, false: not yet.
    virtual std::optional<Bytes> fetch() = 0;
    virtual bool take(ByteView block) = 0;
};

class BridgeDisk : public ScsiTarget {
  public:
    enum class Failure { busy, check, host, timeout };
    static constexpr std::uint32_t kSectors = 2048;

    explicit BridgeDisk(Mailbox& mailbox) : mailbox_(mailbox) {}

    // The next so many reads and writes of block 0 fail.
    void fail(unsigned times, Failure failure) {
        failures_ = times;
        failure_ = failure;
    }
    unsigned failures() const { return failures_; }

    std::optional<ScsiAnswer> execute(const ScsiCommand& command) override;

  private:
    struct Range {
        std::uint32_t first;
        std::size_t bytes;
    };

    std::optional<ScsiAnswer> read(const Range& range, const ScsiCommand& command);
    std::optional<ScsiAnswer> write(const Range& range, const ScsiCommand& command);
    std::optional<ScsiAnswer> failed();

    Mailbox& mailbox_;
    unsigned failures_ = 0;
    Failure failure_ = Failure::busy;
};

} // namespace vb::mcu
