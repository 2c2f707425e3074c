#include "host/session.h"

#include <fmt/format.h>

namespace vb::host {

namespace {

const char* word_for(Session::State state) {
    switch (state) {
    case Session::State::attached:
        return "attached";
    case Session::State::addressed:
        return "addressed";
    case Session::State::configured:
        return "configured";
    case Session::State::failed:
        break;
    }
    return "failed";
}

Json describe_device(const DeviceFacts& facts) {
    return {{"vendor", fmt::format("{:04x}", facts.device.vendor)},
            {"product", fmt::format("{:04x}", facts.device.product)},
            {"release", fmt::format("{:04x}", facts.device.release)},
            {"strings", {facts.manufacturer, facts.product, facts.serial}}};
}

Json describe_interfaces(const Configuration& configuration) {
    Json all = Json::array();
    for (const Interface& each : configuration.interfaces) {
        Json endpoints = Json::array();
        for (const Endpoint& endpoint : each.endpoints) {
            endpoints.push_back(endpoint.address);
        }
        all.push_back({{"interface", each.number},
                       {"class", fmt::format("{:02x}/{:02x}/{:02x}", each.interface_class,
                                             each.subclass, each.protocol)},
                       {"endpoints", endpoints}});
    }
    return all;
}

} // namespace

void Desk::note(const Json& details) const {
    Json event = {{"host", name}};
    event.update(details);
    board.trace().add("usb_host", event);
}

Session::Session(Desk& desk, usb::Device& device, std::uint8_t address, Failed failed)
    : desk_(desk),
      wire_(std::make_shared<Wire>(desk.board, device)),
      enumeration_(*wire_, address, [this](const std::string& error) { enumerated(error); }),
      failed_(std::move(failed)) {}

void Session::end(bool device_gone) {
    if (disk_) {
        disk_->gone();
    }
    desk_.input.let_go();
    wire_->cut(device_gone);
}

void Session::enumerated(const std::string& error) {
    if (!error.empty()) {
        state_ = State::failed;
        failed_(error);
        return;
    }
    const DeviceFacts& facts = enumeration_.facts();
    state_ = State::addressed;
    Json event = describe_device(facts);
    event.update({{"state", "addressed"}, {"address", wire_->address()}});
    if (!facts.configuration.error.empty()) {
        event["error"] = facts.configuration.error;
    }
    desk_.note(event);
    configure_in_time();
}

void Session::configure_in_time() {
    ++intent_;
    if (state_ == State::addressed && desk_.configure_after) {
        wire_->later(*desk_.configure_after, [this, intent = intent_] {
            if (intent == intent_ && state_ == State::addressed && !suspended_) {
                configure();
            }
        });
    }
}

void Session::configure() {
    constexpr std::uint8_t kSetConfiguration = 9;
    const std::uint8_t value = enumeration_.facts().configuration.value;
    wire_->control({0, kSetConfiguration, value, 0, 0}, {}, [this, value](const Reply& reply) {
        if (!reply.done()) {
            state_ = State::failed;
            failed_(fmt::format("configuration: {}", reply.in_words()));
            return;
        }
        state_ = State::configured;
        desk_.note({{"state", "configured"},
                    {"configuration", value},
                    {"interfaces", describe_interfaces(enumeration_.facts().configuration)}});
        start_interfaces();
    });
}

void Session::start_interfaces() {
    constexpr std::uint8_t kHidClass = 3;
    for (const Interface& each : enumeration_.facts().configuration.interfaces) {
        if (each.alternate != 0) {
            continue;
        }
        if (each.interface_class == kHidClass) {
            hid_.push_back(
                std::make_unique<HidInterface>(desk_.board, desk_.name, *wire_, desk_.input, each));
        } else if (!disk_) {
            disk_ =
                Disk::of(desk_.board, desk_.name, *wire_, each, desk_.disk_wait, desk_.disk_jobs);
        }
    }
    for (const auto& each : hid_) {
        each->start();
    }
    if (disk_) {
        disk_->start();
    }
}

void Session::suspend() {
    suspended_ = true;
    for (const auto& each : hid_) {
        each->suspend();
    }
    wire_->suspend();
}

void Session::resume() {
    suspended_ = false;
    wire_->resume();
    for (const auto& each : hid_) {
        each->resume();
    }
    if (state_ == State::addressed) {
        configure_in_time();
    }
}

bool Session::send_locks() {
    bool sent = false;
    for (const auto& each : hid_) {
        sent = each->send_locks() || sent;
    }
    return sent;
}

Json Session::show() const {
    Json shown = {
        {"state", word_for(state_)}, {"suspended", suspended_}, {"address", wire_->address()}};
    if (state_ == State::addressed || state_ == State::configured) {
        shown.update(describe_device(enumeration_.facts()));
        shown["interfaces"] = describe_interfaces(enumeration_.facts().configuration);
    }
    Json hid = Json::array();
    for (const auto& each : hid_) {
        hid.push_back(each->show());
    }
    shown["hid"] = hid;
    if (disk_) {
        shown["disk"] = disk_->show();
    }
    return shown;
}

Json Session::fields() const {
    Json all = Json::array();
    for (const auto& each : hid_) {
        for (const Json fields = each->fields(); const Json& field : fields) {
            all.push_back(field);
        }
    }
    return all;
}

} // namespace vb::host
