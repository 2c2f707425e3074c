#include "models/mcu/hid_port.h"

#include "models/gadget/descriptors.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace vb::mcu {

namespace {

constexpr std::size_t kReportsKept = 16;
constexpr std::uint8_t kHidPortClass = 3;
constexpr unsigned kOutput = 2; // as the kind of a report

} // namespace

HidPort::HidPort(HidPersonality personality, Uplink& uplink)
    : name_(personality.name), personality_(std::move(personality)), uplink_(uplink) {}

bool HidPort::has_room() const {
    return reports_.size() < kReportsKept;
}

void HidPort::report(ByteView report) {
    report = report.first(std::min<std::size_t>(report.size(), personality_.report_length));
    reports_.emplace_back(report.begin(), report.end());
    send();
}

// One that is sent makes the host ask for the next, perhaps at once.
void HidPort::send() {
    if (!reports_.empty() && in_.asked()) {
        const Bytes report = std::move(reports_.front());
        reports_.pop_front();
        std::size_t sent = 0;
        in_.give(report, sent, gadget::InPipe::End::marked);
        uplink_.go_on();
    }
}

// --- the interface ---

int HidPort::bind(gadget::Allocation& allocation) {
    interface_ = allocation.interface(*this);
    return allocation.endpoint(*this, in_) ? 0 : ENODEV;
}

bool HidPort::enable(usb::Speed) {
    disable();
    in_.set_packet(personality_.report_length);
    enabled_ = true;
    return true;
}

void HidPort::disable() {
    enabled_ = false;
    protocol_ = 1;
    reports_.clear();
    in_.drop();
    in_.halt(false);
}

Bytes HidPort::hid_descriptor() const {
    Bytes bytes;
    gadget::append(bytes, {9, gadget::kHidDescriptor, 0x11, 0x01, 0, 1, gadget::kReportDescriptor});
    gadget::append_word(bytes, personality_.report_descriptor.size());
    return bytes;
}

Bytes HidPort::descriptors(usb::Speed speed) const {
    Bytes bytes;
    gadget::append_interface(
        bytes, {interface_, 1, kHidPortClass, personality_.subclass, personality_.protocol, 0});
    const Bytes hid = hid_descriptor();
    bytes.insert(bytes.end(), hid.begin(), hid.end());
    const std::uint8_t interval = speed == usb::Speed::high ? 4 : 1; // 1 ms
    gadget::append_endpoint(bytes, in_.address(), gadget::kInterrupt, personality_.report_length,
                            interval);
    return bytes;
}

std::optional<Bytes> HidPort::control(const usb::Setup& setup, ByteView data) {
    switch (setup.request_type << 8 | setup.request) {
    case 0x8106: // a descriptor
        switch (setup.value >> 8) {
        case gadget::kHidDescriptor:
            return hid_descriptor();
        case gadget::kReportDescriptor:
            return personality_.report_descriptor;
        default:
            return std::nullopt;
        }
    case 0xA101: // GET_REPORT: an empty one
        return Bytes(std::min(setup.length, personality_.report_length));
    case 0xA102: // GET_IDLE
        return Bytes{idle_};
    case 0xA103: // GET_PROTOCOL
        return Bytes{protocol_};
    case 0x2109: // SET_REPORT
        if (setup.value >> 8 == kOutput && !data.empty()) {
            uplink_.send(kOutputReport, {data.begin(), data.end()});
        }
        return Bytes{};
    case 0x210A: // SET_IDLE
        idle_ = static_cast<std::uint8_t>(setup.value >> 8);
        return Bytes{};
    case 0x210B: // SET_PROTOCOL
        protocol_ = static_cast<std::uint8_t>(setup.value & 1U);
        return Bytes{};
    default:
        return std::nullopt;
    }
}

} // namespace vb::mcu
