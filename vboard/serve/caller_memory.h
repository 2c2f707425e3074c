#pragma once
// The memory of the process that made a request. The kernel copies only what a request's size
// field says; whatever else a record or a pointer inside it covers is fetched from here.

#include "core/bytes.h"

#include <sys/types.h>

namespace vb {

class CallerMemory {
  public:
    explicit CallerMemory(pid_t thread) : thread_(thread) {}

    // All of the bytes, or false where any of them is not the caller's to read or write.
    bool read(std::uint64_t address, std::span<std::uint8_t> into) const;
    bool write(std::uint64_t address, ByteView bytes) const;

    template <class Record>
    bool read_record(std::uint64_t address, Record& record) const {
        return read(address, {reinterpret_cast<std::uint8_t*>(&record), sizeof record});
    }

  private:
    pid_t thread_;
};

} // namespace vb
