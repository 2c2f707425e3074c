#pragma once
// A device node as cheap as a libfuse server can make one: no faults, no trace, no model. What the
// virtual board's nodes are measured against.

#include <string>

namespace bench {

// Takes this process, which has no threads yet, into namespaces of its own, and starts a server
// there that ends with it. Returns the path of its node:
// - reads and writes go to a file in memory;
// - a request that writes (_IOW) takes its record and wakes who polls;
// - a request that reads (_IOR) gives a record of zeros, and lets polls wait again.
std::string start_bare_server();

} // namespace bench
