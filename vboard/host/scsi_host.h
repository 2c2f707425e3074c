#pragma once
// A host's SCSI layer: the commands it gives a disk, and the question after each that failed.

#include "host/bulk_only.h"

#include "core/json.h"

namespace vb::host {

struct Sense {
    std::uint8_t key = 0;
    std::uint8_t code = 0;
    std::uint8_t qualifier = 0;
};

struct ScsiOutcome {
    BulkOutcome bulk;
    std::optional<Sense> sense; // of a command that failed, where the device told

    bool passed() const { return bulk.kind == BulkOutcome::Kind::passed; }
    bool attention() const { return sense && sense->key == 6; }
    // "failed, sense 5/20/00"
    std::string in_words() const;
    Json describe() const;
};

BulkCommand inquiry();
BulkCommand test_unit_ready();
BulkCommand request_sense();
BulkCommand read_capacity();
BulkCommand mode_sense();
BulkCommand mode_select(Bytes parameters);
BulkCommand read_blocks(std::uint32_t block, std::uint16_t count, std::uint32_t block_size);
BulkCommand write_blocks(std::uint32_t block, std::uint16_t count, Bytes data);

class ScsiHost {
  public:
    using Then = std::function<void(const ScsiOutcome& outcome)>;

    explicit ScsiHost(BulkOnly bulk) : bulk_(std::move(bulk)) {}

    // One at a time.
    void run(BulkCommand command, const Then& then);
    void ask_units(const std::function<void()>& then) { bulk_.ask_units(then); }
    void later(std::int64_t nanoseconds, const std::function<void()>& action) {
        bulk_.later(nanoseconds, action);
    }

  private:
    BulkOnly bulk_;
};

} // namespace vb::host
