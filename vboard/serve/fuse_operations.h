#pragma once
// The kernel's calls, each as a function libfuse can call; its user data is the FuseServer.

#define FUSE_USE_VERSION 312
#include <fuse_lowlevel.h>

namespace vb {

fuse_lowlevel_ops fuse_operations();

} // namespace vb
