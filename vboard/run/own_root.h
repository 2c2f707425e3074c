#pragma once
// The root folder of a board that is started in a chroot.

namespace vb {

// In a mount namespace of this process's own: makes its root folder, where that is but a folder of
// the namespace's (chroot), the root of the namespace, and takes the rest away. What the process
// sees is the same, but the kernel makes no user namespaces in a chroot. Where it may not, nothing
// changes.
void make_root_the_namespaces();

} // namespace vb
