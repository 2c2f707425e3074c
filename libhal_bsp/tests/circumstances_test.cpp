// Every call of the library that does something, in circumstances that are not its doing: a stream
// of signals without SA_RESTART, as a profiler sends them, and a thread with a small stack.

#include "tests/support/buses.h"
#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <fmt/format.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>

namespace hal_test::circumstances {
namespace {

using Bytes = std::array<std::uint8_t, 16>;

constexpr char kImage[] = "/dev/shm/circumstances.img";
constexpr char kPayload[] = "payload";

std::string hex(const Bytes& bytes) {
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

std::string setting(int32_t (*get)(const char*, char*), const char* name) {
    std::array<char, HAL_FW_VALUE_SIZE> value{};
    const int32_t result = get(name, value.data());
    return fmt::format("{} {}", result, value.data());
}

void ignore_tbar(const std::uint8_t*) {}
void ignore_interrupt(int) {}

std::string results(std::initializer_list<int> in_their_order) {
    return fmt::format("{}", fmt::join(in_their_order, " "));
}

struct Call {
    const char* name;
    std::string (*make)(); // what comes of it, as a text
};

// What they come to is the same each time.
// NOLINTNEXTLINE(cppcoreguidelines-interfaces-global-init): fmt's tables are constants
const Call kCalls[] = {
    {"log",
     [] {
         log_log(HAL_LOG_ERROR, "circumstances", 1, "%s %d %f", "text", 1, 2.5);
         return std::string();
     }},
    {"gpio",
     [] {
         const hal_gpio_cfg cfg{9, "nine", HAL_GPIO_OUTPUT, 0, 1, 0};
         return results({hal_gpio_config(&cfg), hal_gpio_set_value(9, 1), hal_gpio_get_value(9),
                         hal_gpio_deconfig(9)});
     }},
    {"gpio_listener",
     [] {
         const int32_t result = hal_gpio_init(nullptr);
         hal_gpio_deinit();
         return fmt::format("{}", result);
     }},
    {"sysgpio",
     [] {
         return results({util_gpio_set(33, 1), util_gpio_get(34)});
     }},
    {"i2c",
     [] {
         Bytes data{};
         const std::uint8_t reg = 0;
         const int result = i2c_readnumbytes(6, 0x6A << 1, &reg, 1, data.data(), 16);
         return fmt::format("{} {}", result, hex(data));
     }},
    {"fpga",
     [] {
         Bytes data{1, 2, 3};
         const int put = hal_fpga_write(0, 0x40, 16, data.data());
         const int got = hal_fpga_read(0, 0x40, 16, data.data());
         return fmt::format("{} {} {}", put, got, hex(data));
     }},
    {"fpga_listener",
     [] {
         const int result = hal_fpga_poll_init(ignore_interrupt);
         hal_fpga_poll_deinit();
         return fmt::format("{}", result);
     }},
    {"delay", [] { return fmt::format("{}", systick_delayms(3)); }},
    {"oled",
     [] {
         oled_string_req req{};
         req.data = "Hello";
         req.data_type = HAL_OLED_CHARS;
         req.len = 5;
         return results({hal_oled_clear(0), hal_oled_show_string(0, &req)});
     }},
    {"led",
     [] {
         const led_ctl_req request{3, 0, 1, 0, 0, 255, 0xFFFFFF};
         return fmt::format("{}", hal_keypad_led_ctl_v2(&request));
     }},
    {"tbar",
     [] {
         hal_tbar* tbar = hal_tbar_init(ignore_tbar, 1);
         Bytes data{};
         const int result = tbar == nullptr ? -9 : hal_tbar_read_data(tbar, data.data());
         hal_tbar_deinit(tbar);
         return fmt::format("{} {}", result, hex(data));
     }},
    {"ethlink",
     [] {
         std::uint16_t status = 77;
         const int32_t result = hal_get_ethlink_status_byname("eth0", &status);
         return fmt::format("{} {}", result, status);
     }},
    {"boardtemp",
     [] {
         std::int32_t hundredths = -1;
         const int32_t result = hal_get_boardtemp(&hundredths);
         return fmt::format("{} {}", result, hundredths != -1);
     }},
    {"backlight",
     [] {
         backlight_req request{{0, 0}, 50};
         return fmt::format("{}", operation_set_backlight(&request));
     }},
    {"fans",
     [] {
         const fan_ctl_req request{0, {40, 0, 0}};
         return fmt::format("{}", hal_fans_set_speed(&request));
     }},
    {"absystem",
     [] {
         return results({hal_avb_init(), hal_avb_set_retry(1, 2)});
     }},
    {"fwenv", [] { return setting(hal_fw_printenv, "bootdelay"); }},
    {"sysconf",
     [] {
         const int32_t result = hal_sysconfig_set("circumstance", "fine");
         return fmt::format("{} {}", result, setting(hal_sysconfig_get, "circumstance"));
     }},
    {"vendor",
     [] {
         std::array<std::uint8_t, HAL_VENDOR_ITEM_SIZE> item{1, 2, 3};
         return results(
             {hal_vendor_write(5, item.data(), 3), hal_vendor_read(5, item.data(), 3), item[2]});
     }},
    {"md5sum",
     [] {
         Bytes digest{};
         const int32_t result = checkdata(kImage, digest.data(), 0, 8);
         return fmt::format("{} {}", result, hex(digest));
     }},
    {"partition_update",
     [] {
         std::ifstream file(kImage, std::ios::binary | std::ios::ate);
         return fmt::format("{}", hal_partition_update(kImage, "system", 0,
                                                       static_cast<std::uint32_t>(file.tellg())));
     }},
    {"partition_backup", [] { return fmt::format("{}", zeda_partition_backup("boot")); }},
    {"usb_reports",
     [] {
         const hal_hid_data report{9, 0, nullptr};
         const hal_mass_reply reply{9, 0, nullptr, 1};
         return results({hal_hid_write(&report), hal_mass_write(&reply), check_umount_flag()});
     }},
    {"ptp",
     [] {
         gen_sys_param p{};
         std::strcpy(p.eth_name, "eth0");
         return results({ptp_switch_on(&p), ptp_switch_off(&p)});
     }},
};

// An image with the digest of "payload" in its header.
void make_image() {
    std::ofstream file(kImage, std::ios::binary);
    const std::string json = R"({"md5":"321c3cf486ed509164edec1e1981fec8"})";
    file << HAL_OEM_MARKER << static_cast<char>(json.size()) << std::string(3, '\0') << json
         << kPayload;
}

class Circumstances : public OnBoard {
  protected:
    void SetUp() override {
        open_buses();
        OnBoard::SetUp();
        make_image();
    }
    void TearDown() override {
        std::remove(kImage);
        OnBoard::TearDown();
    }
};

// A signal to the whole process every so often, while it lives; its handler restarts no call.
class Interrupted {
  public:
    Interrupted() {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, &before_);
        const itimerval often{{0, 300}, {0, 300}};
        setitimer(ITIMER_REAL, &often, nullptr);
    }
    ~Interrupted() {
        const itimerval never{};
        setitimer(ITIMER_REAL, &never, nullptr);
        sigaction(SIGALRM, &before_, nullptr);
    }
    Interrupted(const Interrupted&) = delete;
    Interrupted& operator=(const Interrupted&) = delete;

  private:
    struct sigaction before_ {};
};

TEST_F(Circumstances, SignalsChangeNothing) {
    for (const Call& call : kCalls) {
        const std::string undisturbed = call.make();
        for (int i = 0; i < 4; ++i) {
            std::string disturbed;
            {
                const Interrupted interrupted;
                disturbed = call.make();
            }
            ASSERT_EQ(disturbed, undisturbed) << call.name;
        }
    }
}

// A stack of a thread that shows how much of it was used.
class Stack {
  public:
    static constexpr std::size_t kSize = std::size_t{256} * 1024;

    Stack()
        : memory_(static_cast<char*>(mmap(nullptr, kSize, PROT_READ | PROT_WRITE,
                                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0))) {
        std::memset(memory_, kUnused, kSize);
    }
    ~Stack() { munmap(memory_, kSize); }
    Stack(const Stack&) = delete;
    Stack& operator=(const Stack&) = delete;

    void run(const std::function<void()>& work) {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstack(&attributes, memory_, kSize);
        pthread_t thread{};
        const auto body = [](void* argument) -> void* {
            (*static_cast<const std::function<void()>*>(argument))();
            return nullptr;
        };
        ASSERT_EQ(
            pthread_create(&thread, &attributes, body, const_cast<std::function<void()>*>(&work)),
            0);
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attributes);
    }
    std::size_t used() const {
        const char* end = memory_ + kSize;
        return static_cast<std::size_t>(
            end - std::find_if(memory_, memory_ + kSize, [](char c) { return c != kUnused; }));
    }

  private:
    static constexpr char kUnused = '\x5A';
    char* memory_;
};

TEST_F(Circumstances, SixteenKilobytesOfStackAreEnough) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's frames are no measure";
#endif
    constexpr std::size_t kEnough = std::size_t{16} * 1024;
    Stack idle;
    idle.run([] {});
    for (const Call& call : kCalls) {
        call.make(); // what is done once, such as binding its symbols, is done
        Stack stack;
        stack.run([&] { call.make(); });
        EXPECT_LE(stack.used() - idle.used(), kEnough) << call.name;
    }
}

TEST_F(Circumstances, AnApplicationsOwnNamesAndItsUnloadingTakeNothingAway) {
    for (const std::string binding : {"lazy", "now"}) {
        forget_trace();
        const std::string probe = HAL_APPLICATION_PROBE " " HAL_LIBRARY " " HAL_CHIP_LIBRARY " " +
                                  binding + " 2>/dev/null";
        std::array<char, 4096> text{};
        FILE* const output = popen(probe.c_str(), "r");
        const std::size_t length = std::fread(text.data(), 1, text.size(), output);
        EXPECT_EQ(pclose(output), 0);
        EXPECT_EQ(std::string(text.data(), length),
                  "1 1 /dev/block/by-name/system_b\n-1 0\n42\n"
                  "gsv2002_IcRegister start\nthe application's chip library\n"
                  "gsv2002_IcRegister over\n24\n0\nstill here\n")
            << binding;
        EXPECT_THAT(logged("ERROR"),
                    testing::UnorderedElementsAre(
                        "no chip library: this process has no gsv2001_IcRegister\n",
                        "no chip library: this process has no gsv20xx_IcRegister\n"));
    }
}

} // namespace
} // namespace hal_test::circumstances
