#pragma once
// Which SCSI commands the kernel lets any program send.

#include <cstdint>

namespace vb {

// Without CAP_SYS_RAWIO, to a node that is open for writing or not.
bool scsi_allows(std::uint8_t operation, bool writable);

} // namespace vb
