// The USB device port on the MCU: the library's bridge at one end, the board's host at the other.
#pragma once

#include "tests/support/on_board.h"
#include "tests/support/thread_tap.h"

#include <hal_bsp/hal_bsp.h>

#include <atomic>
#include <semaphore>

namespace hal_test::mcu {

using Bytes = std::vector<std::uint8_t>;

inline constexpr hal_otg_info kIds{0, 0x5678, 0x1234};
inline constexpr hal_hid_info kReportIds{1, 7, 1, 10, 1, 8, 1, 9};
inline constexpr std::uint32_t kIrqLine = 97; // on the standard board
inline constexpr char kReset[] = "INFO mcu_hard_rst over\n";
inline constexpr char kEnumerated[] = "INFO mcu report usb enum state, usb_enum_state = 1\n";
inline constexpr char kWriteFailed[] = "ERROR Sending SCSI Command failed,mcu_recover\n";

// What the application is told. Never destroyed, for the library's threads run to the end.
struct Application {
    struct Event {
        std::uint32_t kind;
        Bytes bytes;
        bool operator==(const Event&) const = default;
    };

    static Application& instance() {
        static Application& application = *new Application; // NOLINT
        return application;
    }
    static void hear_state(int dev, int state) { instance().states.add(10 * dev + state); }
    static void hear_report(hal_hid_data* report) {
        instance().reports.add({report->data, report->data + report->len});
        if (instance().slow) {
            instance().go_on.acquire();
        }
    }
    static void hear_event(hal_mass_data* event) {
        instance().events.add({event->kind, {event->data, event->data + event->len}});
        if (event->kind == MASS_EVENT_CBW && event->data[15] != instance().mute) {
            const hal_mass_reply reply{0, 0, nullptr, 1};
            sata_mass_write(&reply);
        }
    }

    Heard<int> states;
    Heard<Bytes> reports;
    Heard<Event> events;
    std::atomic<bool> slow{false}; // a report is done with when told
    std::binary_semaphore go_on{0};
    std::atomic<int> mute{-1}; // a command that is not answered
};

inline int32_t start() {
    return sata_otg_init(&kIds, 1, nullptr, kIrqLine, 0, Application::hear_state);
}

class Port : public OnBoard {
  protected:
    // A host that does not come within 20 s is another story.
    static constexpr double kSpeed = HAL_SLOW != 0 ? 5 : 20;

    // The bridge's threads never end: it is started before they are counted.
    void SetUp() override {
        static const bool started = [this] {
            set_speed(kSpeed);
            ThreadTap::instance();
            return start() == 0 && !app_.states.wait_for(1).empty();
        }();
        ASSERT_TRUE(started);
        EXPECT_TRUE(comes_true([] { return idle(); }));
        OnBoard::SetUp();
        set_speed(kSpeed);
        forget();
    }
    void TearDown() override {
        app_.slow = false;
        app_.mute = -1;
        set_speed(kSpeed);
        clear_faults();
        ask("host.configure", {{"when", "after"}});
        if (!ask("host.show").at("plugged").get<bool>()) {
            app_.states.clear();
            ask("host.plug");
            app_.states.wait_for(1);
        }
        if (!is_open()) {
            ask("mcu.bridge", {{"state", "there"}});
            EXPECT_EQ(mcu_recover(), 0);
        }
        sata_hid_deinit();
        forget();
        EXPECT_EQ(sata_mass_deinit(0, 0), 0);
        expect_settled();
        OnBoard::TearDown();
    }
    void forget() {
        app_.states.clear();
        app_.reports.clear();
        app_.events.clear();
        ThreadTap::instance().forget();
        forget_trace();
    }

    // And has all that comes of it dealt with.
    static void set_up_devices() {
        ASSERT_EQ(sata_hid_init(&kReportIds, Application::hear_report), 0);
        expect_settled();
    }
    static void expect_settled() {
        EXPECT_TRUE(says(kEnumerated));
        EXPECT_TRUE(comes_true([] { return idle(); }));
    }
    static bool enumerated() { return std::atomic_ref(sata_usb_prv.usb_enum_state).load() == 1; }
    static bool is_open() { return std::atomic_ref(sata_usb_prv.sata_dev_fd).load() > 0; }
    // Where the next packet goes, and how many there are.
    static std::pair<int32_t, int32_t> ring() {
        pthread_mutex_lock(&sata_usb_prv.rx_lock);
        const int32_t next = sata_usb_prv.rx_write;
        const int32_t count = (next - sata_usb_prv.rx_read + MCU_RING_SLOTS) % MCU_RING_SLOTS;
        pthread_mutex_unlock(&sata_usb_prv.rx_lock);
        return {next, count};
    }
    static int32_t next_slot() { return ring().first; }
    static int32_t waiting_packets() { return ring().second; }
    static bool idle() {
        return waiting_packets() == 0 && std::atomic_ref(safe_info.running).load() == 0;
    }
    static std::size_t count(const Lines& lines, const std::string& line) {
        return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
    }
    // By rcv on a thread, which it detaches.
    static void fetch_elsewhere() {
        std::atomic<bool> fetched{false};
        pthread_t fetcher{};
        const auto fetch = [](void* done) -> void* {
            rcv(nullptr);
            static_cast<std::atomic<bool>*>(done)->store(true);
            return nullptr;
        };
        ASSERT_EQ(pthread_create(&fetcher, nullptr, fetch, &fetched), 0);
        EXPECT_TRUE(comes_true([&] { return fetched.load(); }));
    }
    static int32_t write_block() {
        static const Bytes block(MCU_BLOCK_BYTES);
        return sata_write(block.data(), MCU_BLOCK_BYTES, 0, 0);
    }

    // The MCU has a packet for the processor.
    void from_mcu(std::uint32_t type, const Bytes& value) {
        ask("mcu.send", {{"type", type}, {"value", hex(value)}});
    }
    void data_from_mcu(std::size_t size, std::uint8_t fill) {
        from_mcu(MCU_MASS_DATA, Bytes(size, fill));
    }
    static std::string hex(const Bytes& bytes) {
        constexpr char kDigits[] = "0123456789abcdef";
        std::string text;
        for (const std::uint8_t byte : bytes) {
            text += {kDigits[byte >> 4], kDigits[byte & 15]};
        }
        return text;
    }
    // A command block wrapper.
    static Bytes command(std::uint8_t code, std::uint32_t length, std::uint32_t block = 0) {
        Bytes cbw(31);
        cbw[15] = code;
        for (std::size_t i = 0; i < 4; ++i) {
            cbw[8 + i] = static_cast<std::uint8_t>(length >> 8 * i);
            cbw[17 + i] = static_cast<std::uint8_t>(block >> 8 * i);
        }
        return cbw;
    }
    // What came to the MCU, as "TYPE SIZE" and, where the trace has it, the value.
    Lines sent() {
        Lines lines;
        for (const Json& event : events({{"kind", "mcu"}, {"packet", "in"}})) {
            lines.push_back(event.value("type", "") + " " + event["size"].dump() +
                            (event.contains("value") ? " " + event.value("value", "") : ""));
        }
        return lines;
    }
    double seconds() { return ask("clock.show").at("seconds").get<double>(); }

    Application& app_ = Application::instance();
};

} // namespace hal_test::mcu
