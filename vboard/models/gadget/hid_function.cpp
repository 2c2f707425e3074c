#include "models/gadget/hid_function.h"

#include "core/board.h"
#include "models/gadget/descriptors.h"
#include "models/gadget/tell.h"
#include "serve/device_node.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <set>
#include <utility>

namespace vb::gadget {

namespace {

constexpr std::size_t kOutRequests = 4;      // that the driver keeps ready for the host
constexpr std::size_t kLargestPacket = 1024; // of an interrupt endpoint
constexpr std::uint8_t kBootSubclass = 1;    // of an interface that can speak the boot protocol
constexpr std::uint8_t kReportProtocol = 1;
constexpr std::uint8_t kHidClass = 3;

enum HidRequest : std::uint8_t {
    kGetReport = 1,
    kGetIdle = 2,
    kGetProtocol = 3,
    kGetDescriptor = 6,
    kSetReport = 9,
    kSetIdle = 10,
    kSetProtocol = 11
};

// What is set up is what the directory said when it was linked.
class HidFunction : public Function, public std::enable_shared_from_this<HidFunction> {
  public:
    HidFunction(Board& board, std::string name, unsigned minor, HidOptions options)
        : board_(board), name_(std::move(name)), minor_(minor), options_(std::move(options)) {}

    const std::string& name() const override { return name_; }
    std::string node() const override { return fmt::format("/dev/hidg{}", minor_); }
    int bind(Allocation& allocation) override;
    void unbind() override;
    bool enable(usb::Speed speed) override;
    void disable() override;
    Bytes descriptors(usb::Speed speed) const override;
    std::optional<Bytes> control(const usb::Setup& setup, ByteView data) override;

    // --- for its opens ---
    void opened(File* file) { files_.insert(file); }
    void closed(File* file) { files_.erase(file); }
    Outcome read(std::size_t size);
    Outcome write(ByteView report);
    short readiness() const;

  private:
    struct OutReport {
        Bytes data;
        std::size_t read = 0;
    };

    bool has_out_endpoint() const { return options_.no_out_endpoint == 0; }
    Bytes hid_descriptor() const;
    std::optional<Bytes> descriptor(std::uint8_t type) const;
    bool set_protocol(std::uint16_t protocol);
    void send();
    void receive();
    void tell_files();
    void tell_of_node(const char* action);

    Board& board_;
    std::string name_;
    unsigned minor_;
    HidOptions options_;
    std::shared_ptr<Node> node_; // while bound

    std::uint8_t interface_ = 0;
    std::uint8_t text_ = 0;
    std::uint8_t active_protocol_ = kReportProtocol;
    std::uint8_t idle_ = 1;
    bool enabled_ = false;
    InPipe in_{[this] { send(); }};
    OutPipe out_{[this] { receive(); }};
    std::optional<Bytes> report_;     // waits for the host
    std::deque<OutReport> received_;  // by the endpoint
    std::optional<Bytes> set_report_; // by SET_REPORT
    std::set<File*> files_;
};

class HidFile : public File {
  public:
    explicit HidFile(std::shared_ptr<HidFunction> function) : function_(std::move(function)) {
        function_->opened(this);
    }
    HidFile(const HidFile&) = delete;
    HidFile& operator=(const HidFile&) = delete;
    ~HidFile() override { function_->closed(this); }

    Outcome read(std::size_t size, std::uint64_t) override { return function_->read(size); }
    Outcome write(WriteCall& call) override { return function_->write(call.data); }
    short readiness() const override { return function_->readiness(); }

  private:
    std::shared_ptr<HidFunction> function_;
};

// --- binding ---

int HidFunction::bind(Allocation& allocation) {
    text_ = allocation.text("HID Interface");
    interface_ = allocation.interface(*this);
    if (!allocation.endpoint(*this, in_) ||
        (has_out_endpoint() && !allocation.endpoint(*this, out_))) {
        return ENODEV;
    }
    if (board_.tree().find(node())) { // the same directory, linked into another configuration
        return EEXIST;
    }
    set_report_.reset();
    active_protocol_ = kReportProtocol;
    idle_ = 1;
    node_ = std::make_shared<DeviceNode>(
        [function = shared_from_this()] { return std::make_unique<HidFile>(function); });
    board_.tree().put(node(), node_);
    tell_of_node("add");
    return 0;
}

// The node goes, but not from under who has it open: to him the device is not configured.
void HidFunction::unbind() {
    if (node_) {
        board_.tree().take(node());
        std::exchange(node_, nullptr)->set_gone(true);
        tell_of_node("remove");
    }
}

void HidFunction::tell_of_node(const char* action) {
    tell(board_, action, fmt::format("/devices/virtual/hidg/hidg{}", minor_),
         {{"SUBSYSTEM", "hidg"},
          {"MAJOR", std::to_string(kHidMajor)},
          {"MINOR", std::to_string(minor_)},
          {"DEVNAME", fmt::format("hidg{}", minor_)}});
}

bool HidFunction::enable(usb::Speed) {
    disable();
    const std::size_t packet = options_.report_length;
    if (packet == 0 || packet > kLargestPacket) {
        return false;
    }
    in_.set_packet(packet);
    out_.set_packet(packet);
    enabled_ = true;
    tell_files();
    return true;
}

void HidFunction::disable() {
    enabled_ = false;
    in_.drop();
    out_.drop();
    in_.halt(false);
    out_.halt(false);
    report_.reset();
    received_.clear();
    tell_files();
}

// --- what the host sees ---

Bytes HidFunction::hid_descriptor() const {
    Bytes bytes;
    append(bytes, {9, kHidDescriptor, 0x01, 0x01, 0, 1, kReportDescriptor});
    append_word(bytes, options_.report_descriptor.size());
    return bytes;
}

Bytes HidFunction::descriptors(usb::Speed speed) const {
    const std::uint8_t interval = speed == usb::Speed::high ? 4 : 10;
    Bytes bytes;
    append_interface(bytes, {interface_, static_cast<std::uint8_t>(has_out_endpoint() ? 2 : 1),
                             kHidClass, options_.subclass, options_.protocol, text_});
    const Bytes hid = hid_descriptor();
    bytes.insert(bytes.end(), hid.begin(), hid.end());
    append_endpoint(bytes, in_.address(), kInterrupt, options_.report_length, interval);
    if (has_out_endpoint()) {
        append_endpoint(bytes, out_.address(), kInterrupt, options_.report_length, interval);
    }
    return bytes;
}

std::optional<Bytes> HidFunction::descriptor(std::uint8_t type) const {
    if (type == kHidDescriptor) {
        return hid_descriptor();
    }
    return type == kReportDescriptor ? std::optional(options_.report_descriptor) : std::nullopt;
}

bool HidFunction::set_protocol(std::uint16_t protocol) {
    if (protocol > kReportProtocol || options_.subclass != kBootSubclass) {
        return false;
    }
    active_protocol_ = static_cast<std::uint8_t>(protocol);
    return true;
}

std::optional<Bytes> HidFunction::control(const usb::Setup& setup, ByteView data) {
    switch (setup.request_type << 8 | setup.request) {
    case 0x8100 | kGetDescriptor:
        return descriptor(static_cast<std::uint8_t>(setup.value >> 8));
    case 0xA100 | kGetReport:
        return Bytes(std::min(setup.length, options_.report_length)); // an empty one, always
    case 0xA100 | kGetProtocol:
        return Bytes{active_protocol_};
    case 0xA100 | kGetIdle:
        return Bytes{idle_};
    case 0x2100 | kSetIdle:
        idle_ = static_cast<std::uint8_t>(setup.value >> 8);
        return Bytes{};
    case 0x2100 | kSetProtocol:
        return set_protocol(setup.value) ? std::optional(Bytes{}) : std::nullopt;
    case 0x2100 | kSetReport:
        if (has_out_endpoint()) {
            return std::nullopt;
        }
        if (!data.empty()) {
            set_report_ = Bytes(data.begin(), data.end());
            tell_files();
        }
        return Bytes{};
    default:
        return std::nullopt;
    }
}

// --- reports ---

void HidFunction::send() {
    if (report_ && in_.asked()) {
        const Bytes report = *std::exchange(report_, std::nullopt);
        std::size_t sent = 0;
        in_.give(report, sent, InPipe::End::marked);
        tell_files();
    }
}

void HidFunction::receive() {
    while (out_.offered() && received_.size() < kOutRequests) {
        received_.push_back({out_.take(options_.report_length)});
        tell_files();
    }
}

Outcome HidFunction::read(std::size_t size) {
    if (size == 0) {
        return Outcome::bytes({});
    }
    if (!has_out_endpoint()) {
        if (!set_report_) {
            return Outcome::wait();
        }
        Bytes report = *std::exchange(set_report_, std::nullopt);
        report.resize(std::min(report.size(), size));
        return Outcome::bytes(std::move(report));
    }
    if (received_.empty()) {
        return Outcome::wait();
    }
    OutReport& report = received_.front();
    const auto* from = report.data.data() + report.read;
    Bytes part(from, from + std::min(size, report.data.size() - report.read));
    report.read += part.size();
    if (report.read == report.data.size()) {
        received_.pop_front();
        receive();
    }
    return Outcome::bytes(std::move(part));
}

Outcome HidFunction::write(ByteView report) {
    if (!enabled_) {
        return Outcome::failed(ESHUTDOWN);
    }
    if (report_) {
        return Outcome::wait();
    }
    report = report.first(std::min<std::size_t>(report.size(), options_.report_length));
    report_ = Bytes(report.begin(), report.end());
    send();
    return Outcome::done(static_cast<int>(report.size()));
}

short HidFunction::readiness() const {
    const bool readable = has_out_endpoint() ? !received_.empty() : set_report_.has_value();
    const bool writable = enabled_ && !report_;
    return static_cast<short>((readable ? POLLIN | POLLRDNORM : 0) |
                              (writable ? POLLOUT | POLLWRNORM : 0));
}

void HidFunction::tell_files() {
    for (File* file : files_) {
        file->changed();
    }
}

} // namespace

std::shared_ptr<Function> make_hid_function(Board& board, const std::string& name, unsigned minor,
                                            HidOptions options) {
    return std::make_shared<HidFunction>(board, name, minor, std::move(options));
}

} // namespace vb::gadget
