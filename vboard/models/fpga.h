#pragma once
// The FPGA's access node (by default /dev/fpga) and its interrupt node (by default /dev/fpgavm).
//
// Settings: "node", "interrupt_node", "size" (bytes of its register file, 65536 if not said).
//
// What is ours to choose, and what programs may rely on:
// - The register file is bytes; `addr` of a transfer is the first of `len` bytes. A transfer of
//   no bytes is done at once, one beyond the file is EINVAL, as is any operation but 1 (read) and
//   3 (write) or a reserved word that is not 0; a buffer that is not the caller's is EFAULT. Done
//   is result 0.
// - Every open of the interrupt node gets every interrupt from then on, and counts those it has
//   not been told of. It is readable (POLLIN) while there are some, and each select() or poll()
//   that finds it so takes one of them: N interrupts make exactly N such calls return at once.
//   Nothing can be read from it.
// - How that is exact: a select() asks the device once when it begins and once after each
//   wake-up, and hands its caller whatever the device answers of what was asked; an answer is
//   never asked for twice. So the interrupt is taken back with the answer, and only by a call
//   that asks for readability. epoll asks again before it hands an event over, and therefore
//   loses interrupts here, as with any driver that clears a readiness by reporting it.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_fpga(Board& board, Settings& settings);

} // namespace vb
