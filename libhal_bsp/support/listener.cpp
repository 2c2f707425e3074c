#include "support/listener.h"

#include "support/fd.h"

#include <fcntl.h>

namespace hal {

int open_and_run(const Caller& caller, const ListenerFields& fields, const ListenerPlan& plan) {
    Fd node = open_fd(plan.node, O_RDWR);
    std::atomic_ref(fields.fd).store(node.release());
    if (fields.fd < 0) {
        caller.log(HAL_LOG_ERROR, plan.open_error);
        return plan.results.no_node;
    }
    std::atomic_ref(fields.inited).store(1);
    if (const int error = start_thread(fields.thread, plan.body, nullptr); error != 0) {
        std::atomic_ref(fields.inited).store(0);
        close_shared(fields.fd);
        caller.log(HAL_LOG_ERROR, plan.thread_error, error);
        return plan.results.no_thread;
    }
    if (plan.started != nullptr) {
        caller.log(HAL_LOG_INFO, plan.started);
    }
    return plan.results.started;
}

void stop_and_close(const ListenerFields& fields) {
    if (std::atomic_ref(fields.inited).load() == 1) {
        stop_thread(fields.thread);
    }
    std::atomic_ref(fields.inited).store(0);
    close_shared(fields.fd);
}

} // namespace hal
