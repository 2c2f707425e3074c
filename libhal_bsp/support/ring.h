// Places of a ring whose slots and indices lie in an exported record: one is filled while others
// wait to be taken. The caller's lock guards it.
#pragma once

#include <cstdint>

namespace hal {

// `write` is the slot that is filled next and `read` the one that is taken next; they are equal
// while the ring is empty, so one of the slots always stays free.
template <int32_t kSlots>
class Ring {
  public:
    Ring(int32_t& write, int32_t& read) : write_(write), read_(read) {}

    [[nodiscard]] bool empty() const { return write_ == read_; }
    [[nodiscard]] bool full() const { return after(write_) == read_; }

    // Hands on the slot that was filled. False, and nothing done, where the ring is full: the slot
    // is filled again then, and what was in it is lost.
    bool put() {
        if (full()) {
            return false;
        }
        write_ = after(write_);
        return true;
    }

    // Gives back the slot that was taken.
    void drop() {
        if (!empty()) {
            read_ = after(read_);
        }
    }

  private:
    static constexpr int32_t after(int32_t slot) { return slot + 1 == kSlots ? 0 : slot + 1; }

    int32_t& write_;
    int32_t& read_;
};

} // namespace hal
