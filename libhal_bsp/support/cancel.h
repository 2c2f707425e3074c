// Thread cancellation held off for a scope.
#pragma once

#include <pthread.h>

namespace hal {

// A cancellation that is requested meanwhile stays pending and takes effect at the first
// cancellation point after the scope. Nests. Destructors need it around system calls: unwinding
// out of a destructor ends the process.
class CancelOff {
  public:
    CancelOff() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~CancelOff() { pthread_setcancelstate(before_, nullptr); }
    CancelOff(const CancelOff&) = delete;
    CancelOff& operator=(const CancelOff&) = delete;

  private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

} // namespace hal
