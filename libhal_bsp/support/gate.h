// Commands on a device that has to be recovered when one of them fails.
#pragma once

#include <cstdint>
#include <pthread.h>

namespace hal {

// Many commands may be under way at a time, but none while the device is recovered, except the
// recovery's own. Recoveries follow one another. Nothing in here is a cancellation point.
class RecoveryGate {
  public:
    // A command under way. Waits until no other thread recovers the device.
    class Command {
      public:
        explicit Command(RecoveryGate& gate);
        ~Command();
        Command(const Command&) = delete;
        Command& operator=(const Command&) = delete;

        // Which device it is for: of two generations, a recovery lies between.
        [[nodiscard]] uint32_t generation() const { return generation_; }

      private:
        RecoveryGate& gate_;
        uint32_t generation_ = 0;
    };

    // A recovery under way. Waits for those before it, then for all commands; its thread must have
    // none. Whatever the calling thread has in hand is false, and nothing was waited for, where
    // that thread recovers already: a recovery starts no other.
    class Recovery {
      public:
        explicit Recovery(RecoveryGate& gate);
        // Of a command of that generation that failed: false, too, where the device has been
        // recovered since.
        Recovery(RecoveryGate& gate, uint32_t generation);
        ~Recovery();
        Recovery(const Recovery&) = delete;
        Recovery& operator=(const Recovery&) = delete;

        explicit operator bool() const { return is_mine_; }

      private:
        void begin(const uint32_t* generation);

        RecoveryGate& gate_;
        bool is_mine_ = false;
    };

  private:
    [[nodiscard]] bool is_mine() const {
        return is_recovering_ && pthread_equal(owner_, pthread_self()) != 0;
    }

    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed_ = PTHREAD_COND_INITIALIZER;
    uint32_t commands_ = 0;
    uint32_t generation_ = 0;
    bool is_recovering_ = false;
    pthread_t owner_{};
};

} // namespace hal
