#include "support/listener.h"

#include "support/fd.h"

#include <fcntl.h>

namespace hal {

int open_and_run(const ListenerFields& fields, const ListenerPlan& plan, int line) {
    Fd node = open_fd(plan.node, O_RDWR);
    std::atomic_ref(fields.fd).store(node.release());
    if (fields.fd < 0) {
        log_log(HAL_LOG_ERROR, plan.module, line, "%s", plan.open_error);
        return kListenerNoNode;
    }
    std::atomic_ref(fields.inited).store(1);
    if (const int error = start_thread(fields.thread, plan.body, nullptr); error != 0) {
        std::atomic_ref(fields.inited).store(0);
        close_shared(fields.fd);
        log_log(HAL_LOG_ERROR, plan.module, line, plan.thread_error, error);
        return kListenerNoThread;
    }
    if (plan.started != nullptr) {
        log_log(HAL_LOG_INFO, plan.module, line, "%s", plan.started);
    }
    return kListenerStarted;
}

void stop_and_close(const ListenerFields& fields) {
    if (std::atomic_ref(fields.inited).load() == 1) {
        stop_thread(fields.thread);
    }
    std::atomic_ref(fields.inited).store(0);
    close_shared(fields.fd);
}

} // namespace hal
