#include "models/gadget/composite_device.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vb::gadget {

const char* name_of(DeviceState state) {
    static constexpr std::array kNames = {"not attached", "powered",    "default",
                                          "addressed",    "configured", "suspended"};
    return kNames[static_cast<std::size_t>(state)];
}

// --- binding ---

int CompositeDevice::bind(const Strings& texts, std::vector<Configuration> configurations,
                          const std::vector<const Strings*>& configuration_texts) {
    texts_ = {};
    first_text_ = texts_.attach(texts);
    configurations_ = std::move(configurations);
    std::vector<Function*> bound;
    for (std::size_t i = 0; i < configurations_.size(); ++i) {
        Configuration& configuration = configurations_[i];
        configuration.text = texts_.attach(*configuration_texts[i]);
        ConfigurationAllocation allocation(configuration, texts_);
        for (const auto& function : configuration.functions) {
            if (const int error = function->bind(allocation); error != 0) {
                std::for_each(bound.rbegin(), bound.rend(), [](Function* each) { each->unbind(); });
                configurations_.clear();
                return error;
            }
            bound.push_back(function.get());
        }
    }
    return 0;
}

void CompositeDevice::unbind() {
    for (const Configuration& configuration : configurations_) {
        std::for_each(configuration.functions.rbegin(), configuration.functions.rend(),
                      [](const auto& function) { function->unbind(); });
    }
    configurations_.clear();
}

// --- the bus ---

void CompositeDevice::enter(DeviceState state) {
    state_ = state;
    if (listener_) {
        listener_(state);
    }
}

void CompositeDevice::disable() {
    if (active_ != nullptr) {
        for (const auto& function : std::exchange(active_, nullptr)->functions) {
            function->disable();
        }
    }
    remote_wakeup_ = false;
}

bool CompositeDevice::enable(Configuration& configuration) {
    active_ = &configuration;
    for (const auto& function : configuration.functions) {
        if (!function->enable(speed())) {
            disable();
            return false;
        }
    }
    return true;
}

void CompositeDevice::power(bool on) {
    disable();
    enter(on ? DeviceState::powered : DeviceState::not_attached);
}

void CompositeDevice::reset_bus() {
    disable();
    enter(DeviceState::reset);
}

void CompositeDevice::suspend() {
    if (state_ != DeviceState::suspended) {
        before_suspend_ = state_;
        enter(DeviceState::suspended);
    }
}

void CompositeDevice::resume() {
    if (state_ == DeviceState::suspended) {
        enter(before_suspend_);
    }
}

// --- transfers ---

const Endpoint* CompositeDevice::find_endpoint(unsigned address) const {
    if (active_ == nullptr) {
        return nullptr;
    }
    const auto found = active_->endpoints.find(static_cast<std::uint8_t>(address));
    return found == active_->endpoints.end() ? nullptr : &found->second;
}

void CompositeDevice::in(std::uint8_t endpoint, std::size_t length, usb::Completion completion) {
    const Endpoint* found = find_endpoint(endpoint | 0x80U);
    if (found == nullptr) {
        completion(usb::Status::error, {});
    } else {
        found->in->ask(length, std::move(completion));
    }
}

void CompositeDevice::out(std::uint8_t endpoint, ByteView data, usb::Completion completion) {
    const Endpoint* found = find_endpoint(endpoint & 0x7FU);
    if (found == nullptr) {
        completion(usb::Status::error, {});
    } else {
        found->out->offer(data, std::move(completion));
    }
}

void CompositeDevice::abort(std::uint8_t endpoint) {
    if (const Endpoint* found = find_endpoint(endpoint)) {
        found->pipe().drop();
    }
}

void CompositeDevice::control(const usb::Setup& setup, ByteView data, usb::Completion completion) {
    Answer reply = answer(setup, data);
    if (!reply) {
        completion(usb::Status::stall, {});
        return;
    }
    reply->resize(std::min<std::size_t>({reply->size(), setup.length, kControlBuffer}));
    completion(usb::Status::done, setup.to_host() ? ByteView(*reply) : ByteView());
}

} // namespace vb::gadget
