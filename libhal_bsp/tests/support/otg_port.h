// The whole USB device port on a board: the library at one end of the cable, a host at the other.
#pragma once

#include "tests/support/on_board.h"
#include "tests/support/thread_tap.h"

#include <hal_bsp/hal_bsp.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>

namespace hal_test::otg {

inline constexpr char kG1[] = "/sys/kernel/config/usb_gadget/g1/";
inline constexpr char kNotNormal[] = "ERROR hid_fun_state is not FUNCTION_RUN_STATE_NORMAL\n";
inline constexpr hal_otg_info kIds{0, 0x0104, 0x1D6B};
// Keyboard, touch screen, relative and absolute mouse.
inline constexpr hal_hid_info kAllDevices{1, 1, 1, 0x10, 1, 2, 1, 2};

inline int load_field(const int32_t& field) {
    return std::atomic_ref(const_cast<int32_t&>(field)).load();
}

class Port : public OnBoard {
  protected:
    void SetUp() override {
        OnBoard::SetUp();
        threads_before_ = threads();
        set_speed(20);
        ask("host.plug");
        ask("host.configure", {{"when", "after"}});
        ask("host.forget");
        ThreadTap::instance().forget();
        forget_trace();
    }
    // Whatever a test left up is taken down, and leaves nothing behind.
    void TearDown() override {
        set_speed(100);
        std::atomic_ref(hal_hid_prv.thread_state).store(0);
        std::atomic_ref(hal_mass_prv.thread_state).store(0);
        std::atomic_ref(hal_otg_prv.thread_state).store(0);
        const char* const take_down = "cd /sys/kernel/config/usb_gadget/g1 2>/dev/null || exit 0\n"
                                      "echo none 2>/dev/null > UDC\n" // it may be unbound
                                      "rm -f configs/c.1/*.*0\n"
                                      "rmdir functions/* configs/c.1/strings/0x409 configs/c.1 "
                                      "strings/0x409 2>/dev/null\n"
                                      "cd .. && rmdir g1";
        EXPECT_EQ(std::system(take_down), 0);
        expect_threads(threads_before_);
        OnBoard::TearDown();
    }

    double seconds() { return ask("clock.show").at("seconds").get<double>(); }
    // How much board time a deed takes.
    template <typename Deed>
    double lasts(const Deed& deed) {
        const double start = seconds();
        deed();
        return seconds() - start;
    }
    static std::string content(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static std::string in_gadget(const std::string& name) { return content(kG1 + name); }
    static std::string mailbox(const std::string& name) {
        return content("/sys/devices/virtual/android_usb/android0/" + name);
    }
    static bool exists(const std::string& name) { return access((kG1 + name).c_str(), F_OK) == 0; }

    std::size_t binds() { return events({{"kind", "usb"}, {"state", "bound"}}).size(); }
    bool host_is(const std::string& state) {
        return comes_true([&] { return ask("host.show").value("state", "") == state; });
    }
    static bool devices_are_open(bool open, std::initializer_list<unsigned> slots = {0, 1, 2}) {
        return comes_true([&] {
            for (const unsigned slot : slots) {
                if ((load_field(hal_hid_prv.hid_fd[slot]) >= 0) != open) {
                    return false;
                }
            }
            return true;
        });
    }
    void bring_up(const hal_hid_info& devices = kAllDevices, hal_hid_callback reports = nullptr) {
        ASSERT_EQ(hal_otg_init(&kIds, 1, nullptr), 0);
        ASSERT_EQ(hal_hid_init(&devices, reports), 0);
        ASSERT_TRUE(devices_are_open(true, {0}));
    }

  private:
    std::size_t threads_before_ = 0;
};

} // namespace hal_test::otg
