// One request on a device node: open it, issue one ioctl on a record, close it.
#pragma once

#include "support/fd.h"

#include <hal_bsp/log.h>

#include <bit>
#include <optional>
#include <type_traits>

namespace hal {

// Records go to the drivers as they lie in memory, and the drivers read little-endian.
static_assert(std::endian::native == std::endian::little);

// What a module asks of its node, and how it speaks of failures.
struct DeviceRequest {
    const char* module = nullptr;
    const char* node = nullptr;
    unsigned long code = 0;
    const char* open_error = nullptr;  // logged when the node cannot be opened
    const char* ioctl_error = nullptr; // logged when the request's result is negative; null: not
    int level = HAL_LOG_ERROR;
};

// In two steps, for modules that have something to do between them. Messages carry the line of
// the module that made the call.
class DeviceCall {
  public:
    explicit DeviceCall(const DeviceRequest& request, int line = __builtin_LINE());

    // Whether the node could be opened; if not, errno is in open_errno().
    explicit operator bool() const { return static_cast<bool>(fd_); }
    [[nodiscard]] int open_errno() const { return open_errno_; }
    // The node's descriptor, for the log.
    [[nodiscard]] int descriptor() const { return fd_.get(); }

    // The ioctl's own result. The record is as the driver left it.
    template <typename Record>
    int issue(Record& record) const {
        static_assert(std::is_trivially_copyable_v<Record> && std::is_standard_layout_v<Record>);
        return issue_raw(&record);
    }

  private:
    int issue_raw(void* record) const;

    const DeviceRequest& request_;
    int line_;
    Fd fd_;
    int open_errno_ = 0;
};

// In one step: the ioctl's own result, or nothing if the node could not be opened.
template <typename Record>
std::optional<int> call_device(const DeviceRequest& request, Record& record,
                               int line = __builtin_LINE()) {
    const DeviceCall call(request, line);
    return call ? std::optional(call.issue(record)) : std::nullopt;
}

} // namespace hal
