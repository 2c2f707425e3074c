// The whole USB device port on a board: the library at one end of the cable, a host at the other.
#pragma once

#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <array>
#include <atomic>
#include <cstdio>
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

using Lines = std::vector<std::string>;

inline int load_field(const int32_t& field) {
    return std::atomic_ref(const_cast<int32_t&>(field)).load();
}

// What each thread logged: "LEVEL text".
class ThreadTap {
  public:
    static ThreadTap& instance() {
        // Never destroyed: the library's threads log to the end of the process.
        static ThreadTap& tap = *new ThreadTap; // NOLINT
        return tap;
    }
    Lines of(const std::function<bool(pid_t)>& wanted) {
        const std::lock_guard guard(mutex_);
        Lines lines;
        for (const auto& [thread, line] : lines_) {
            if (wanted(thread)) {
                lines.push_back(line);
            }
        }
        return lines;
    }
    // Of the thread that logged `first`, from there on.
    Lines from(const std::string& first) {
        const std::lock_guard guard(mutex_);
        Lines lines;
        pid_t thread = 0;
        for (const auto& [its_thread, line] : lines_) {
            thread = thread == 0 && line == first ? its_thread : thread;
            if (thread == its_thread) {
                lines.push_back(line);
            }
        }
        return lines;
    }
    void forget() {
        const std::lock_guard guard(mutex_);
        lines_.clear();
    }

  private:
    ThreadTap() { log_add_callback(&ThreadTap::sink, this, HAL_LOG_TRACE); }

    static void sink(log_event* event) {
        std::array<char, 512> text{};
        std::vsnprintf(text.data(), text.size(), event->fmt, event->ap);
        auto& tap = *static_cast<ThreadTap*>(event->udata);
        const std::lock_guard guard(tap.mutex_);
        if (std::string(event->file) == "hal_otg") {
            tap.lines_.emplace_back(gettid(), std::string(log_level_string(event->level)) + " " +
                                                  text.data());
        }
    }

    std::mutex mutex_;
    std::vector<std::pair<pid_t, std::string>> lines_;
};

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

    // What this thread logged, and what others did.
    static Lines mine() {
        return ThreadTap::instance().of([](pid_t thread) { return thread == gettid(); });
    }
    static bool says(const std::string& line) {
        return comes_true([&] {
            return testing::Value(ThreadTap::instance().of([](pid_t) { return true; }),
                                  testing::Contains(line));
        });
    }
    // The log of the thread that said `first`, once somebody has said `last`.
    static Lines story(const std::string& first, const std::string& last) {
        EXPECT_TRUE(says(last)) << last;
        return ThreadTap::instance().from(first);
    }

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
