#pragma once
// One open of a node, as its device model sees it.

#include "serve/caller.h"
#include "serve/outcome.h"
#include "serve/request_row.h"

#include <poll.h>

#include <cerrno>
#include <functional>
#include <string>

namespace vb {

struct OpenCall {
    std::string path;
    int flags = 0; // as open(2) was given them
};

struct WriteCall {
    std::uint64_t id; // the same where the call is made again after a wait
    ByteView data;
    std::uint64_t offset;
    const Caller& caller;
    Found& target; // where the file takes paths: what the written one leads to; to be had once
    bool direct = false; // O_DIRECT
};

struct RequestCall {
    const RequestRow& row;
    std::uint64_t argument; // what ioctl(2) was given: an address, or the value itself
    std::span<std::uint8_t>
        record;           // row.size bytes: filled where the row takes, sent where it gives
    const Caller& caller; // for pointers inside the record
    std::uint64_t id = 0; // the same where the call is made again after a wait
};

// The poll(2) bits of an open that has something to read.
constexpr short kReadable = POLLIN | POLLRDNORM;

// Calls come one at a time, under the board's lock. A model answers at once, and never sleeps:
// where it has nothing to say yet it answers Outcome::wait().
class File {
  public:
    File() = default;
    virtual ~File() = default;
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    // Nothing that is asked of it gets an answer while this is false: its device has no power.
    virtual bool answers() const { return true; }
    virtual std::span<const RequestRow> requests() const { return {}; }
    // What a request that is none of them fails with.
    virtual int unknown_request() const { return ENOTTY; }
    virtual Outcome read(std::size_t size, std::uint64_t offset);
    virtual Outcome write(WriteCall& call);
    // What is written to it is a path, which WriteCall::target follows.
    virtual bool takes_paths() const { return false; }
    // fsync(2): what was written is in storage when it is done.
    virtual Outcome sync();
    virtual bool seekable() const { return false; }
    // Whether a signal ends a call that waits for the device. One that ends the program always
    // does.
    virtual bool interruptible() const { return true; }
    // Too much goes through it for the trace to show every byte.
    virtual bool bulky() const { return false; }
    // The poll(2) bits that hold now.
    virtual short readiness() const { return POLLIN | POLLOUT; }
    // Gives a poll its answer: the bits that hold. `asked` is what its caller waits for, and the
    // kernel hands the caller whatever of it is answered, so a device whose readiness ends when
    // it was reported ends it here.
    virtual short answer_poll(short asked);
    // What a poll finds after the node has vanished under this open.
    virtual short readiness_when_gone() const { return POLLERR | POLLHUP; }

    // For the server: whom to tell when readiness may have changed.
    void on_changed(std::function<void()> listener) { listener_ = std::move(listener); }

    // For the model: something happened that may let a waiting call or poll go on.
    void changed() {
        if (listener_) {
            listener_();
        }
    }

  private:
    std::function<void()> listener_;
};

} // namespace vb
