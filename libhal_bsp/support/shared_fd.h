// Descriptors that stand in exported records: one thread opens and closes them while others use
// them.
#pragma once

#include "support/fd.h"

#include <mutex>

namespace hal {

// A descriptor that is closed leaves its record at once, so that nobody begins to use it any more;
// where it is in use it is closed when its last use ends. Its number is thus never given out again
// while somebody may still write to it, and nobody waits for a write that takes its time. Nothing
// in here is a cancellation point.
class SharedFds {
  public:
    // The use of the descriptor in a slot of a record, while this lives. 0 is none: so the slots of
    // some records stand at load.
    class Use {
      public:
        Use(SharedFds& fds, int& slot);
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

        explicit operator bool() const { return fd_ > 0; }
        [[nodiscard]] int get() const { return fd_; }

      private:
        friend class SharedFds;

        SharedFds& fds_;
        int fd_;
        bool is_heir_ = false; // to close the descriptor
        Use* next_;
    };

    // Puts a descriptor into a slot.
    void show(int& slot, const Fd& fd);
    // Takes what is in a slot out of sight. It stays open.
    void hide(int& slot);
    // Closes a descriptor that is in a slot, or was until it was hidden.
    void close(int& slot, Fd fd);

  private:
    // Whether the use was the last one of a descriptor that is to be closed.
    bool leave(const Use& use);
    // Has another use of the descriptor close it at its end; false where there is none.
    bool hand_over(int fd);

    std::mutex mutex_;
    Use* uses_ = nullptr;
};

} // namespace hal
