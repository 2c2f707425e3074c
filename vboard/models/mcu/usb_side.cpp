#include "models/mcu/usb_side.h"

#include "core/board.h"

#include <fmt/format.h>

#include <utility>

namespace vb::mcu {

namespace {

constexpr std::uint8_t kEnumerated = 1;

} // namespace

UsbSide::UsbSide(Board& board, usb::Socket* socket, Uplink& uplink)
    : board_(board),
      socket_(socket),
      uplink_(uplink),
      texts_({"manufacturer", "product", "serialnumber"}) {
    fields_.version = 0x0100;
    texts_.make_directory("0x409");
    texts_.languages().front()->say(0, "Board");
    texts_.languages().front()->say(1, "MCU");
    texts_.languages().front()->say(2, "1");
    device_.on_state([this](gadget::DeviceState state) { follow(state); });
}

void UsbSide::trace(const Json& details) {
    board_.trace().add("mcu", details);
}

// --- packets ---

HidPort* UsbSide::port_of(std::uint32_t type) const {
    switch (type) {
    case kKeyboardReport:
    case kAbsoluteReport:
        return keyboard_.get();
    case kRelativeReport:
        return mouse_.get();
    case kTouchReport:
        return touch_.get();
    default:
        return nullptr;
    }
}

bool UsbSide::has_room_for(const Packet& packet) const {
    if (packet.type == kDiskReply) {
        return !disk_ || disk_->has_room();
    }
    const HidPort* port = port_of(packet.type);
    return port == nullptr || port->has_room();
}

void UsbSide::take(const Packet& packet) {
    switch (packet.type) {
    case kUsbControl:
        control(packet.value);
        break;
    case kFunctionInfo:
        set_info(packet.value);
        break;
    case kKeyboardReport:
    case kAbsoluteReport:
    case kRelativeReport:
    case kTouchReport:
        report(port_of(packet.type), packet.value);
        break;
    case kDiskReply:
        reply(packet);
        break;
    default:
        trace({{"state", "dropped"}, {"why", "unknown type"}});
        break;
    }
}

void UsbSide::report(HidPort* port, ByteView report) {
    if (port != nullptr && port->enabled()) {
        port->report(report);
    } else {
        trace({{"state", "dropped"}, {"why", "the host has not configured the device"}});
    }
}

void UsbSide::reply(const Packet& packet) {
    if (disk_ && disk_->enabled()) {
        disk_->reply(packet.value);
    } else {
        trace({{"state", "dropped"}, {"why", "the host has no disk of it"}});
    }
}

void UsbSide::set_info(ByteView value) {
    if (value.size() != sizeof info_) {
        trace({{"state", "dropped"}, {"why", "it is no function info"}});
        return;
    }
    info_ = record_from<FunctionInfo>(value);
}

void UsbSide::control(ByteView value) {
    if (value.size() < 2) {
        trace({{"state", "dropped"}, {"why", "it is no control"}});
        return;
    }
    detach();
    if (value[0] == 1) {
        attach(value[1] == 1);
    }
}

// --- the host ---

void UsbSide::attach(bool with_disk) {
    fields_.vendor = info_.vendor;
    fields_.product = info_.product;
    keyboard_ = std::make_shared<HidPort>(keyboard_and_absolute_mouse(info_), uplink_);
    mouse_ = std::make_shared<HidPort>(relative_mouse(info_), uplink_);
    touch_ = std::make_shared<HidPort>(touch_screen(info_), uplink_);
    disk_ = with_disk ? std::make_shared<DiskPort>(uplink_) : nullptr;
    gadget::Configuration configuration;
    configuration.options = {1, 0xC0, 100};
    configuration.functions = {keyboard_, mouse_, touch_};
    if (disk_) {
        configuration.functions.push_back(disk_);
    }
    device_.bind(texts_, {std::move(configuration)}, {&no_texts_});
    attached_ = true; // the host may begin at once
    trace({{"state", "attached"}, {"disk", with_disk}});
    device_.power(socket_ != nullptr && socket_->powered());
    if (socket_ != nullptr && !socket_->attach(device_)) {
        trace({{"state", "unseen"}, {"why", "another port has the host's socket"}});
        detach();
    }
}

void UsbSide::detach() {
    if (!attached_) {
        return;
    }
    if (socket_ != nullptr) {
        socket_->detach(device_);
    }
    device_.power(false);
    device_.unbind();
    attached_ = false;
    keyboard_ = mouse_ = touch_ = nullptr;
    disk_ = nullptr;
    trace({{"state", "detached"}});
    uplink_.go_on();
}

void UsbSide::reset() {
    detach();
    info_ = {};
}

void UsbSide::power(bool on) {
    if (attached_) {
        device_.power(on);
        uplink_.go_on();
    }
}

void UsbSide::take_more() {
    if (disk_) {
        disk_->take_more();
    }
}

void UsbSide::follow(gadget::DeviceState state) {
    if (state == gadget::DeviceState::configured) {
        uplink_.send(kEnumeration, {kEnumerated});
    }
}

Json UsbSide::show() const {
    return {{"attached", attached_},
            {"disk", disk_ != nullptr},
            {"usb", gadget::name_of(device_.state())},
            {"vendor", fmt::format("{:04x}", info_.vendor)},
            {"product", fmt::format("{:04x}", info_.product)},
            {"report_ids", {info_.keyboard, info_.relative, info_.absolute, info_.touch}}};
}

} // namespace vb::mcu
