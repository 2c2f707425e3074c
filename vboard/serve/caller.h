#pragma once
// The process that made a call, as far as a driver may look into it: its memory, and the files that
// its paths lead to. The kernel copies only what a request's size field says; whatever else a
// record or a pointer inside it covers is fetched from here.

#include "core/bytes.h"
#include "core/unique_fd.h"

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>

namespace vb {

class Entry;

// What a path leads to: an entry of the board's own tree, or a file elsewhere. Where it is neither
// (a folder elsewhere, a pipe), there is only the path.
struct Found {
    int error = 0;    // an errno where it leads nowhere; then there is nothing else
    std::string path; // from the root of the board's file systems, without links
    std::shared_ptr<Entry> entry;
    UniqueFd file; // open for reading, and for writing where that is allowed
    bool writable = false;
};

class Caller {
  public:
    // `proc` is a descriptor of the board's /proc, which has to last: the server's own /proc may be
    // the machine's, where the thread has another number.
    Caller(pid_t thread, int proc) : thread_(thread), proc_(proc) {}

    pid_t thread() const { return thread_; }

    // All of the bytes, or false where any of them is not the caller's to read or write.
    bool read(std::uint64_t address, std::span<std::uint8_t> into) const;
    bool write(std::uint64_t address, ByteView bytes) const;

    // Whether it has a capability (linux/capability.h).
    bool may(int capability) const;
    // Whether a signal has ended it, so that nobody waits for an answer.
    bool dying() const;

    template <class Record>
    bool read_record(std::uint64_t address, Record& record) const {
        return read(address, {reinterpret_cast<std::uint8_t*>(&record), sizeof record});
    }

    // What a path leads to from the caller's root and working directory; `in_tree` gives the entry
    // that the board has at a path. Never under the board's lock: on its way the path may lead
    // through the board's own tree, and the server would wait for itself.
    using InTree = std::function<std::shared_ptr<Entry>(const std::string& path)>;
    Found find(const std::string& path, const InTree& in_tree) const;

  private:
    std::uint64_t status_bits(const std::string& name) const;
    std::string from_root(const std::string& path) const;
    void open(const UniqueFd& place, Found& found) const;

    pid_t thread_;
    int proc_;
};

} // namespace vb
