#pragma once
// A system call that must not fail, and did.

#include <cerrno>
#include <string>
#include <system_error>

namespace vb {

[[noreturn]] inline void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace vb
