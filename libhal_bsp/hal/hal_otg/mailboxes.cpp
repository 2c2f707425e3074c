// The attributes through which the module's threads tell each other how things stand.
#include "hal/hal_otg/gadget.h"
#include "support/attribute.h"
#include "support/log.h"

#include <hal_bsp/timing.h>

namespace {

using namespace hal::otg;

struct Mailbox {
    hal::Attribute attribute;
    const char* missing_at_writing = nullptr; // ERROR
};

constexpr Mailbox kUsbsta{{"/sys/devices/virtual/android_usb/android0/usbsta",
                           "usbsta dir is not exist--\n", "get_usbsta popen fp error\n"},
                          "usbsta dir is not exist!++\n"};
constexpr Mailbox kHidsee{{"/sys/devices/virtual/android_usb/android0/hidsee",
                           "hidsee dir is not exist--\n", "get_hidsee popen fp error\n"},
                          "hidsee dir is not exist!++\n"};
constexpr Mailbox kMasssee{{"/sys/devices/virtual/android_usb/android0/masssee",
                            "masssee dir is not exist--\n", "get_masssee popen fp error\n"},
                           "masssee dir is not exist!++\n"};

constexpr int kUnopenable = -1;
constexpr int kMissing = -3;

int read(const Mailbox& box) {
    const hal::AttributeText read = hal::read_attribute(kModule, box.attribute);
    switch (read.state) {
    case hal::AttributeState::kMissing:
        return kMissing;
    case hal::AttributeState::kUnopenable:
        return kUnopenable;
    default:
        return hal::number_in(read.text.data());
    }
}

int write(const Mailbox& box, int value) {
    if (is_dir_exist(box.attribute.path) == 0) {
        HAL_LOG(HAL_LOG_ERROR, "%s", box.missing_at_writing);
        return kMissing;
    }
    hal::run_piped(CommandLine("echo %d > %s", value, box.attribute.path));
    return kDone;
}

} // namespace

int hal::otg::get_usbsta() {
    const int value = read(kUsbsta);
    HAL_LOG(HAL_LOG_INFO, "get_usbsta usbsta_v is %d\n", value);
    return value;
}

int hal::otg::get_hidsee() {
    return read(kHidsee);
}

int hal::otg::get_masssee() {
    return read(kMasssee);
}

int hal::otg::set_usbsta(int value) {
    HAL_LOG(HAL_LOG_INFO, "set_usbsta usbsta is %d\n", value);
    return write(kUsbsta, value);
}

int hal::otg::set_hidsee(int value) {
    return write(kHidsee, value);
}

int hal::otg::set_masssee(int value) {
    return write(kMasssee, value);
}
