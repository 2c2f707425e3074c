#include "host/bulk_only.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace vb::host {

namespace {

constexpr std::uint32_t kWrapperSignature = 0x43425355;
constexpr std::uint32_t kStatusSignature = 0x53425355;
constexpr std::size_t kWrapperLength = 31;
constexpr std::size_t kStatusLength = 13;
constexpr std::size_t kTagPlace = 4;

struct StatusWrapper {
    std::uint32_t signature;
    std::uint32_t tag;
    std::uint32_t residue;
    std::uint8_t status;
};

Bytes wrapper_of(const BulkCommand& command, std::uint32_t tag) {
    Bytes wrapper = bytes_of(kWrapperSignature);
    for (const std::uint32_t word : {tag, command.length}) {
        const Bytes bytes = bytes_of(word);
        wrapper.insert(wrapper.end(), bytes.begin(), bytes.end());
    }
    wrapper.push_back(command.to_host ? 0x80 : 0);
    wrapper.push_back(0); // logical unit
    wrapper.push_back(static_cast<std::uint8_t>(command.block.size()));
    wrapper.insert(wrapper.end(), command.block.begin(), command.block.end());
    wrapper.resize(kWrapperLength);
    return wrapper;
}

} // namespace

const char* BulkOutcome::in_words() const {
    switch (kind) {
    case Kind::passed:
        return "passed";
    case Kind::failed:
        return "failed";
    case Kind::phase_error:
        return "phase error";
    case Kind::broken:
        break;
    }
    return "broken";
}

void BulkOnly::ask_units(const std::function<void()>& then) {
    constexpr std::uint8_t kGetMaxLun = 0xFE;
    wire_.control({0xA1, kGetMaxLun, 0, interface_, 1}, {}, [then](const Reply&) {
        then(); // a device with one unit may refuse
    });
}

void BulkOnly::run(BulkCommand command, Then then) {
    ++run_;
    command_ = std::move(command);
    then_ = std::move(then);
    outcome_ = {};
    recovering_ = false;
    send_wrapper();
}

void BulkOnly::send_wrapper() {
    Bytes wrapper = command_.wrapper;
    if (wrapper.empty()) {
        wrapper = wrapper_of(command_, ++tag_);
    } else if (wrapper.size() >= kTagPlace + sizeof tag_) {
        tag_ = record_from<std::uint32_t>(ByteView(wrapper).subspan(kTagPlace));
    }
    wire_.out(out_, wrapper, wait_, [this](const Reply& reply) {
        if (!reply.done()) {
            recover(fmt::format("command wrapper: {}", reply.in_words()));
        } else {
            move_data();
        }
    });
}

void BulkOnly::move_data() {
    if (command_.abort_after) {
        wire_.later(*command_.abort_after, [this, run = run_] {
            if (run == run_ && then_ && !recovering_) {
                recover("aborted");
            }
        });
    }
    const std::uint32_t moved = command_.moved.value_or(command_.length);
    const Endpoint& endpoint = command_.to_host ? in_ : out_;
    const auto done = [this, endpoint](const Reply& reply) { data_moved(reply, endpoint); };
    if (moved == 0) {
        read_status(false);
    } else if (command_.to_host) {
        wire_.in(endpoint, moved, wait_, done);
    } else {
        Bytes data = command_.data;
        data.resize(moved);
        wire_.out(endpoint, data, wait_, done);
    }
}

void BulkOnly::data_moved(const Reply& reply, const Endpoint& endpoint) {
    outcome_.data = reply.data;
    if (reply.done()) {
        read_status(false);
    } else if (reply.status == usb::Status::stall) {
        // The device's way to end the data early: the status says why.
        wire_.clear_halt(endpoint, [this](const Reply& cleared) {
            if (cleared.done()) {
                read_status(false);
            } else {
                recover(fmt::format("halt of the data: {}", cleared.in_words()));
            }
        });
    } else {
        recover(fmt::format("data: {}", reply.in_words()));
    }
}

void BulkOnly::read_status(bool again) {
    wire_.in(in_, kStatusLength, wait_, [this, again](const Reply& reply) {
        if (reply.status == usb::Status::stall && !again) {
            wire_.clear_halt(in_, [this](const Reply&) { read_status(true); });
        } else if (reply.done()) {
            take_status(reply);
        } else {
            recover(fmt::format("status: {}", reply.in_words()));
        }
    });
}

void BulkOnly::take_status(const Reply& reply) {
    const auto status = record_from<StatusWrapper>(reply.data);
    if (reply.data.size() != kStatusLength || status.signature != kStatusSignature) {
        recover(fmt::format("the status is none: {}", to_hex(reply.data)));
        return;
    }
    if (status.tag != tag_) {
        recover(fmt::format("the status is of command {}, not of {}", status.tag, tag_));
        return;
    }
    outcome_.residue = status.residue;
    if (status.status == 2) {
        recover("", BulkOutcome::Kind::phase_error);
    } else if (status.status > 2 || status.residue > command_.length) {
        recover(fmt::format("the status means nothing: {}", to_hex(reply.data)));
    } else {
        outcome_.kind = status.status == 0 ? BulkOutcome::Kind::passed : BulkOutcome::Kind::failed;
        finish();
    }
}

void BulkOnly::recover(std::string why, BulkOutcome::Kind kind) {
    recovering_ = true;
    outcome_.kind = kind;
    outcome_.why = std::move(why);
    wire_.abort(in_.address);
    wire_.abort(out_.address);
    const auto look = [this](const char* what, const Reply& reply) {
        if (!reply.done()) {
            outcome_.why +=
                fmt::format("{}{}: {}", outcome_.why.empty() ? "" : "; ", what, reply.in_words());
        }
    };
    constexpr std::uint8_t kResetTransport = 0xFF;
    wire_.control({0x21, kResetTransport, 0, interface_, 0}, {},
                  [look](const Reply& reply) { look("reset", reply); });
    wire_.clear_halt(in_, [look](const Reply& reply) { look("halt", reply); });
    wire_.clear_halt(out_, [this, look](const Reply& reply) {
        look("halt", reply);
        finish();
    });
}

void BulkOnly::finish() {
    const Then then = std::exchange(then_, nullptr);
    const BulkOutcome outcome = std::exchange(outcome_, {});
    then(outcome);
}

} // namespace vb::host
