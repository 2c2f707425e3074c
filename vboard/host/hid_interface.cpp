#include "host/hid_interface.h"

#include <fmt/format.h>

#include <algorithm>

namespace vb::host {

namespace {

constexpr std::uint8_t kClassToInterface = 0x21;
constexpr std::uint8_t kSetReport = 0x09;
constexpr std::uint8_t kSetIdle = 0x0A;
constexpr unsigned kMostFailures = 3;
constexpr std::uint16_t kLedPage = 0x08;
constexpr std::uint16_t kLocks = 5; // usages 1 to 5: Num Lock to Kana

bool is_lamp(const HidField& field, std::uint32_t number) {
    const Usage usage = field.usage(number, false);
    return usage >> 16U == kLedPage && (usage & 0xFFFFU) >= 1 && (usage & 0xFFFFU) <= kLocks;
}

const char* name_of(ReportKind kind) {
    switch (kind) {
    case ReportKind::input:
        return "input";
    case ReportKind::output:
        return "output";
    case ReportKind::feature:
        break;
    }
    return "feature";
}

} // namespace

void HidInterface::note(const Json& details) const {
    Json event = {{"host", host_}, {"interface", interface_.number}};
    event.update(details);
    board_.trace().add("usb_host", event);
}

void HidInterface::start() {
    // Reports only when something changes. Not every device can do so, and none has to.
    wire_.control({kClassToInterface, kSetIdle, 0, interface_.number, 0}, {},
                  [this](const Reply&) { read_descriptor(); });
}

void HidInterface::read_descriptor() {
    const usb::Setup setup{0x81, 6, kReportDescriptor << 8U, interface_.number,
                           interface_.report_descriptor};
    wire_.control(setup, {}, [this](const Reply& reply) {
        descriptor_ = parse_hid_descriptor(reply.data);
        if (!reply.done()) {
            descriptor_.error = reply.in_words();
        } else if (reply.data.size() < interface_.report_descriptor) {
            descriptor_.error += descriptor_.error.empty() ? "it is shorter than it says" : "";
        }
        ready_ = true;
        Json event = {
            {"state", "hid"}, {"bytes", reply.data.size()}, {"fields", descriptor_.fields.size()}};
        if (!descriptor_.error.empty()) {
            event["error"] = descriptor_.error;
        }
        note(event);
        if (input_.locks() != 0) {
            send_locks();
        }
        poll();
    });
}

std::int64_t HidInterface::interval() const {
    const Endpoint* endpoint = interface_.find(TransferType::interrupt, true);
    const unsigned steps = std::clamp<unsigned>(endpoint->interval, 1, 255);
    return wire_.speed() == usb::Speed::high ? std::int64_t{125'000} << (std::min(steps, 16U) - 1)
                                             : steps * kMillisecond;
}

void HidInterface::poll() {
    const Endpoint* endpoint = interface_.find(TransferType::interrupt, true);
    if (!ready_ || polling_ || suspended_ || endpoint == nullptr || descriptor_.fields.empty() ||
        failures_ >= kMostFailures) {
        return;
    }
    polling_ = true;
    const std::size_t length =
        std::max<std::size_t>(descriptor_.longest(ReportKind::input), endpoint->max_packet);
    wire_.in(*endpoint, length, Wire::kForEver, [this](const Reply& reply) {
        polling_ = false;
        take(reply);
    });
}

void HidInterface::take(const Reply& reply) {
    const auto poll_again = [this] { wire_.later(interval(), [this] { poll(); }); };
    if (reply.done()) {
        failures_ = 0;
        ++reports_;
        if (const auto report = decode_report(descriptor_, reply.data)) {
            input_.take(descriptor_, interface_.number, *report);
        } else {
            note({{"state", "report"}, {"error", "unknown report"}, {"bytes", to_hex(reply.data)}});
        }
        poll_again();
        return;
    }
    ++failures_;
    note({{"state", "report"}, {"error", reply.in_words()}});
    if (reply.status == usb::Status::stall) {
        wire_.clear_halt(*interface_.find(TransferType::interrupt, true),
                         [poll_again](const Reply&) { poll_again(); });
    } else {
        poll_again();
    }
}

void HidInterface::suspend() {
    suspended_ = true;
    if (polling_) {
        polling_ = false;
        wire_.abort(interface_.find(TransferType::interrupt, true)->address);
    }
}

void HidInterface::resume() {
    suspended_ = false;
    poll();
}

bool HidInterface::send_locks() {
    std::map<std::uint8_t, Bytes> reports;
    for (const HidField& field : descriptor_.fields) {
        if (field.kind != ReportKind::output || field.constant || !field.variable) {
            continue;
        }
        for (std::uint32_t i = 0; i < field.count; ++i) {
            if (!is_lamp(field, i)) {
                continue;
            }
            Bytes& report = reports[field.report];
            report.resize(descriptor_.report_length(ReportKind::output, field.report));
            if (descriptor_.numbered) {
                report[0] = field.report;
            }
            const unsigned lamp = (field.usage(i, false) & 0xFFFFU) - 1;
            put_value(descriptor_, field, i, input_.locks() >> lamp & 1U, report);
        }
    }
    const bool idle = output_.empty();
    for (auto& [id, report] : reports) {
        output_.push_back(std::move(report));
    }
    if (idle && !output_.empty()) {
        send_next();
    }
    return !reports.empty();
}

void HidInterface::send_next() {
    constexpr std::int64_t kWait = 5'000 * kMillisecond;
    const Bytes report = output_.front();
    const auto sent = [this](const Reply& reply) {
        note({{"state", "output"},
              {"bytes", to_hex(output_.front())},
              {"result", reply.in_words()}});
        output_.pop_front();
        if (!output_.empty()) {
            send_next();
        }
    };
    if (const Endpoint* endpoint = interface_.find(TransferType::interrupt, false)) {
        wire_.out(*endpoint, report, kWait, sent);
        return;
    }
    const auto value = static_cast<std::uint16_t>(static_cast<unsigned>(ReportKind::output) << 8U |
                                                  (descriptor_.numbered ? report[0] : 0U));
    wire_.control({kClassToInterface, kSetReport, value, interface_.number,
                   static_cast<std::uint16_t>(report.size())},
                  report, sent);
}

Json HidInterface::show() const {
    Json applications = Json::array();
    for (const HidCollection& each : descriptor_.collections) {
        if (each.parent == 0 && &each != &descriptor_.collections.front()) {
            applications.push_back(
                fmt::format("{:04x}:{:04x}", each.usage >> 16U, each.usage & 0xFFFFU));
        }
    }
    Json shown = {
        {"interface", interface_.number}, {"applications", applications}, {"reports", reports_}};
    if (!descriptor_.error.empty()) {
        shown["error"] = descriptor_.error;
    }
    return shown;
}

Json HidInterface::fields() const {
    Json all = Json::array();
    for (const HidField& field : descriptor_.fields) {
        Json usages = Json::array();
        for (const UsageRange& range : field.usages) {
            usages.push_back({range.first, range.last});
        }
        all.push_back({{"interface", interface_.number},
                       {"kind", name_of(field.kind)},
                       {"report", field.report},
                       {"offset", field.offset},
                       {"size", field.size},
                       {"count", field.count},
                       {"least", field.least},
                       {"most", field.most},
                       {"constant", field.constant},
                       {"variable", field.variable},
                       {"relative", field.relative},
                       {"usages", usages}});
    }
    return all;
}

} // namespace vb::host
