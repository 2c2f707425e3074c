// The thread that follows the connection to the host.
#pragma once

#include <cstdint>

namespace hal::otg {

// Starts it: 0, or the error number.
int32_t start_listening();

} // namespace hal::otg
