// System calls made for the shim's own needs: past every wrapper, and never a cancellation point.
#pragma once

namespace vb::shim {

// As libc's syscall(): -1 and errno on failure. Defined beside the wrapper of that function.
long raw_call(long number, long a = 0, long b = 0, long c = 0, long d = 0, long e = 0, long f = 0);

} // namespace vb::shim
