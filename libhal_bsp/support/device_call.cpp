#include "support/device_call.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>

namespace hal {

DeviceCall::DeviceCall(const DeviceRequest& request, int line)
    : request_(request), line_(line), fd_(open_fd(request.node, O_RDWR)) {
    if (!fd_) {
        open_errno_ = errno;
        log_log(request.level, request.module, line, "%s", request.open_error);
    }
}

int DeviceCall::issue_raw(void* record) const {
    const int result = ioctl(fd_.get(), request_.code, record);
    if (result < 0 && request_.ioctl_error != nullptr) {
        log_log(request_.level, request_.module, line_, "%s", request_.ioctl_error);
    }
    return result;
}

} // namespace hal
