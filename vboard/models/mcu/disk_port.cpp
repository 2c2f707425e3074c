#include "models/mcu/disk_port.h"

#include "models/gadget/descriptors.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace vb::mcu {

namespace {

constexpr std::size_t kReplyKept = 16384;
constexpr std::size_t kPiece = 512; // of data for the processor
constexpr std::uint8_t kDiskClass = 8;
constexpr std::uint8_t kDiskSubclass = 6;    // SCSI
constexpr std::uint8_t kDiskProtocol = 0x50; // bulk-only
constexpr std::uint32_t kWrapperSignature = 0x43425355;
constexpr std::size_t kWrapperSize = 31;
constexpr std::uint8_t kWrapperToHost = 0x80;

std::size_t disk_packet(usb::Speed speed) {
    return speed == usb::Speed::high ? 512 : 64;
}

std::uint32_t announced_by(ByteView wrapper) {
    const bool announces = wrapper.size() == kWrapperSize &&
                           record_from<std::uint32_t>(wrapper) == kWrapperSignature &&
                           (wrapper[12] & kWrapperToHost) == 0;
    return announces ? record_from<std::uint32_t>(wrapper.subspan(8)) : 0;
}

} // namespace

// --- to the processor ---

// Taking the end of a transfer makes the host start its next, perhaps at once.
void DiskPort::take_more() {
    if (taking_) {
        return;
    }
    taking_ = true;
    while (enabled_ && out_.offered() && uplink_.has_room()) {
        wanted_ > 0 ? take_data() : take_command();
    }
    taking_ = false;
}

void DiskPort::take_command() {
    Bytes wrapper = out_.take(kPiece);
    drop_reply();
    wanted_ = announced_by(wrapper);
    if (!wrapper.empty()) {
        uplink_.send(kDiskCommand, std::move(wrapper));
    }
}

void DiskPort::take_data() {
    const std::size_t most = std::min<std::size_t>(kPiece, wanted_);
    Bytes piece = out_.take(most);
    wanted_ = piece.size() < most ? 0 : wanted_ - static_cast<std::uint32_t>(piece.size());
    if (!piece.empty()) {
        uplink_.send(kDiskData, std::move(piece));
    }
}

// --- to the host ---

bool DiskPort::has_room() const {
    return kept_ < kReplyKept;
}

void DiskPort::reply(Bytes part) {
    kept_ += part.size();
    reply_.push_back(std::move(part));
    send();
}

void DiskPort::send() {
    if (sending_) {
        return;
    }
    sending_ = true;
    while (!reply_.empty() && in_.asked()) {
        const Bytes part = reply_.front(); // a completion may drop the reply
        std::size_t sent = sent_;
        const bool all = in_.give(part, sent);
        if (reply_.empty()) {
            break;
        }
        sent_ = all ? 0 : sent;
        if (all) {
            kept_ -= part.size();
            reply_.pop_front();
        }
    }
    sending_ = false;
    uplink_.go_on();
}

void DiskPort::drop_reply() {
    reply_.clear();
    sent_ = 0;
    kept_ = 0;
}

// --- the interface ---

int DiskPort::bind(gadget::Allocation& allocation) {
    interface_ = allocation.interface(*this);
    return allocation.endpoint(*this, in_) && allocation.endpoint(*this, out_) ? 0 : ENODEV;
}

bool DiskPort::enable(usb::Speed speed) {
    disable();
    in_.set_packet(disk_packet(speed));
    out_.set_packet(disk_packet(speed));
    enabled_ = true;
    return true;
}

void DiskPort::disable() {
    enabled_ = false;
    wanted_ = 0;
    drop_reply();
    for (gadget::Pipe* pipe :
         {static_cast<gadget::Pipe*>(&in_), static_cast<gadget::Pipe*>(&out_)}) {
        pipe->drop();
        pipe->halt(false);
    }
}

Bytes DiskPort::descriptors(usb::Speed speed) const {
    Bytes bytes;
    gadget::append_interface(bytes, {interface_, 2, kDiskClass, kDiskSubclass, kDiskProtocol, 0});
    gadget::append_endpoint(bytes, in_.address(), gadget::kBulk, disk_packet(speed), 0);
    gadget::append_endpoint(bytes, out_.address(), gadget::kBulk, disk_packet(speed), 0);
    return bytes;
}

std::optional<Bytes> DiskPort::control(const usb::Setup& setup, ByteView) {
    if (setup.value != 0) {
        return std::nullopt;
    }
    switch (setup.request_type << 8 | setup.request) {
    case 0xA1FE: // how many units besides
        return Bytes{0};
    case 0x21FF: // the transport begins anew
        in_.drop();
        out_.drop();
        wanted_ = 0;
        drop_reply();
        uplink_.go_on();
        return Bytes{};
    default:
        return std::nullopt;
    }
}

} // namespace vb::mcu
