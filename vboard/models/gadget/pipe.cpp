#include "models/gadget/pipe.h"

#include <algorithm>

// A completion may start the host's next transfer at once, or take the bus away: what is completed
// has left its queue before.

namespace vb::gadget {

void InPipe::ask(std::size_t length, usb::Completion completion) {
    if (halted()) {
        completion(usb::Status::stall, {});
        return;
    }
    asked_.push_back({length, std::move(completion), {}});
    tell();
}

void InPipe::finish(usb::Status status) {
    const Asked done = std::move(asked_.front());
    asked_.pop_front();
    done.completion(status, done.gathered);
}

bool InPipe::give(ByteView data, std::size_t& sent, End end) {
    bool all = false;
    while (!all && !asked_.empty()) {
        Asked& asked = asked_.front();
        const ByteView next = data.subspan(sent, std::min(packet(), data.size() - sent));
        asked.gathered.insert(asked.gathered.end(), next.begin(), next.end());
        sent += next.size();
        all = sent == data.size();
        const bool ended = next.size() < packet() || (all && end == End::marked);
        if (asked.gathered.size() > asked.length) { // a packet that the host has no room for
            finish(usb::Status::error);
        } else if (ended || asked.gathered.size() == asked.length) {
            finish(usb::Status::done);
        }
    }
    return all;
}

void InPipe::halt(bool halted) {
    Pipe::halt(halted);
    while (halted && !asked_.empty()) {
        finish(usb::Status::stall);
    }
}

void OutPipe::offer(ByteView data, usb::Completion completion) {
    if (halted()) {
        completion(usb::Status::stall, {});
        return;
    }
    offered_.push_back({Bytes(data.begin(), data.end()), std::move(completion)});
    tell();
}

void OutPipe::finish(usb::Status status) {
    const Offered done = std::move(offered_.front());
    offered_.pop_front();
    done.completion(status, {});
}

Bytes OutPipe::take(std::size_t most) {
    Offered& first = offered_.front();
    const std::size_t size = std::min(most, first.data.size() - first.taken);
    const auto* from = first.data.data() + first.taken;
    Bytes taken(from, from + size);
    first.taken += size;
    if (first.taken == first.data.size()) {
        finish(usb::Status::done);
    }
    return taken;
}

void OutPipe::halt(bool halted) {
    Pipe::halt(halted);
    while (halted && !offered_.empty()) {
        finish(usb::Status::stall);
    }
}

} // namespace vb::gadget
