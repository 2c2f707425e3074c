// The HID devices in the gadget: their functions, descriptors and nodes.
#include "hal/hal_otg/hid.h"

#include <hal_bsp/timing.h>

#include "hal/hal_otg/gadget.h"
#include "support/attribute.h"
#include "support/log.h"
#include "support/transfer.h"
#include "support/wait.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <span>

hal_hid_state hal_hid_prv;

static_assert(sizeof(hal_hid_info) == 8 && offsetof(hal_hid_info, ts_on) == 2 &&
              offsetof(hal_hid_info, rm_on) == 4 && offsetof(hal_hid_info, am_on) == 6);
static_assert(offsetof(hal_hid_data, len) == 4 && offsetof(hal_hid_data, data) == 8 &&
              sizeof(hal_hid_data) == 16);
static_assert(offsetof(hal_hid_state, hid_fd) == 4 && offsetof(hal_hid_state, hidg_minor) == 24 &&
              offsetof(hal_hid_state, hid_cb) == 32 && offsetof(hal_hid_state, listen_tid) == 40 &&
              sizeof(hal_hid_state) == 48);

namespace {

using namespace hal::otg;
using namespace std::chrono_literals;
using Descriptor = std::span<const uint8_t>;

constexpr int8_t kConfigured = 1; // until the number of the node is known
constexpr std::size_t kReportIdAt = 7;

// A function of the gadget, and how the module speaks of it.
struct Function {
    const char* name;
    const char* starting;    // INFO
    const char* mkdir_error; // ERROR, a format that takes the reason
    const char* settings;    // a command, a format that takes the folder three times
};

constexpr Function kKeyboardMouse{"hid.kbam0", "kbam is on,init kbam\n", "make kb fun error,%s\n",
                                  "echo 1 > %s/protocol;\t\t\t\techo 1 > %s/subclass;"
                                  "\t\t\t\techo 9 > %s/report_length;"};
constexpr Function kRelativeMouse{"hid.rm0", "rm is on,init rm\n", "make rm fun error,%s\n",
                                  "echo 2 > %s/protocol;\t\t\t\techo 1 > %s/subclass;"
                                  "\t\t\t\techo 5 > %s/report_length;"};
constexpr Function kTouchScreen{"hid.ts0", "ts is on,init ts\n", "make ts fun error,%s\n",
                                "echo 0 > %s/protocol;\t\t\t\techo 0 > %s/subclass;"
                                "\t\t\t\techo 64 > %s/report_length;"};

// A function's node, and how the module speaks of it.
struct Node {
    const char* attribute; // "major:minor"
    const char* cat_error; // ERROR
    const char* none;      // INFO
    const char* found;     // INFO, a format that takes the minor number
    const char* stored;    // INFO
};

// By slot.
constexpr std::array<Node, 3> kNodes{{
    {"/sys/kernel/config/usb_gadget/g1/functions/hid.kbam0/dev", "cat kbam0 dev error\n",
     "kbam0 no dev\n", "kbam id is %d\n", "fix kb id\n"},
    {"/sys/kernel/config/usb_gadget/g1/functions/hid.ts0/dev", "cat ts0 dev error\n", "ts no dev\n",
     "ts id is %d\n", "fix ts id\n"},
    {"/sys/kernel/config/usb_gadget/g1/functions/hid.rm0/dev", "cat rm0 dev error\n",
     "rm0 no dev\n", "rm id is %d\n", "fix rm id\n"},
}};

std::atomic_ref<int8_t> minor_of(std::size_t slot) {
    return std::atomic_ref(hal_hid_prv.hidg_minor[slot]);
}

// --- a function ---

void write_descriptor(const char* folder, Descriptor descriptor) {
    const Path path("%s/report_desc", folder);
    const hal::Fd file = hal::open_fd(path.text(), O_RDWR);
    if (!file) {
        HAL_LOG(HAL_LOG_ERROR, "open %s error\n", path.text());
        return;
    }
    hal::write_some(file.get(), descriptor.data(), descriptor.size());
}

// Makes the function's folder and links it into the configuration, where they are missing. A folder
// that is there has its settings, and `descriptor` is not asked.
template <typename MakeDescriptor>
bool add_function(const Function& function, MakeDescriptor make_descriptor) {
    HAL_LOG(HAL_LOG_INFO, "%s", function.starting);
    const Path folder("%s/%s", kFunctions, function.name);
    if (is_dir_exist(folder.text()) == 0) {
        if (!hal::run_piped(CommandLine("mkdir %s", folder.text()))) {
            hal::Caller(kModule).log(HAL_LOG_ERROR, function.mkdir_error, std::strerror(errno));
            return false;
        }
        make_descriptor([&](Descriptor bytes) { write_descriptor(folder.text(), bytes); });
        hal::run_piped(CommandLine(function.settings, folder.text(), folder.text(), folder.text()));
    }
    const Path link("%s/%s", kConfiguration, function.name);
    if (is_dir_exist(link.text()) == 0) {
        hal::run_piped(CommandLine("ln -s %s %s", folder.text(), kConfiguration));
    }
    return true;
}

bool add_keyboard_mouse(const hal_hid_info& info) {
    return add_function(kKeyboardMouse, [&](auto write) {
        std::array<uint8_t, sizeof kb_report_desc + sizeof am_report_desc> both{};
        auto end = both.begin();
        if (info.kb_on != 0) {
            kb_report_desc[kReportIdAt] = info.kb_id;
            end = std::copy(std::begin(kb_report_desc), std::end(kb_report_desc), end);
        }
        if (info.am_on != 0) {
            am_report_desc[kReportIdAt] = info.am_id;
            end = std::copy(std::begin(am_report_desc), std::end(am_report_desc), end);
        }
        write(Descriptor(both.begin(), end));
    });
}

bool add_device(const Function& function, std::span<uint8_t> descriptor, uint8_t id) {
    return add_function(function, [&](auto write) {
        descriptor[kReportIdAt] = id;
        write(descriptor);
    });
}

bool add_devices(const hal_hid_info& info) {
    if (info.kb_on != 0 || info.am_on != 0) {
        if (!add_keyboard_mouse(info)) {
            return false;
        }
        minor_of(HAL_HID_KEYBOARD_MOUSE) = kConfigured;
    }
    if (info.rm_on != 0) {
        if (!add_device(kRelativeMouse, rm_report_desc, info.rm_id)) {
            return false;
        }
        minor_of(HAL_HID_RELATIVE_MOUSE) = kConfigured;
    }
    if (info.ts_on != 0) {
        if (!add_device(kTouchScreen, ts_report_desc, info.ts_id)) {
            return false;
        }
        minor_of(HAL_HID_TOUCH_SCREEN) = kConfigured;
    }
    return true;
}

// --- nodes ---

// The second number of "major:minor"; none that a slot cannot hold.
int minor_in(const char* text) {
    const char* const colon = std::strchr(text, ':');
    if (colon == nullptr || std::isdigit(static_cast<unsigned char>(colon[1])) == 0) {
        return kNotConfigured;
    }
    return hal::number_in(colon + 1);
}

int read_minor(const Node& node) {
    if (is_dir_exist(node.attribute) == 0) {
        return kNotConfigured;
    }
    hal::CommandOutput output(CommandLine("cat %s", node.attribute));
    if (!output) {
        HAL_LOG(HAL_LOG_ERROR, "%s", node.cat_error);
        return kNotConfigured;
    }
    std::array<char, 20> device{};
    if (!output.last_line(device)) {
        HAL_LOG(HAL_LOG_INFO, "%s", node.none);
        return kNotConfigured;
    }
    HAL_LOG(HAL_LOG_INFO, "dev is %s\n", device.data());
    const int minor = minor_in(device.data());
    hal::Caller(kModule).log(HAL_LOG_INFO, node.found, minor);
    return minor;
}

void hid_fix_dev_ids() {
    std::array<int, kNodes.size()> minors{};
    std::transform(kNodes.begin(), kNodes.end(), minors.begin(), read_minor);
    for (std::size_t slot = 0; slot < minors.size(); ++slot) {
        if (minor_of(slot) == kConfigured) {
            HAL_LOG(HAL_LOG_INFO, "%s", kNodes[slot].stored);
            // A node that a slot has no number for cannot be opened.
            minor_of(slot) =
                minors[slot] <= SCHAR_MAX ? static_cast<int8_t>(minors[slot]) : kNotConfigured;
        }
    }
    for (std::size_t slot = 0; slot < kHidNodes; ++slot) {
        HAL_LOG(HAL_LOG_INFO, "%d ", minor_of(slot).load());
    }
    HAL_LOG(HAL_LOG_INFO, "\n");
}

void quiesce() {
    HAL_LOG(HAL_LOG_INFO, "set hidsee to 0\n");
    set_hidsee(FUNCTION_RUN_STATE_STOP);
    hal::rest(500ms);
    set_masssee(FUNCTION_RUN_STATE_HANGUP);
    hal::rest(1s);
    HAL_LOG(HAL_LOG_INFO, "set udc to 0\n");
    set_udc(kUnbind, kUnwatched);
    hal::rest(2s);
}

} // namespace

int32_t hal_hid_init(const hal_hid_info* info, hal_hid_callback callback) {
    std::atomic_ref(hal_hid_prv.hid_cb).store(callback);
    for (std::size_t slot = 0; slot < HAL_HID_SLOTS; ++slot) {
        hid_fds.hide(hal_hid_prv.hid_fd[slot]); // the worker that has it open closes it
        minor_of(slot) = kNotConfigured;
    }
    if (info == nullptr || is_dir_exist(kFunctions) == 0 || is_dir_exist(kConfiguration) == 0) {
        return kNoPlace;
    }
    quiesce();
    if (!add_devices(*info)) {
        return kNoPlace;
    }
    hid_fix_dev_ids();
    set_hidsee(FUNCTION_RUN_STATE_HANGUP);
    set_udc(kBind, kWatched);
    hal::rest(1ms);
    udc_reconnect();
    return start_hid_worker();
}
