#include "commands/otg_port.h"
#include "commands/mcu.h"

#include <hal_bsp/hid.h>
#include <hal_bsp/mcu.h>

#include <fmt/format.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

namespace halctl::port {

namespace {

namespace fs = std::filesystem;

constexpr char kGadgetRoot[] = "/sys/kernel/config/usb_gadget";
constexpr char kGadget[] = "/sys/kernel/config/usb_gadget/g1";
constexpr char kControllers[] = "/sys/class/udc";
constexpr char kMailboxes[] = "/sys/devices/virtual/android_usb/android0";

std::string line_of(const fs::path& file) {
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    return line;
}

std::optional<int> mailbox(const char* name) {
    std::ifstream in(fs::path(kMailboxes) / name);
    int value = 0;
    return in >> value ? std::optional(value) : std::nullopt;
}

std::vector<std::string> functions_in(const fs::path& configuration) {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(configuration, ignored)) {
        if (entry.is_symlink(ignored)) {
            names.push_back(entry.path().filename());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

// --- report descriptors ---

using Bytes = std::vector<std::uint8_t>;

constexpr std::ptrdiff_t kReportIdAt = 7;

std::optional<Bytes> descriptor_of(const char* function) {
    std::ifstream in(fs::path(kGadget) / "functions" / function / "report_desc", std::ios::binary);
    return in ? std::optional(Bytes(std::istreambuf_iterator<char>(in), {})) : std::nullopt;
}

// The report ID of the device whose descriptor begins like `ours`, in `all` from `at` on; else 0.
template <std::size_t size>
std::uint8_t id_in(const Bytes& all, std::ptrdiff_t at, const std::uint8_t (&ours)[size]) {
    if (all.size() < static_cast<std::size_t>(at) + size) {
        return 0;
    }
    const auto begin = all.begin() + at;
    return std::equal(begin, begin + kReportIdAt, ours) ? begin[kReportIdAt] : 0;
}

UsbIds ids_of(const State& state) {
    const auto vendor = whole_number(state.vendor);
    const auto product = whole_number(state.product);
    const bool has_some = vendor.value_or(0) != 0 && product.has_value();
    return has_some
               ? UsbIds{static_cast<std::uint16_t>(*vendor), static_cast<std::uint16_t>(*product)}
               : UsbIds{};
}

EventPipe::Nanoseconds end_of(double seconds) {
    return EventPipe::now() + static_cast<EventPipe::Nanoseconds>(seconds * 1e9);
}

bool is_mcu(const usb::Carrier& carrier) {
    return &carrier == &usb::kMcuBridge;
}

} // namespace

State look() {
    State state;
    const fs::path gadget(kGadget);
    state.vendor = line_of(gadget / "idVendor");
    state.product = line_of(gadget / "idProduct");
    state.controller = line_of(gadget / "UDC");
    if (!state.controller.empty()) {
        state.connection = line_of(fs::path(kControllers) / state.controller / "state");
    }
    state.functions = functions_in(gadget / "configs/c.1");
    state.usbsta = mailbox("usbsta");
    state.hidsee = mailbox("hidsee");
    state.masssee = mailbox("masssee");
    return state;
}

std::optional<int> missing(const Tool& tool, const std::string& what, const usb::Carrier& carrier) {
    if (is_mcu(carrier)) {
        return mcu::missing(tool, what);
    }
    for (const char* place : {kGadgetRoot, kControllers, kMailboxes}) {
        if (access(place, R_OK) != 0) {
            return tool.cannot_open(what, place, errno);
        }
    }
    std::error_code ignored;
    if (fs::is_empty(kControllers, ignored)) {
        return tool.cannot_open(what, "a USB device controller", ENODEV);
    }
    return std::nullopt;
}

ReportIds report_ids(const usb::Carrier& carrier) {
    ReportIds ids;
    if (is_mcu(carrier)) {
        const auto& info = usb_fun_info_default;
        ids = {info[4], info[6], info[5], info[7]};
        return ids;
    }
    if (const auto both = descriptor_of("hid.kbam0")) {
        ids.keyboard = id_in(*both, 0, kb_report_desc);
        ids.absolute_mouse =
            id_in(*both, ids.keyboard != 0 ? sizeof kb_report_desc : 0, am_report_desc);
    }
    if (const auto mouse = descriptor_of("hid.rm0")) {
        ids.relative_mouse = id_in(*mouse, 0, rm_report_desc);
    }
    if (const auto screen = descriptor_of("hid.ts0")) {
        ids.touch_screen = id_in(*screen, 0, ts_report_desc);
    }
    return ids;
}

UsbIds ids_via(std::string_view way) {
    const auto& info = usb_fun_info_default;
    return is_mcu(usb::carrier_via(way))
               ? UsbIds{static_cast<std::uint16_t>(info[0] | info[1] << 8),
                        static_cast<std::uint16_t>(info[2] | info[3] << 8)}
               : UsbIds{};
}

Parameter& add_way(Command& command, std::string& way) {
    way = usb::kWays[0];
    return command.word("--via WAY", way, "By way of the SoC's own port, or of the MCU's",
                        {std::begin(usb::kWays), std::end(usb::kWays)});
}

Parameter& add_timeout(Command& command, double& seconds) {
    return command.real("--timeout SECONDS", seconds,
                        "Wait so long for a host to configure the port", 0.001, 1e6);
}

// --- Port ---

Port::Port(Tool& tool, std::string what, const usb::Carrier& carrier)
    : tool_(tool),
      what_(std::move(what)),
      carrier_(carrier),
      was_up_(!is_mcu(carrier) && !look().controller.empty()) {
    // It warns of each state that it passes through.
    tool_.library_log().keep_warnings_aside();
}

Port::~Port() {
    if (touched_) {
        carrier_.close(was_up_);
    }
}

std::optional<int> Port::bring_up(const std::optional<UsbIds>& ids) {
    if (const auto status = missing(tool_, what_, carrier_)) {
        return status;
    }
    touched_ = true;
    const UsbIds had = is_mcu(carrier_) ? ids_via("mcu") : ids_of(look());
    const UsbIds wanted = ids.value_or(had);
    const hal_otg_info gadget{0, wanted.product, wanted.vendor};
    const ReportIds reports = report_ids(carrier_);
    const hal_hid_info devices{1, reports.keyboard,       1, reports.touch_screen,
                               1, reports.relative_mouse, 1, reports.absolute_mouse};
    std::int32_t result = 0;
    const auto status = run([&] {
        result = carrier_.open(gadget, nullptr);
        if (result == 0) {
            result = carrier_.add_input(devices, nullptr);
        }
    });
    if (status) {
        return status;
    }
    if (is_mcu(carrier_) && result != 0) {
        return tool_.failed(what_, "the bridge disk does not open, or the MCU does not answer");
    }
    if (!is_mcu(carrier_) && (result != 0 || look().controller.empty())) {
        return tool_.failed(what_, "the gadget cannot be made, or bound to a controller");
    }
    return std::nullopt;
}

bool Port::pause_interrupted() {
    constexpr double kPause = 0.02;
    carrier_.look_after();
    return watch_.run({0, kPause}, [](Done) { return true; }) == WatchEnd::signal;
}

std::optional<int> Port::wait_until(const std::function<bool()>& is_so, double seconds,
                                    const std::string& otherwise) {
    const auto limit = end_of(seconds);
    while (!is_so()) {
        if (EventPipe::now() >= limit) {
            return tool_.failed(what_, otherwise);
        }
        if (pause_interrupted()) {
            return tool_.interrupted(what_, watch_.signal());
        }
    }
    return std::nullopt;
}

std::optional<int> Port::wait_for_host(double seconds) {
    return wait_until(carrier_.takes_reports, seconds,
                      fmt::format("no host has configured the port within {} s", seconds));
}

bool Port::waited_for_host() {
    return waited_until(carrier_.takes_reports);
}

bool Port::waited_until(const std::function<bool()>& is_so) {
    while (!is_so()) {
        if (pause_interrupted()) {
            return false;
        }
    }
    return true;
}

bool Port::waited_for(const std::function<bool()>& is_so, double seconds) {
    const auto limit = end_of(seconds);
    while (!is_so() && EventPipe::now() < limit) {
        pause_interrupted();
    }
    return is_so();
}

std::optional<int> Port::run(const std::function<void()>& call) {
    return ran(call) ? std::nullopt : std::optional(tool_.interrupted(what_, watch_.signal()));
}

bool Port::ran(const std::function<void()>& call) {
    std::thread caller([&] {
        call();
        watch_.post({});
    });
    const auto done = [](Done) { return true; };
    const bool interrupted = watch_.run({1, 0}, done) == WatchEnd::signal;
    if (interrupted) {
        stopping_ = true;
        if (watch_.run({1, 0.5}, done) != WatchEnd::count) {
            pthread_cancel(caller.native_handle());
        }
    }
    caller.join();
    return !interrupted;
}

} // namespace halctl::port
