#include "support/device_call.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>

namespace hal {

int issue_on(const Caller& caller, int fd, unsigned long code, void* record, const char* error) {
    const int result = ioctl(fd, code, record);
    if (result < 0 && error != nullptr) {
        caller.log(HAL_LOG_ERROR, error);
    }
    return result;
}

DeviceCall::DeviceCall(const Caller& caller, const DeviceRequest& request)
    : caller_(caller), request_(request), fd_(open_fd(request.node, O_RDWR)) {
    if (!fd_) {
        caller.log(HAL_LOG_ERROR, request.open_error);
    }
}

} // namespace hal
