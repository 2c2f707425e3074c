#pragma once
// What the operations on names and those on what is open share.
//
// Each operation replies exactly once, and never while the board's lock is held: the reply may
// wake a caller whose next call needs it.

#include "serve/fuse_operations.h"
#include "serve/fuse_server.h"

namespace vb {

inline FuseServer& server_of(fuse_req_t request) {
    return *static_cast<FuseServer*>(fuse_req_userdata(request));
}

// What the kernel is told of an entry that it asked for by name, and remembers from then on.
fuse_entry_param known(FuseServer& server, const std::shared_ptr<Entry>& entry,
                       const std::string& path);

// Names, attributes and listings, and what is refused.
void add_name_operations(fuse_lowlevel_ops& operations);

} // namespace vb
