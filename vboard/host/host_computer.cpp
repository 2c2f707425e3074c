#include "host/host_computer.h"

#include "models/kinds.h"

#include "host/host_verbs.h"

#include <utility>

namespace vb::host {

namespace {

constexpr unsigned kLongestWait = 3'600'000;

class HostModel : public Model {
  public:
    explicit HostModel(std::shared_ptr<HostComputer> host) : host_(std::move(host)) {}

  private:
    std::shared_ptr<HostComputer> host_;
};

const char* word_for(usb::Speed speed) {
    switch (speed) {
    case usb::Speed::low:
        return "low";
    case usb::Speed::full:
        return "full";
    case usb::Speed::high:
        break;
    }
    return "high";
}

Desk desk_of(Board& board, Settings& settings) {
    const auto name = settings.get<std::string>("name");
    const std::int64_t after = settings.number("configure_ms", kLongestWait) * kMillisecond;
    const bool configures = settings.get<bool>("configures");
    const std::int64_t wait = settings.number("disk_wait_ms", kLongestWait);
    return {board, name, HidInput(board, name), configures ? std::optional(after) : std::nullopt,
            std::max<std::int64_t>(wait, 1) * kMillisecond};
}

} // namespace

HostComputer::HostComputer(Board& board, Settings& settings)
    : desk_(desk_of(board, settings)), plugged_(settings.get<bool>("plugged")) {
    desk_.input.on_locks([this] {
        if (session_ && !session_->suspended()) {
            session_->send_locks();
        }
    });
}

// --- the socket ---

bool HostComputer::attach(usb::Device& device) {
    if (device_ != nullptr) {
        return false;
    }
    device_ = &device;
    failures_ = 0;
    if (plugged_) {
        begin_session();
    }
    return true;
}

void HostComputer::detach(usb::Device& device) {
    if (device_ != &device) {
        return;
    }
    device_ = nullptr;
    if (session_) {
        end_session(true);
        desk_.note({{"state", "detached"}});
    }
}

void HostComputer::on_power(std::function<void(bool powered)> listener) {
    power_listeners_.push_back(std::move(listener));
}

// --- sessions ---

void HostComputer::begin_session() {
    constexpr std::uint8_t kHighestAddress = 127;
    last_address_ = static_cast<std::uint8_t>(last_address_ % kHighestAddress + 1);
    desk_.note({{"state", "attached"}, {"speed", word_for(device_->speed())}});
    session_ =
        std::make_shared<Session>(desk_, *device_, last_address_,
                                  [this](const std::string& error) { session_failed(error); });
    session_->start();
}

// What belongs to it may be at work still, below us on the stack.
void HostComputer::end_session(bool device_gone) {
    if (const std::shared_ptr<Session> session = std::exchange(session_, nullptr)) {
        desk_.board.after(0, [session] {});
        session->end(device_gone);
        if (!device_gone && device_ != nullptr) {
            device_->reset_bus();
        }
    }
}

void HostComputer::session_failed(const std::string& error) {
    constexpr unsigned kTries = 3;
    ++failures_;
    desk_.note({{"state", "failed"}, {"error", error}, {"try", failures_}});
    if (failures_ < kTries) {
        end_session(false);
        if (device_ != nullptr) {
            begin_session();
        }
    }
}

// --- what its owner does ---

Json HostComputer::show() const {
    Json shown = {{"plugged", plugged_}, {"attached", device_ != nullptr}};
    if (session_) {
        shown.update(session_->show());
    }
    if (desk_.configure_after) {
        shown["configure_ms"] = *desk_.configure_after / kMillisecond;
    } else {
        shown["configure_ms"] = "never";
    }
    return shown;
}

void HostComputer::plug(bool plugged) {
    if (plugged_ == plugged) {
        return;
    }
    plugged_ = plugged;
    desk_.note({{"state", plugged ? "plugged" : "unplugged"}});
    if (!plugged) {
        end_session(true);
    }
    const auto listeners = power_listeners_;
    for (const auto& listener : listeners) {
        listener(plugged);
    }
    if (plugged_ && device_ != nullptr && !session_) { // one that holds on without power
        failures_ = 0;
        begin_session();
    }
}

void HostComputer::reset() {
    if (!session_) {
        throw VerbError("no device is attached");
    }
    failures_ = 0;
    desk_.note({{"state", "reset"}});
    end_session(false);
    if (device_ != nullptr) {
        begin_session();
    }
}

Session& HostComputer::awake_session() const {
    if (!session_) {
        throw VerbError("no device is attached");
    }
    if (session_->suspended()) {
        throw VerbError("the device is suspended");
    }
    return *session_;
}

void HostComputer::suspend() {
    Session& session = awake_session();
    const bool settled = session.state() == Session::State::addressed ||
                         session.state() == Session::State::configured;
    if (!settled || (session.disk() != nullptr && session.disk()->busy())) {
        throw VerbError("the host is at work with the device");
    }
    desk_.note({{"state", "suspended"}});
    session.suspend();
}

void HostComputer::resume() {
    if (!session_ || !session_->suspended()) {
        throw VerbError("no device is suspended");
    }
    desk_.note({{"state", "resumed"}});
    session_->resume();
}

void HostComputer::configure(std::optional<std::int64_t> after) {
    desk_.configure_after = after;
    if (session_) {
        session_->configure_in_time();
    }
}

void HostComputer::set_lock(unsigned lamp, bool lit) {
    Session& session = awake_session();
    const unsigned locks = desk_.input.locks();
    const unsigned wanted = lit ? locks | 1U << lamp : locks & ~(1U << lamp);
    if (wanted != locks) {
        desk_.input.set_locks(wanted); // which sends it
    } else if (!session.send_locks()) {
        throw VerbError("the device has no lamps");
    }
}

Json HostComputer::fields() const {
    return session_ ? session_->fields() : Json::array();
}

Disk& HostComputer::disk() const {
    Session& session = awake_session();
    if (session.disk() == nullptr) {
        throw VerbError("no disk is attached");
    }
    return *session.disk();
}

namespace {

std::unique_ptr<Model> make_usb_host(Board& board, Settings& settings) {
    auto host = std::make_shared<HostComputer>(board, settings);
    if (board.parts().find<usb::Socket>(host->name()) != nullptr) {
        settings.refuse("name", "there is another host of this name");
    }
    board.parts().offer<usb::Socket>(host->name(), host);
    add_host_verbs(board, *host);
    return std::make_unique<HostModel>(std::move(host));
}

constexpr SettingRow kUsbHostSettings[] = {
    {"name", R"("host")", "the port's cable leads to it; its verbs have this name"},
    {"plugged", "true", "the cable is in at the start"},
    {"configures", "true", "it configures the devices that it finds"},
    {"configure_ms", "100", "how long after it has found out what they are"},
    {"disk_wait_ms", "30000", "how long it waits for a disk's answer"},
};

} // namespace

} // namespace vb::host

namespace vb {

const ModelKind kUsbHost{"usb_host", "a USB host computer", host::kUsbHostSettings,
                         host::make_usb_host};

} // namespace vb
