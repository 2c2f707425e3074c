#include "models/mcu/chip.h"

#include <fmt/format.h>

namespace vb::mcu {

namespace {

const char* name_of(Chip::State state) {
    static constexpr std::array kNames = {"off", "reset", "booting", "loader", "running"};
    return kNames[static_cast<std::size_t>(state)];
}

// What the disk moves is too much for the trace.
bool is_bulk(std::uint32_t type) {
    return type == kDiskReply || type == kDiskData;
}

} // namespace

Chip::Chip(Board& board, Wiring wiring)
    : board_(board),
      wiring_(std::move(wiring)),
      outbox_(wiring_.interrupt),
      usb_(board, wiring_.socket, *this) {}

// --- power and reset ---

void Chip::set(Input input, bool level) {
    const bool was_up = powered() && levels_[1];
    levels_[static_cast<std::size_t>(input)] = level;
    look_at_pins(was_up);
}

void Chip::cut_power(bool cut) {
    const bool was_up = powered() && levels_[1];
    cut_ = cut;
    look_at_pins(was_up);
}

void Chip::look_at_pins(bool was_up) {
    const bool is_up = powered() && levels_[1];
    if (!is_up) {
        const State now = powered() ? State::reset : State::off;
        if (was_up) {
            stop();
        }
        if (state_ != now) {
            state_ = now;
            trace(name_of(now));
        }
    } else if (!was_up) {
        state_ = levels_[2] ? State::booting : State::loader;
        trace(name_of(state_));
        if (state_ == State::booting) {
            boot_ = board_.after(wiring_.boot_time, [this] {
                boot_ = 0;
                state_ = State::running;
                trace("running");
            });
        }
    }
}

void Chip::stop() {
    if (boot_ != 0) {
        board_.cancel(boot_);
        boot_ = 0;
    }
    usb_.reset();
    outbox_.clear();
    outbox_.garble(0);
    outbox_.repeat(0);
    hangs_ = false;
    go_on();
}

// --- packets ---

std::optional<Bytes> Chip::fetch() {
    if (hangs_) {
        return std::nullopt;
    }
    Bytes block = outbox_.fetch();
    ++fetched_;
    usb_.take_more();
    return block;
}

bool Chip::take(ByteView block) {
    if (hangs_) {
        return false;
    }
    const Received received = packet_in(block);
    if (!received.packet) {
        board_.misuse("mcu", received.wrong);
        return true;
    }
    if (!usb_.has_room_for(*received.packet)) {
        return false;
    }
    ++taken_;
    trace("in", *received.packet);
    usb_.take(*received.packet);
    return true;
}

void Chip::send(Type type, Bytes value) {
    const Packet packet{type, std::move(value)};
    trace("out", packet);
    outbox_.put(packet);
}

// --- from outside ---

void Chip::hang(bool hangs) {
    hangs_ = hangs;
    trace(hangs ? "hangs" : "goes on");
    go_on();
}

Outbox& Chip::outbox() {
    if (!ready()) {
        throw VerbError("the MCU does not run");
    }
    return outbox_;
}

void Chip::flood(const Packet& packet, unsigned times) {
    Outbox& all = outbox();
    for (unsigned i = 0; i < times; ++i) {
        all.put(packet);
    }
}

void Chip::trace(const char* state) {
    board_.trace().add("mcu", {{"state", state}});
}

void Chip::trace(const char* direction, const Packet& packet) {
    Json event = {{"packet", direction},
                  {"type", fmt::format("{:08x}", packet.type)},
                  {"size", packet.value.size()}};
    if (direction[0] == 'o') {
        event["number"] = outbox_.last_number() + 1;
    }
    if (!is_bulk(packet.type)) {
        event["value"] = to_hex(packet.value);
    }
    board_.trace().add("mcu", std::move(event));
}

Json Chip::show() const {
    Json shown = {{"state", name_of(state_)},        {"hangs", hangs_}, {"waiting", outbox_.size()},
                  {"number", outbox_.last_number()}, {"taken", taken_}, {"fetched", fetched_}};
    shown.update(usb_.show());
    return shown;
}

} // namespace vb::mcu
