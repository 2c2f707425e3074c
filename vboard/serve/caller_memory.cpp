#include "serve/caller_memory.h"

#include <sys/uio.h>

namespace vb {

namespace {

iovec vector_of(std::uint64_t address, std::size_t size) {
    // The address is another process's: a number here, never followed.
    return {reinterpret_cast<void*>(static_cast<std::uintptr_t>(address)), size}; // NOLINT
}

} // namespace

bool CallerMemory::read(std::uint64_t address, std::span<std::uint8_t> into) const {
    if (into.empty()) {
        return true;
    }
    const iovec local{into.data(), into.size()};
    const iovec remote = vector_of(address, into.size());
    return process_vm_readv(thread_, &local, 1, &remote, 1, 0) == static_cast<ssize_t>(into.size());
}

bool CallerMemory::write(std::uint64_t address, ByteView bytes) const {
    if (bytes.empty()) {
        return true;
    }
    const iovec local{const_cast<std::uint8_t*>(bytes.data()), bytes.size()}; // NOLINT: only read
    const iovec remote = vector_of(address, bytes.size());
    return process_vm_writev(thread_, &local, 1, &remote, 1, 0) ==
           static_cast<ssize_t>(bytes.size());
}

} // namespace vb
