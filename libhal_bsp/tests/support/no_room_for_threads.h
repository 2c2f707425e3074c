// For as long as it lives no thread of this process can be started: EAGAIN, since the address space
// has no room for the stacks that they are to get.
#pragma once

#include <cstddef>
#include <pthread.h>

namespace hal_test {

class NoRoomForThreads {
  public:
    NoRoomForThreads() {
        pthread_getattr_default_np(&before_);
        pthread_attr_t huge{};
        pthread_getattr_default_np(&huge);
        pthread_attr_setstacksize(&huge, std::size_t{1} << 46);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    ~NoRoomForThreads() {
        pthread_setattr_default_np(&before_);
        pthread_attr_destroy(&before_);
    }
    NoRoomForThreads(const NoRoomForThreads&) = delete;
    NoRoomForThreads& operator=(const NoRoomForThreads&) = delete;

  private:
    pthread_attr_t before_{};
};

} // namespace hal_test
