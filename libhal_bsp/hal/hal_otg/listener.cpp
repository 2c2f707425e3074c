// Follows the connection to the host: uevents in, mailboxes and callback out.
#include "hal/hal_otg/listener.h"

#include <hal_bsp/hid.h>
#include <hal_bsp/otg.h>

#include "hal/hal_otg/gadget.h"
#include "support/connection.h"
#include "support/listener.h"
#include "support/log.h"
#include "support/run_flag.h"
#include "support/thread.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <new>

namespace {

using namespace hal::otg;

constinit hal::Runs listener_runs;

using ListenerRun = hal::Run<decltype(hal_otg_state::thread_state)>;

class Listener final : public hal::ConnectionListener {
  public:
    explicit Listener(const ListenerRun& run) : run_(run) {}

  private:
    [[nodiscard]] bool is_wanted() const override { return run_.is_wanted(); }
    void begin() override {
        HAL_LOG(HAL_LOG_INFO, "set_usbsta connect_cur\n");
        set_usbsta(HAL_OTG_UNKNOWN);
    }
    void publish(int state) override { set_usbsta(state); }
    void become_configured() override {
        HAL_LOG(HAL_LOG_INFO, "otg become configured, set hidsee and masssee to normal\n");
        set_hidsee(FUNCTION_RUN_STATE_NORMAL);
        set_masssee(FUNCTION_RUN_STATE_NORMAL);
    }
    void become_disconnected() override {
        HAL_LOG(HAL_LOG_INFO, "otg become disconnected, set hidsee and mass see to hangup\n");
        set_hidsee(FUNCTION_RUN_STATE_HANGUP);
        set_masssee(FUNCTION_RUN_STATE_HANGUP);
    }
    void tell([[maybe_unused]] int before, int state) override {
        constexpr int kDevice = 0;
        hal::call_back(hal_otg_prv.state_cb, kDevice, state);
    }
    void end() override { std::atomic_ref(hal_hid_prv.thread_state).store(0); }

    ListenerRun run_;
};

void listen_while_wanted(Listener& listener) {
    listener.listen_while_wanted(kModule);
}

std::unique_ptr<Listener> make_listener(const ListenerRun& run) {
    return std::unique_ptr<Listener>(new (std::nothrow) Listener(run));
}

} // namespace

int32_t hal::otg::start_listening() {
    hal_otg_state& state = hal_otg_prv;
    std::unique_ptr<Listener> listener = make_listener(listener_runs.begin(state.thread_state));
    HAL_LOG(HAL_LOG_INFO, "pthread_create hal_otg_listen\n");
    return listener ? hal::start_worker<listen_while_wanted>(state.listen_tid, std::move(listener))
                    : ENOMEM;
}

void* hal_otg_listen([[maybe_unused]] void* arg) {
    const auto listener = make_listener(listener_runs.current(hal_otg_prv.thread_state));
    if (listener) {
        listen_while_wanted(*listener);
    }
    return nullptr;
}
