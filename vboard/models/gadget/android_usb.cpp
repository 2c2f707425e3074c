#include "models/gadget/android_usb.h"

#include "core/board.h"
#include "models/gadget/tell.h"

#include <climits>
#include <memory>

namespace vb::gadget {

namespace {

constexpr char kAndroidDevice[] = "/devices/virtual/android_usb/android0";

} // namespace

AndroidUsb::AndroidUsb(Board& board) : board_(board) {
    add_number("usbsta", -1);
    add_number("hidsee", 0);
    add_number("masssee", 0);
    board.tree().put(std::string("/sys") + kAndroidDevice + "/state",
                     line_attribute([this] { return state(); }, nullptr));
}

void AndroidUsb::add_number(const std::string& name, int first) {
    const auto number = std::make_shared<int>(first);
    board_.tree().put(std::string("/sys") + kAndroidDevice + "/" + name,
                      line_attribute([number] { return std::to_string(*number); },
                                     [number](std::string_view text) {
                                         long value = 0;
                                         const int error = parse_integer(text, value);
                                         if (error != 0 || value < INT_MIN || value > INT_MAX) {
                                             return error != 0 ? error : ERANGE;
                                         }
                                         *number = static_cast<int>(value);
                                         return 0;
                                     }));
}

const char* AndroidUsb::state() const {
    static constexpr const char* kStates[] = {"DISCONNECTED", "CONNECTED", "CONFIGURED"};
    return kStates[static_cast<std::size_t>(connection_)];
}

void AndroidUsb::report(Connection connection) {
    connection_ = connection;
    tell(board_, "change", kAndroidDevice, {{"SUBSYSTEM", "android_usb"}, {"USB_STATE", state()}});
}

} // namespace vb::gadget
