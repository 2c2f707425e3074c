// Requests to device drivers: one ioctl on a record, on a node that is opened for it or on a
// descriptor that the caller holds.
#pragma once

#include "support/caller.h"
#include "support/fd.h"

#include <bit>
#include <optional>
#include <type_traits>

namespace hal {

// Records go to the drivers as they lie in memory, and the drivers read little-endian.
static_assert(std::endian::native == std::endian::little);

// What a module asks of its node, and how it speaks of failures.
struct DeviceRequest {
    const char* node = nullptr;
    unsigned long code = 0;
    const char* open_error = nullptr;  // logged when the node cannot be opened
    const char* ioctl_error = nullptr; // logged when the request's result is negative; null: not
};

// The ioctl's own result; `error` is logged when it is negative, unless it is null.
int issue_on(const Caller& caller, int fd, unsigned long code, void* record, const char* error);

// In two steps, for modules that have something to do between them. The request has to outlive it.
class DeviceCall {
  public:
    DeviceCall(const Caller& caller, const DeviceRequest& request);
    DeviceCall(const Caller& caller, const DeviceRequest&& request) = delete;

    // Whether the node could be opened; errno says why not.
    explicit operator bool() const { return static_cast<bool>(fd_); }
    // The node's descriptor, for the log.
    [[nodiscard]] int descriptor() const { return fd_.get(); }

    // The ioctl's own result. The record is as the driver left it.
    template <typename Record>
    int issue(Record& record) const {
        static_assert(std::is_trivially_copyable_v<Record> && std::is_standard_layout_v<Record>);
        return issue_on(caller_, fd_.get(), request_.code, &record, request_.ioctl_error);
    }

  private:
    Caller caller_;
    const DeviceRequest& request_;
    Fd fd_;
};

// In one step: the ioctl's own result, or nothing if the node could not be opened.
template <typename Record>
std::optional<int> call_device(const Caller& caller, const DeviceRequest& request, Record& record) {
    const DeviceCall call(caller, request);
    return call ? std::optional(call.issue(record)) : std::nullopt;
}

} // namespace hal
