// Over the MCU there is less that an application is told than on the SoC's own port: neither that
// the host has found a device that was attached anew, nor that the MCU was reset, which leaves it
// without the disk. The library's log has both, so we listen to that. Its threads never end; what
// they call back for is let through here, until we close.
#include "usb_carrier.h"

#include <hal_bsp/log.h>
#include <hal_bsp/mcu.h>
#include <hal_bsp/sysgpio.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>
#include <pthread.h>
#include <span>
#include <thread>
#include <utility>

namespace usb {

namespace {

using namespace std::chrono_literals;

using BridgeClock = std::chrono::steady_clock;
using Time = BridgeClock::time_point;

constexpr auto kDetached = 1s; // so long the library leaves the device detached, to attach it anew

// --- the application's callbacks ---

template <class... Arguments>
class Listener {
  public:
    using Callback = void (*)(Arguments...);

    void set(Callback callback) {
        const std::lock_guard turn(mutex_);
        callback_ = callback;
    }
    void call(Arguments... arguments) {
        const std::lock_guard turn(mutex_);
        if (callback_ != nullptr) {
            callback_(arguments...);
        }
    }
    // Nothing is called back after it.
    void call_for_the_last_time(Arguments... arguments) {
        const std::lock_guard turn(mutex_);
        if (Callback callback = std::exchange(callback_, nullptr); callback != nullptr) {
            callback(arguments...);
        }
    }

  private:
    std::mutex mutex_;
    Callback callback_ = nullptr;
};

constinit Listener<int, int> on_state;
constinit Listener<hal_hid_data*> on_output;
constinit Listener<hal_mass_data*> on_event;

void pass_output(hal_hid_data* report) {
    on_output.call(report);
}

void pass_event(hal_mass_data* event) {
    on_event.call(event);
}

// --- whether the host has the device as it is attached now ---

constinit std::atomic<Time> seen{Time::min()};       // the host has configured it
constinit std::atomic<Time> not_before{Time::min()}; // what it did before that is of no meaning
constinit std::atomic<int> told{HAL_OTG_UNKNOWN};    // to the application, of the connection
constinit std::atomic<bool> offered{false};          // the disk
constinit std::atomic<bool> lost{false};             // and host or MCU have lost it since

void forget_before(Time time) {
    Time known = not_before;
    while (known < time && !not_before.compare_exchange_weak(known, time)) {
    }
}

bool is_seen() {
    return seen.load() >= not_before.load() && not_before.load() > Time::min();
}

void take_log(log_event* event) {
    const auto says = [event](const char* text) {
        return std::strcmp(event->file, "sata_usb") == 0 && std::strcmp(event->fmt, text) == 0;
    };
    if (says("mcu report usb enum state, usb_enum_state = 1\n")) {
        seen = BridgeClock::now();
    } else if (says("mcu_hard_rst over\n")) {
        forget_before(BridgeClock::now() + kDetached);
        lost = true;
    }
}

void listen_to_log() {
    static std::once_flag once;
    std::call_once(once, [] { log_add_callback(take_log, nullptr, HAL_LOG_INFO); });
}

void take_state(int dev, int state) {
    if (state == HAL_OTG_DISCONNECTED) {
        forget_before(BridgeClock::now());
        lost = true;
    }
    told = state;
    on_state.call(dev, state);
}

// --- to the MCU ---

// A block that the bridge has refused with a SCSI status has gone nowhere.
template <class Write>
int32_t written(const Write& write) {
    constexpr int kTries = 5;
    int32_t result = write();
    for (int i = 1; i < kTries && result > 0; ++i) {
        std::this_thread::sleep_for(10ms);
        result = write();
    }
    return result == 0 ? 0 : -1;
}

constinit std::atomic<Time> reported{Time()};

// The MCU keeps reports until the host comes for them, and forgets them when it detaches.
void let_reports_go() {
    constexpr auto kHostsTime = 250ms; // for some ten of them
    std::this_thread::sleep_until(reported.load() + kHostsTime);
}

bool write_packet(const hal_hid_data* report) {
    if (!is_seen()) {
        errno = ESHUTDOWN; // the MCU would drop it
        return false;
    }
    const bool sent = written([report] { return sata_hid_write(report); }) == 0;
    reported = BridgeClock::now();
    errno = sent ? 0 : EIO;
    return sent;
}

// Packet by packet: of several at once only the last one's fate is known.
int32_t write_disk_packets(const hal_mass_reply* reply) {
    constexpr std::size_t kPacket = 512;
    std::span<const uint8_t> left(reply->data, reply->len);
    do {
        const auto piece = left.first(std::min(left.size(), kPacket));
        left = left.subspan(piece.size());
        const hal_mass_reply part{reply->dev, static_cast<uint32_t>(piece.size()), piece.data(),
                                  left.empty() ? reply->last : 0};
        if (written([&part] { return sata_mass_write(&part); }) < 0) {
            const hal_mass_reply end{reply->dev, 0, nullptr, reply->last};
            sata_mass_write(&end);
            return -1;
        }
    } while (!left.empty());
    return 0;
}

// --- up and down ---

int32_t open_bridge(const hal_otg_info& ids, hal_otg_state_callback callback) {
    constexpr uint32_t kVbusLine = 96;
    listen_to_log();
    on_state.set(callback);
    return sata_otg_init(&ids, 1, nullptr, kMcuInterruptLine, kVbusLine, take_state);
}

int32_t add_devices(const hal_hid_info& devices, hal_hid_callback callback) {
    on_output.set(callback);
    forget_before(BridgeClock::now() + kDetached);
    return sata_hid_init(&devices, pass_output);
}

void end_disk() {
    hal_mass_data end{};
    end.kind = MASS_EVENT_END;
    on_event.call_for_the_last_time(&end);
    offered = false;
}

int32_t attach_disk(hal_mass_callback callback) {
    let_reports_go();
    lost = false;
    on_event.set(callback);
    offered = true;
    forget_before(BridgeClock::now() + kDetached);
    const int32_t result = sata_mass_init(nullptr, 1, pass_event);
    if (result != 0) {
        on_event.set(nullptr);
        offered = false;
    }
    return result;
}

void detach_disk() {
    if (offered) {
        let_reports_go();
        forget_before(BridgeClock::now() + kDetached);
        sata_mass_deinit(0, 1);
        end_disk();
    }
}

bool is_disk_there() {
    return offered;
}

bool is_disk_seen() {
    return offered && !lost && is_seen();
}

void detach_device() {
    let_reports_go();
    sata_otg_deinit();
}

bool close_bridge(bool stays) {
    detach_disk();
    sata_hid_deinit();
    if (!stays) {
        detach_device();
    }
    on_state.set(nullptr);
    on_output.set(nullptr);
    return true;
}

// --- what the library leaves to us ---

// After a reset, or without the host's power, the disk has to be added again; so it has where the
// MCU's word that the host has found it got lost.
void look_after_disk() {
    constexpr auto kPatience = 10s;
    const bool overdue = told != HAL_OTG_DISCONNECTED && !is_seen() &&
                         BridgeClock::now() > not_before.load() + kPatience;
    if (offered && (lost || overdue)) {
        end_disk();
    }
}

// A host that takes its time is told by nobody else.
void look_after_connection() {
    if (told == HAL_OTG_CONNECTED && is_seen()) {
        take_state(0, HAL_OTG_CONFIGURED);
    }
}

// A packet whose block could not be read waits for the next edge, which may never come: its line is
// high already.
void look_after_packets() {
    static bool was_waiting = false;
    uint32_t level = 0;
    gpio_get_value(kMcuInterruptLine, &level);
    const bool is_waiting = level == 1;
    if (is_waiting && was_waiting && std::atomic_ref(flag).load() == 0) {
        pthread_t fetcher{};
        pthread_create(&fetcher, nullptr, rcv, nullptr); // which detaches itself
    }
    was_waiting = is_waiting;
}

// A recovery that fails is followed by no other; while one is under way there is no disk, too.
void look_after_bridge() {
    constexpr auto kRecoveryAtMost = 5s;
    static Time gone_since = Time::max();
    if (std::atomic_ref(sata_usb_prv.sata_dev_fd).load() > 0) {
        gone_since = Time::max();
        return;
    }
    const Time now = BridgeClock::now();
    gone_since = std::min(gone_since, now);
    if (now - gone_since > kRecoveryAtMost) {
        mcu_recover();
        gone_since = Time::max();
    }
}

void look_after_bridge_and_host() {
    look_after_bridge();
    look_after_packets();
    look_after_connection();
    look_after_disk();
}

} // namespace

const Carrier kMcuBridge{.open = open_bridge,
                         .add_input = add_devices,
                         .takes_reports = is_seen,
                         .write_report = write_packet,
                         .has_consumer_keys = false, // no packet is for them
                         .add_disk = attach_disk,
                         .remove_disk = detach_disk,
                         .has_disk = is_disk_there,
                         .serves_disk = is_disk_seen,
                         .write_disk = write_disk_packets,
                         .disk_data = SCSI_DISK_DATA_OF_WRITES,
                         .detach = detach_device,
                         .look_after = look_after_bridge_and_host,
                         .close = close_bridge};

} // namespace usb
