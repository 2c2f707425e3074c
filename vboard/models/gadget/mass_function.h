#pragma once
// The function "mtp": an interface of mass storage (bulk-only transport), whose two endpoints a
// program serves through /dev/mass.
//
// What is ours to choose, and what programs may rely on:
// - There is one such function; a second directory is EBUSY. Its name is free.
// - The node comes with the binding and goes with it. It can be opened while the host has
//   configured the device, ENODEV otherwise, and once at a time, EBUSY otherwise.
// - A read returns bytes of one transfer of the host, never of two; the host's transfer is done
//   when all of it was read. A transfer of no bytes is read as none.
// - A write is done when the host has fetched all of it; the bytes cross as packets, so that the
//   host's transfer ends with it where its last packet is a short one. No bytes are an empty
//   packet.
// - Without the host's configuration, for whatever reason, an open is dead: reads and writes, also
//   those that wait, are ESHUTDOWN, and poll finds POLLERR and POLLHUP. It has to be opened anew.
// - The host's Bulk-Only Reset ends a write under way with EIO.
// - One unit: Get Max LUN answers 0. The function itself never halts an endpoint.

#include "models/gadget/function.h"

namespace vb::gadget {

// 0 and the directory, or an errno; `taken` says whether there is one already.
int make_mass_item(Board& board, bool& taken, const std::string& name,
                   std::shared_ptr<FunctionItem>& item);

} // namespace vb::gadget
