#pragma once
// A USB device port with both its ends: the program's on configfs, and a host's on the cable.

#include "host/usb.h"
#include "models/board_file.h"
#include "tests/served_process.h"

#include <sys/stat.h>

#include <array>
#include <thread>

namespace vb::gadget_test {

inline constexpr char kRoot[] = "/sys/kernel/config/usb_gadget";
using Texts = std::vector<std::string>;

inline Bytes hex(const std::string& text) {
    std::string digits = text;
    std::erase(digits, ' ');
    return from_hex(digits).value();
}

// A host's socket that does what the test says.
struct Cable : usb::Socket {
    bool attach(usb::Device& attached) override {
        device = &attached;
        return true;
    }
    void detach(usb::Device&) override { device = nullptr; }
    bool powered() const override { return power; }
    void on_power(std::function<void(bool)> told) override { listener = std::move(told); }

    usb::Device* device = nullptr;
    bool power = true;
    std::function<void(bool)> listener;
};

struct Port {
    Board board;
    Cable* cable = nullptr;

    explicit Port(const TemporaryFolder& folder) : board(BoardClock::create(folder / "clock")) {
        cable = static_cast<Cable*>(
            &board.parts().offer<usb::Socket>("host", std::make_shared<Cable>()));
        build_board(board,
                    R"({"models": [{"model": "usb_gadget", "controllers": ["one", "two"]}]})");
        board.tree().make_directories("/dev");
        serve(board, folder.path(), {"/sys", "/dev"});
        EXPECT_EQ(chdir(kRoot), 0);
    }

    // --- the host ---

    // "stall", or what came back in hexadecimal digits.
    std::string control(const std::string& setup, const std::string& data = "") {
        std::string result = "nothing";
        board.act([&] {
            cable->device->control(
                record_from<usb::Setup>(hex(setup)), hex(data),
                [&](usb::Status status, ByteView bytes) { result = result_of(status, bytes); });
        });
        return result;
    }

    static std::string result_of(usb::Status status, ByteView bytes) {
        return status == usb::Status::done    ? to_hex(bytes)
               : status == usb::Status::stall ? "stall"
                                              : "error";
    }

    // The result comes when it comes.
    std::shared_ptr<std::string> in(std::uint8_t endpoint, std::size_t length) {
        auto result = std::make_shared<std::string>("pending");
        board.act([&] {
            cable->device->in(endpoint, length, [result](usb::Status status, ByteView bytes) {
                *result = result_of(status, bytes);
            });
        });
        return result;
    }
    std::shared_ptr<std::string> out(std::uint8_t endpoint, const Bytes& data) {
        auto result = std::make_shared<std::string>("pending");
        board.act([&] {
            cable->device->out(endpoint, data, [result](usb::Status status, ByteView bytes) {
                *result = result_of(status, bytes);
            });
        });
        return result;
    }
    std::string now(const std::shared_ptr<std::string>& result) {
        std::string text;
        board.act([&] { text = *result; });
        return text;
    }

    void configure() {
        board.act([&] { cable->device->reset_bus(); });
        EXPECT_EQ(control("00 05 07 00 00 00 00 00"), "");
        EXPECT_EQ(control("00 09 01 00 00 00 00 00"), "");
    }

    // Waits until a call of another thread waits at this node.
    void wait_for_call(const std::string& node) {
        bool there = false;
        while (!there) {
            board.act([&] {
                for (const Json& call : board.traffic().list()) {
                    there = there || call.at("node") == node;
                }
            });
        }
    }

    // The USB_STATE of all uevents of android0 since the last time.
    Texts states() {
        Texts states;
        board.act([&] {
            for (const Json& event : board.trace().after(seen, {{"kind", "uevent"}})) {
                const auto text = event.at("text").get<std::string>();
                const std::size_t at = text.find("USB_STATE=");
                if (at != std::string::npos) {
                    EXPECT_EQ(text.rfind("change@/devices/virtual/android_usb/android0\n", 0), 0U);
                    states.push_back(text.substr(at + 10));
                }
            }
            EXPECT_TRUE(board.trace().after(0, {{"kind", "bug"}}).empty());
            seen = board.trace().last();
        });
        return states;
    }
    std::uint64_t seen = 0;
};

// --- the program ---

inline int error_of(int result) {
    return result < 0 ? errno : 0;
}

inline int put(const std::string& path, const std::string& text) {
    const UniqueFd file = plain::open(path, O_WRONLY);
    return file ? error_of(static_cast<int>(write(file.get(), text.data(), text.size()))) : errno;
}

inline int make(const std::string& path) {
    return error_of(mkdir(path.c_str(), 0755));
}

inline int unmake(const std::string& path) {
    return error_of(rmdir(path.c_str()));
}

inline int link_to(const std::string& target, const std::string& path) {
    return error_of(symlink(target.c_str(), path.c_str()));
}

inline const std::string kKeyboardDescriptor("\x05\x01\x00\xc0", 4);

// A keyboard of eight bytes a report, linked and not bound, and perhaps a disk.
inline void compose(bool with_disk) {
    const std::string function = "g1/functions/hid.keys";
    for (const char* path : {"g1", "g1/strings/0x409", "g1/configs/c.1", "g1/functions/hid.keys"}) {
        EXPECT_EQ(make(path), 0) << path;
    }
    const std::pair<std::string, std::string> settings[] = {
        {"g1/idVendor", "0x1d6b\n"},
        {"g1/idProduct", "258"},
        {"g1/strings/0x409/product", "D\xC3\xA9j\xC3\xA0\n"},
        {"g1/configs/c.1/MaxPower", "120\n"},
        {function + "/report_desc", kKeyboardDescriptor},
        {function + "/report_length", "8"},
        {function + "/protocol", "1"},
        {function + "/subclass", "1"}};
    for (const auto& [path, text] : settings) {
        EXPECT_EQ(put(path, text), 0) << path;
    }
    EXPECT_EQ(link_to(function, "g1/configs/c.1/hid.keys"), 0);
    if (with_disk) {
        EXPECT_EQ(make("g1/functions/mtp.disk"), 0);
        EXPECT_EQ(link_to("g1/functions/mtp.disk", "g1/configs/c.1/mtp.disk"), 0);
    }
}

} // namespace vb::gadget_test
