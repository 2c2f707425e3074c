#include "host/wire.h"

#include <cerrno>

namespace vb::host {

namespace {

constexpr std::int64_t kControlWait = 5'000 * kMillisecond;

// Numbers of transfers differ in the whole of a capture.
std::uint64_t next_transfer() {
    static std::uint64_t last = 0;
    return ++last;
}

int errno_of(usb::Status status) {
    switch (status) {
    case usb::Status::done:
        return 0;
    case usb::Status::stall:
        return -EPIPE;
    case usb::Status::error:
        break;
    }
    return -EPROTO;
}

} // namespace

const char* Reply::in_words() const {
    switch (status) {
    case usb::Status::done:
        return "done";
    case usb::Status::stall:
        return "stalled";
    case usb::Status::error:
        break;
    }
    return in_time ? "no answer" : "no answer in time";
}

Wire::Wire(Board& board, usb::Device& device)
    : board_(board),
      device_(&device),
      speed_(device.speed()),
      capture_(board.parts().find<Capture>(Capture::kName)) {}

std::uint64_t Wire::add(std::uint8_t endpoint, CapturedTransfer captured, ByteView data,
                        std::int64_t wait, const Then& then) {
    if (device_ == nullptr) {
        return 0;
    }
    const std::uint64_t id = next_transfer();
    captured.id = id;
    captured.device = address_;
    Transfer& transfer = transfers_[id];
    transfer = {captured, endpoint, then, 0, std::nullopt};
    if (wait != kForEver) {
        transfer.timer = board_.after(wait, [weak = weak_from_this(), id] {
            if (const auto wire = weak.lock()) {
                wire->time_out(id);
            }
        });
    }
    if (capture_ != nullptr) {
        capture_->submitted(captured, data);
    }
    return id;
}

usb::Completion Wire::completion_of(std::uint64_t id) {
    return [weak = weak_from_this(), id](usb::Status status, ByteView data) {
        if (const auto wire = weak.lock()) {
            wire->completed(id, status, data);
        }
    };
}

// The device may go within any call to it, so each is the last thing done.

void Wire::control(const usb::Setup& setup, ByteView data, const Then& then) {
    controls_.push_back({setup, Bytes(data.begin(), data.end()), then});
    if (controls_.size() == 1) {
        start_control();
    }
}

void Wire::start_control() {
    const auto [setup, data, then] = controls_.front();
    const auto endpoint = static_cast<std::uint8_t>(setup.to_host() ? 0x80 : 0);
    const std::uint64_t id = add(0, {0, TransferType::control, endpoint, 0, setup, 0, setup.length},
                                 data, kControlWait, [this, then = then](const Reply& reply) {
                                     controls_.pop_front();
                                     if (!controls_.empty()) {
                                         start_control();
                                     }
                                     then(reply);
                                 });
    if (id != 0) {
        device_->control(setup, data, completion_of(id));
    }
}

void Wire::in(const Endpoint& endpoint, std::size_t length, std::int64_t wait, const Then& then) {
    const std::uint64_t id =
        add(endpoint.address,
            {0, endpoint.type(), endpoint.address, 0, std::nullopt, endpoint.interval, length}, {},
            wait, then);
    if (id != 0) {
        device_->in(endpoint.address, length, completion_of(id));
    }
}

void Wire::out(const Endpoint& endpoint, ByteView data, std::int64_t wait, const Then& then) {
    const std::uint64_t id =
        add(endpoint.address,
            {0, endpoint.type(), endpoint.address, 0, std::nullopt, endpoint.interval, data.size()},
            data, wait, then);
    if (id != 0) {
        device_->out(endpoint.address, data, completion_of(id));
    }
}

void Wire::clear_halt(const Endpoint& endpoint, const Then& then) {
    control({0x02, 1, 0, endpoint.address, 0}, {}, then);
}

void Wire::abort(std::uint8_t endpoint) {
    bool pending = false;
    for (auto each = transfers_.begin(); each != transfers_.end();) {
        if (each->second.endpoint != endpoint) {
            ++each;
            continue;
        }
        board_.cancel(each->second.timer);
        if (!each->second.reply) {
            pending = true;
            record(each->second, -ENOENT, {});
        }
        each = transfers_.erase(each);
    }
    if (pending && device_ != nullptr) {
        device_->abort(endpoint);
    }
}

void Wire::reset_bus() {
    if (device_ != nullptr) {
        device_->reset_bus();
    }
}

void Wire::suspend() {
    if (device_ != nullptr) {
        device_->suspend();
    }
}

void Wire::resume() {
    if (device_ != nullptr) {
        device_->resume();
    }
}

void Wire::later(std::int64_t nanoseconds, const std::function<void()>& action) {
    board_.after(nanoseconds, [weak = weak_from_this(), action] {
        const auto wire = weak.lock();
        if (wire && wire->device_ != nullptr) {
            action();
        }
    });
}

void Wire::cut(bool gone) {
    device_ = nullptr;
    for (const auto& [id, transfer] : transfers_) {
        board_.cancel(transfer.timer);
        if (!transfer.reply) {
            record(transfer, gone ? -ESHUTDOWN : -ENOENT, {});
        }
    }
    transfers_.clear();
    controls_.clear();
}

void Wire::completed(std::uint64_t id, usb::Status status, ByteView data) {
    const auto found = transfers_.find(id);
    if (found == transfers_.end() || found->second.reply) {
        return;
    }
    Transfer& transfer = found->second;
    board_.cancel(transfer.timer);
    const bool too_much = data.size() > transfer.captured.length;
    const ByteView kept = too_much ? data.first(transfer.captured.length) : data;
    record(transfer, too_much ? -EOVERFLOW : errno_of(status), kept);
    transfer.reply = {too_much ? usb::Status::error : status, Bytes(kept.begin(), kept.end())};
    later(0, [this, id] { deliver(id); });
}

void Wire::time_out(std::uint64_t id) {
    const auto found = transfers_.find(id);
    if (found == transfers_.end() || found->second.reply) {
        return;
    }
    Transfer& transfer = found->second;
    record(transfer, -ETIMEDOUT, {});
    transfer.reply = {usb::Status::error, {}, false};
    later(0, [this, id] { deliver(id); });
    if (device_ != nullptr) {
        device_->abort(transfer.endpoint);
    }
}

void Wire::deliver(std::uint64_t id) {
    if (auto node = transfers_.extract(id); !node.empty()) {
        const Transfer& transfer = node.mapped();
        transfer.then(transfer.reply.value_or(Reply()));
    }
}

void Wire::record(const Transfer& transfer, int status, ByteView data) const {
    if (capture_ != nullptr) {
        capture_->completed(transfer.captured, status, data);
    }
}

} // namespace vb::host
