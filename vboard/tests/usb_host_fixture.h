#pragma once
// The USB host computer with a device of the test's own at its cable.

#include "core/board.h"
#include "host/capture.h"
#include "host/hid_report.h"
#include "models/kinds.h"
#include "tests/fake_usb_device.h"
#include "tests/run_on_board.h"

#include <gmock/gmock.h>

#include <condition_variable>
#include <random>

namespace vb::usb_host_test {

using test::FakeUsbDevice;
using testing::HasSubstr;
using Prank = FakeUsbDevice::Prank;

inline constexpr char kKeyboard[] =
    "05 01 09 06 a1 01 85 01 05 07 19 e0 29 e7 15 00 25 01 75 01 95 08 81 02 95 01 75 08 81 01"
    "95 05 75 01 05 08 19 01 29 05 91 02 95 01 75 03 91 01 95 06 75 08 15 00 26 e7 00 05 07 19"
    "00 29 e7 81 00 c0 05 0c 09 01 a1 01 85 03 15 00 26 ff 02 19 00 2a ff 02 75 10 95 01 81 00 c0";
inline constexpr char kAbsoluteMouse[] =
    "05 01 09 02 a1 01 85 02 09 01 a1 00 05 09 19 01 29 03 15 00 25 01 95 03 75 01 81 02 95 01"
    "75 05 81 01 05 01 09 30 09 31 15 00 26 ff 7f 35 00 46 ff 7f 65 00 75 10 95 02 81 22 05 01"
    "09 38 15 81 25 7f 35 81 45 7f 75 08 95 01 81 06 c0 c0";
inline constexpr char kRelativeMouse[] =
    "05 01 09 02 a1 01 85 02 09 01 a1 00 05 09 19 01 29 03 15 00 25 01 95 03 75 01 81 02 95 01"
    "75 05 81 01 05 01 09 30 09 31 09 38 15 81 25 7f 75 08 95 03 81 06 c0 c0";

inline Bytes bytes_in(std::string hex) {
    std::erase(hex, ' ');
    return from_hex(hex).value();
}

inline Bytes together(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

inline Bytes touch_screen() {
    const std::string finger =
        "09 22 a1 02 09 42 15 00 25 01 75 01 95 01 81 02 95 07 81 03 75 08 09 51 26 ff 00 95 01 81"
        "02 05 01 26 ff 7f 75 10 55 0e 65 11 09 30 35 00 46 98 12 81 02 46 78 0a 09 31 81 02 c0";
    std::string hex = "05 0d 09 04 a1 01 85 10" + finger;
    for (int i = 1; i < 10; ++i) {
        hex += "05 0d" + finger;
    }
    return bytes_in(
        hex + "05 0d 09 54 95 01 75 08 15 00 25 0a 81 02 27 ff ff 00 00 55 0c 66 01 10 75 10"
              "09 56 35 00 47 ff ff 00 00 81 02 85 08 75 08 95 01 15 01 25 0a 09 55 b1 02 c0"
              "09 0e a1 01 85 04 09 23 a1 02 09 52 15 00 25 0a 75 08 09 53 95 01 b1 02 c0 c0");
}

inline void expect_lengths(const Bytes& bytes, std::size_t size,
                           const std::map<std::uint8_t, std::size_t>& input) {
    EXPECT_EQ(bytes.size(), size);
    const auto parsed = host::parse_hid_descriptor(bytes);
    EXPECT_EQ(parsed.error, "");
    for (const auto& [report, length] : input) {
        EXPECT_EQ(parsed.report_length(host::ReportKind::input, report), length) << int{report};
    }
}

// Every transfer that began ends once, the device's going included, and time never goes back.
// How many ended with each status; 1: began.
inline std::map<int, int> whole_capture(const std::string& capture) {
    struct Packet {
        std::array<std::uint32_t, 4> header;
        std::uint64_t id;
        char event;
        std::array<std::uint8_t, 15> rest;
        std::int32_t microseconds;
        std::int32_t status;
        std::array<std::uint32_t, 2> lengths;
    };
    constexpr std::size_t kRecord = 64;
    const ByteView bytes(reinterpret_cast<const std::uint8_t*>(capture.data()), capture.size());
    std::set<std::uint64_t> open;
    std::map<int, int> ends;
    std::uint64_t time = 0;
    std::size_t place = 24;
    while (place + sizeof(std::uint32_t) * 4 + kRecord <= bytes.size()) {
        const auto packet = record_from<Packet>(bytes.subspan(place));
        const std::uint64_t now = packet.header[0] * 1'000'000ULL + packet.header[1];
        EXPECT_GE(now, time);
        time = now;
        EXPECT_EQ(packet.header[2], kRecord + packet.lengths[1]);
        EXPECT_TRUE(packet.event == 'S' ? open.insert(packet.id).second
                                        : open.erase(packet.id) == 1);
        ends[packet.event == 'S' ? 1 : packet.status] += 1;
        place += 16 + packet.header[2];
    }
    EXPECT_EQ(place, bytes.size());
    EXPECT_EQ(open.size(), 0U);
    return ends;
}

inline void expect_whole_capture(const std::string& capture) {
    std::map<int, int> ends = whole_capture(capture);
    EXPECT_GT(ends[0], 30);
    EXPECT_GT(ends[-EPIPE], 0);
    EXPECT_GT(ends[-EOVERFLOW], 0);
    EXPECT_GT(ends[-ETIMEDOUT], 0);
    EXPECT_GT(ends[-ESHUTDOWN], 0);
}

// A board with nothing but a host on it.
class UsbHost : public testing::Test {
  protected:
    UsbHost() {
        board_.act([this] {
            capture_->write_to(folder_ / "capture", false);
            board_.parts().offer(host::Capture::kName, capture_);
            Settings settings(settings_, "host", kUsbHost.settings);
            board_.add_model(kUsbHost.make(board_, settings));
            socket_ = board_.parts().find<usb::Socket>("host");
            board_.trace().listen({}, [this](const Json& event) {
                const std::lock_guard lock(mutex_);
                events_.push_back(event);
                came_.notify_all();
            });
        });
        board_.set_speed(1000);
        board_.start();
    }

    Json ask(const std::string& verb, const Json& arguments = Json::object()) {
        Json answer;
        board_.act([&] { answer = board_.verbs().call("host." + verb, arguments); });
        return answer;
    }
    void attach(FakeUsbDevice& device) {
        board_.act([&] { EXPECT_TRUE(socket_->attach(device)); });
    }
    void detach(FakeUsbDevice& device) {
        board_.act([&] { socket_->detach(device); });
    }
    void report(FakeUsbDevice& device, std::uint8_t interface, const std::string& hex) {
        board_.act([&] { device.report(interface, bytes_in(hex)); });
    }
    // The next event after those waited for before.
    Json wait(const Json& pattern) {
        std::unique_lock lock(mutex_);
        Json found;
        came_.wait_for(lock, std::chrono::seconds(20), [&] {
            for (; seen_ < events_.size() && found.is_null(); ++seen_) {
                found = matches(events_[seen_], pattern) ? events_[seen_] : Json();
            }
            return !found.is_null();
        });
        EXPECT_FALSE(found.is_null()) << pattern;
        return found.is_null() ? Json::object() : found;
    }
    Json wait_for_state(const std::string& state) {
        return wait({{"kind", "usb_host"}, {"state", state}});
    }
    Json end_of(const Json& job) {
        Json event = wait({{"kind", "usb_disk"}, {"job", job}});
        while (event.value("state", "done") != "done" && event["state"] != "failed") {
            event = wait({{"kind", "usb_disk"}, {"job", job}});
        }
        return event;
    }

    TemporaryFolder folder_;
    Json settings_ = {{"disk_wait_ms", 2000U}};
    std::mutex mutex_;
    std::condition_variable came_;
    std::vector<Json> events_;
    std::size_t seen_ = 0;
    usb::Socket* socket_ = nullptr;
    FakeUsbDevice device_{{together(bytes_in(kKeyboard), bytes_in(kAbsoluteMouse)), touch_screen(),
                           bytes_in(kRelativeMouse)}};
    Board board_{BoardClock::create(folder_ / "clock")};
    std::shared_ptr<host::Capture> capture_ =
        std::make_shared<host::Capture>([this] { return board_.now(); });
};

} // namespace vb::usb_host_test
