#pragma once
// The record of SG_IO, and a SCSI command that is made from one. models/support/scsi_node.h says
// what is refused.

#include "serve/caller.h"

#include <array>
#include <vector>

namespace vb {

enum class ScsiDirection { none, to_device, from_device };

struct ScsiCommand {
    std::array<std::uint8_t, 16> block{};
    ScsiDirection direction = ScsiDirection::none;
    ByteView data{};      // to the device
    std::size_t room = 0; // from the device: what is more is lost
};

struct ScsiAnswer {
    std::uint8_t status = 0;
    std::uint16_t host_status = 0;
    Bytes sense{};
    Bytes data{};

    static constexpr std::uint16_t kTimeOut = 3;
    static constexpr std::uint16_t kHostError = 7;

    // A check condition with sense data of the fixed format.
    static ScsiAnswer check(std::uint8_t key, std::uint8_t code, std::uint8_t qualifier = 0);
};

// sg_io_hdr, version 3, of a 64-bit caller.
struct SgRecord {
    std::int32_t interface;
    std::int32_t direction;
    std::uint8_t command_length;
    std::uint8_t sense_room;
    std::uint16_t vectors;
    std::uint32_t data_length;
    std::uint64_t data;
    std::uint64_t command;
    std::uint64_t sense;
    std::uint32_t timeout;
    std::uint32_t flags;
    std::int32_t pack_id;
    std::uint32_t padding;
    std::uint64_t user;
    std::uint8_t status;
    std::uint8_t masked_status;
    std::uint8_t message_status;
    std::uint8_t sense_written;
    std::uint16_t host_status;
    std::uint16_t driver_status;
    std::int32_t residue;
    std::uint32_t duration;
    std::uint32_t info;
    std::uint32_t tail;
};
static_assert(sizeof(SgRecord) == 88);

class SgCommand {
  public:
    SgCommand() = default;
    SgCommand(const SgCommand&) = delete;
    SgCommand& operator=(const SgCommand&) = delete;
    ~SgCommand() = default;

    // 0, or what the kernel refuses the record with. `writable` is whether its node is open so.
    int prepare(const SgRecord& record, const Caller& caller, bool writable);
    const ScsiCommand& command() const { return command_; }
    // Fills the record, and the caller's memory. False where that is none.
    bool finish(const ScsiAnswer& answer, SgRecord& record, const Caller& caller) const;

  private:
    static constexpr std::size_t kLongest = 32;

    // Of the caller's memory, as an iovec has it.
    struct Piece {
        std::uint64_t address;
        std::uint64_t size;
    };

    int take_block(const SgRecord& record, const Caller& caller, bool writable);
    int find_pieces(const SgRecord& record, const Caller& caller);
    bool gather(const Caller& caller);
    bool scatter(const Caller& caller, ByteView data) const;

    ScsiCommand command_;
    std::vector<Piece> pieces_;
    Bytes data_; // what the caller's memory holds
};

} // namespace vb
