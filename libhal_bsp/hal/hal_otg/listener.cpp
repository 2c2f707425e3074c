// Follows the connection to the host: uevents in, mailboxes and callback out.
#include "hal/hal_otg/listener.h"

#include <hal_bsp/hid.h>
#include <hal_bsp/otg.h>

#include "hal/hal_otg/gadget.h"
#include "support/listener.h"
#include "support/log.h"
#include "support/run_flag.h"
#include "support/thread.h"
#include "support/uevent.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <new>

namespace {

using namespace hal::otg;
using namespace std::chrono_literals;

constexpr hal::UeventPlan kUevents{.groups = 0xFFFFFFFF, .receive_buffer = 65536};
constexpr hal::Pace kPace{.wait = 100ms, .rest = 2ms};
constexpr std::size_t kMessageSize = 2048;

constinit hal::Runs listener_runs;

using ListenerRun = hal::Run<decltype(hal_otg_state::thread_state)>;

void become_configured(int before) {
    if (before == HAL_OTG_CONFIGURED) {
        HAL_LOG(HAL_LOG_INFO, "otg become configured second!!\n");
        return;
    }
    HAL_LOG(HAL_LOG_INFO, "otg become configured, set hidsee and masssee to normal\n");
    set_hidsee(FUNCTION_RUN_STATE_NORMAL);
    set_masssee(FUNCTION_RUN_STATE_NORMAL);
}

void become_disconnected() {
    HAL_LOG(HAL_LOG_INFO, "otg become disconnected, set hidsee and mass see to hangup\n");
    set_hidsee(FUNCTION_RUN_STATE_HANGUP);
    set_masssee(FUNCTION_RUN_STATE_HANGUP);
}

class Connection {
  public:
    void become(int state) {
        HAL_LOG(HAL_LOG_INFO, "connect_cur = %d\n", state);
        set_usbsta(state);
        if (state == HAL_OTG_CONFIGURED) {
            become_configured(before_);
        } else if (state == HAL_OTG_DISCONNECTED) {
            become_disconnected();
        } else {
            HAL_LOG(HAL_LOG_INFO, "otg connected!\n");
        }
        before_ = state;
        constexpr int kDevice = 0;
        hal::call_back(hal_otg_prv.state_cb, kDevice, state);
    }

  private:
    int before_ = HAL_OTG_UNKNOWN;
};

// What a listener has for itself; too much for some stacks.
struct Listener {
    explicit Listener(const ListenerRun& its_run) : run(its_run) {}

    ListenerRun run;
    Connection connection;
    std::array<char, kMessageSize + 2> buffer{}; // with room for the text that ends a message
};

// Hears all that has come meanwhile.
void drain(const hal::Fd& uevents, Listener& listener) {
    const std::span<char> room = std::span(listener.buffer).first<kMessageSize>();
    for (auto message = hal::receive_uevent(uevents.get(), room); !message.empty();
         message = hal::receive_uevent(uevents.get(), room)) {
        if (message.size() == kMessageSize) {
            continue; // it was longer, perhaps
        }
        listener.buffer[message.size()] = '\0';
        listener.buffer[message.size() + 1] = '\0';
        if (const int state = uevent_parse(listener.buffer.data()); state >= 0) {
            listener.connection.become(state);
        }
    }
}

void listen_while_wanted(Listener& listener) {
    HAL_LOG(HAL_LOG_INFO, "otg thread running!!!!\n");
    hal::Fd uevents = uevent_open();
    HAL_LOG(HAL_LOG_INFO, "uevent socket_fd = %d\n", uevents.get());
    HAL_LOG(HAL_LOG_INFO, "set_usbsta connect_cur\n");
    set_usbsta(HAL_OTG_UNKNOWN);
    while (listener.run.is_wanted()) {
        hal::listen_once(uevents.get(), kPace, [&](hal::Wait outcome) {
            if (outcome != hal::Wait::kReady) {
                return hal::Pass::kAtOnce;
            }
            drain(uevents, listener);
            return hal::Pass::kRest;
        });
    }
    uevents.reset();
    std::atomic_ref(hal_hid_prv.thread_state).store(0);
    HAL_LOG(HAL_LOG_INFO, "otg thread out!!!\n");
}

std::unique_ptr<Listener> make_listener(const ListenerRun& run) {
    return std::unique_ptr<Listener>(new (std::nothrow) Listener(run));
}

} // namespace

hal::Fd hal::otg::uevent_open() {
    return hal::open_uevents(kUevents);
}

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
