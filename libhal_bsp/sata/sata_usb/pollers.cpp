// The threads that wait for the MCU's line and for VBUS.
#include <hal_bsp/sysgpio.h>

#include "sata/sata_usb/bridge.h"
#include "support/fd.h"
#include "support/listener.h"
#include "support/log.h"
#include "support/transfer.h"
#include "support/wait.h"

#include <atomic>
#include <unistd.h>

namespace {

using namespace hal::sata;
using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kEdgeTimeout = 1500ms;
constexpr int kEnumChecks = 2000;

// A line's value, open in the record while this lives.
class ValueFile {
  public:
    ValueFile(uint32_t gpio, int32_t& place) : place_(place), fd_(gpio_fd_open(gpio)) {
        std::atomic_ref(place_).store(fd_);
    }
    ~ValueFile() { hal::close_shared(place_); }
    ValueFile(const ValueFile&) = delete;
    ValueFile& operator=(const ValueFile&) = delete;

    [[nodiscard]] int fd() const { return fd_; }

    // An edge is pending until the value is read.
    bool read() const {
        std::array<char, 64> text{};
        return hal::read_some(fd_, text.data(), text.size()) >= 0;
    }
    void rewind() const { lseek(fd_, 0, SEEK_SET); }

    // Waits for an edge, however long. A line that was taken back shows edges for ever: where it
    // cannot be read any more, they come at the pace of the time-out.
    void await_edge() const {
        while (hal::wait_priority(fd_, kEdgeTimeout) != hal::Wait::kReady) {
        }
        rewind();
        if (!read()) {
            hal::rest(kEdgeTimeout);
        }
    }

  private:
    int32_t& place_;
    int fd_;
};

// --- VBUS ---

enum class Vbus { kGone = 0, kPresent = 1, kUnreadable };

Vbus read_vbus() {
    auto value = static_cast<uint32_t>(Vbus::kUnreadable);
    gpio_get_value(sata_usb_prv.vbus_gpio, &value);
    return static_cast<Vbus>(value);
}

void tell_state(int state) {
    constexpr int kDevice = 0;
    hal::call_back(sata_usb_prv.state_cb, kDevice, state);
}

// How the wait for the host speaks: after a change of VBUS (a), or with VBUS there at first (b).
struct EnumTexts {
    const char* success;      // INFO
    const char* restart;      // WARN
    const char* restart_over; // WARN
};

constexpr EnumTexts kAfterChange{"mcu usb enumed success\n", "a.restart mcu usb\n",
                                 "a.restart mcu usb over\n"};
constexpr EnumTexts kAtFirst{"mcu usb enumed success, allling alllback\n", "b.restart mcu usb\n",
                             "b.restart mcu usb over\n"};

void restart_usb(const EnumTexts& texts) {
    HAL_LOG(HAL_LOG_WARN, "%s", texts.restart);
    send_usb_control(Usb::kDetached);
    hal::rest(2s);
    send_usb_control(Usb::kAttached);
    HAL_LOG(HAL_LOG_WARN, "%s", texts.restart_over);
}

void await_enumeration(const EnumTexts& texts) {
    for (int check = 0; check < kEnumChecks; ++check) {
        if (read_vbus() == Vbus::kGone) {
            return;
        }
        if (std::atomic_ref(sata_usb_prv.usb_enum_state).load() == 1) {
            HAL_LOG(HAL_LOG_INFO, "%s", texts.success);
            tell_state(HAL_OTG_CONFIGURED);
            return;
        }
        hal::rest(10ms);
    }
    HAL_LOG(HAL_LOG_WARN, "WARNNING!!! usb insert, but not enum 20s\n");
    tell_state(HAL_OTG_CONNECTED);
    restart_usb(texts);
}

void follow_vbus() {
    HAL_LOG(HAL_LOG_INFO, "vbus changee!!!!\n");
    switch (read_vbus()) {
    case Vbus::kPresent:
        HAL_LOG(HAL_LOG_INFO, "vbus change to 1 , usb insert!!!!\n");
        await_enumeration(kAfterChange);
        break;
    case Vbus::kGone:
        HAL_LOG(HAL_LOG_INFO, "vbus change to 0 , usb desert!!!!\n");
        std::atomic_ref(sata_usb_prv.usb_enum_state).store(0);
        tell_state(HAL_OTG_DISCONNECTED);
        break;
    case Vbus::kUnreadable:
        break;
    }
}

} // namespace

void* hal::sata::poll_interrupts([[maybe_unused]] void* arg) {
    HAL_LOG(HAL_LOG_INFO, "gpio_pollint...\n");
    const ValueFile line(sata_usb_prv.irq_gpio, sata_usb_prv.gpio_fd);
    HAL_LOG(HAL_LOG_INFO, "sata_usb_prv.gpio_fd is %d\n", line.fd());
    line.read();
    line.rewind();
    fetch_packet(WhenFull::kWait);
    for (;;) {
        line.await_edge();
        fetch_packet(WhenFull::kWait);
    }
}

void* hal::sata::poll_vbus([[maybe_unused]] void* arg) {
    HAL_LOG(HAL_LOG_INFO, "vbus_pollint...\n");
    const ValueFile line(sata_usb_prv.vbus_gpio, sata_usb_prv.vbus_gpio_fd);
    HAL_LOG(HAL_LOG_INFO, "sata_usb_prv.vbus_gpio_fd is %d\n", line.fd());
    line.read();
    line.rewind();
    if (read_vbus() == Vbus::kPresent) {
        HAL_LOG(HAL_LOG_INFO, "vbus already to 1 , usb inserted!!!!\n");
        await_enumeration(kAtFirst);
    }
    for (;;) {
        line.await_edge();
        follow_vbus();
    }
}
