#include "models/gadget/controller.h"

#include "core/board.h"
#include "serve/attribute.h"

#include <utility>

namespace vb::gadget {

Controller::Controller(Board& board, AndroidUsb& android, std::string name, std::string socket)
    : board_(board), android_(android), name_(std::move(name)), socket_name_(std::move(socket)) {
    const std::string folder = "/sys/class/udc/" + name_;
    board.tree().put(folder + "/state", line_attribute([this] { return state(); }, nullptr));
    board.tree().put(folder + "/function", line_attribute([this] { return gadget_; }, nullptr));
}

const char* Controller::state() const {
    return name_of(device_ == nullptr ? DeviceState::not_attached : device_->state());
}

void Controller::trace(const char* event) {
    board_.trace().add("usb", {{"controller", name_}, {"gadget", gadget_}, {"state", event}});
}

void Controller::find_socket() {
    if (socket_ == nullptr && !socket_name_.empty()) {
        socket_ = board_.parts().find<usb::Socket>(socket_name_);
        if (socket_ != nullptr) {
            socket_->on_power([this](bool powered) { powered ? attach() : detach(); });
        }
    }
}

void Controller::connect(CompositeDevice& device, const std::string& gadget) {
    device_ = &device;
    gadget_ = gadget;
    device.on_state([this](DeviceState state) { follow(state); });
    trace("bound");
    find_socket();
    if (socket_ != nullptr && socket_->powered()) {
        attach();
    }
}

void Controller::disconnect() {
    detach();
    trace("unbound");
    std::exchange(device_, nullptr)->on_state(nullptr);
    gadget_.clear();
}

void Controller::attach() {
    if (device_ != nullptr && !attached_) {
        attached_ = true; // the host may begin at once
        device_->power(true);
        if (!socket_->attach(*device_)) { // somebody else is in it
            attached_ = false;
            device_->power(false);
        }
    }
}

void Controller::detach() {
    if (attached_) {
        attached_ = false;
        socket_->detach(*device_);
        device_->power(false);
    }
}

// What becomes of the device, as android0 tells it. A host that resets a device which it had
// configured takes it for a new one, and so does who listens.
void Controller::follow(DeviceState state) {
    trace(name_of(state));
    const bool woken = std::exchange(suspended_, state == DeviceState::suspended) &&
                       (state == DeviceState::addressed || state == DeviceState::configured);
    if (woken) {
        return;
    }
    const Connection before = connection_;
    switch (state) {
    case DeviceState::not_attached:
        connection_ = Connection::disconnected;
        break;
    case DeviceState::reset:
    case DeviceState::addressed:
        connection_ = Connection::connected;
        break;
    case DeviceState::configured:
        connection_ = Connection::configured;
        android_.report(connection_);
        return;
    case DeviceState::powered:
    case DeviceState::suspended:
        return;
    }
    if (state == DeviceState::reset && before == Connection::configured) {
        android_.report(Connection::disconnected);
    }
    if (connection_ != before) {
        android_.report(connection_);
    }
}

} // namespace vb::gadget
