#include "models/gadget/mass_function.h"

#include "core/board.h"
#include "models/gadget/descriptors.h"

#include <cerrno>
#include <utility>

namespace vb::gadget {

namespace {

constexpr char kMassNode[] = "/dev/mass";
constexpr std::uint8_t kMassClass = 8;
constexpr std::uint8_t kScsiSubclass = 6;
constexpr std::uint8_t kBulkOnly = 0x50;
constexpr unsigned kGetMaxLun = 0xA1FE;
constexpr unsigned kBulkOnlyReset = 0x21FF;

class MassFile;

class MassFunction : public Function, public std::enable_shared_from_this<MassFunction> {
  public:
    MassFunction(Board& board, std::string name) : board_(board), name_(std::move(name)) {}

    const std::string& name() const override { return name_; }
    std::string node() const override { return kMassNode; }
    int bind(Allocation& allocation) override;
    void unbind() override;
    bool enable(usb::Speed speed) override;
    void disable() override;
    Bytes descriptors(usb::Speed speed) const override;
    std::optional<Bytes> control(const usb::Setup& setup, ByteView data) override;

    int open(std::unique_ptr<File>& file);
    void closed(const MassFile* file) { file_ = file_ == file ? nullptr : file_; }

  private:
    void wake();

    Board& board_;
    std::string name_;
    std::shared_ptr<Node> node_; // while bound
    std::uint8_t interface_ = 0;
    bool enabled_ = false;
    InPipe in_{[this] { wake(); }};
    OutPipe out_{[this] { wake(); }};
    MassFile* file_ = nullptr;
};

class MassNode : public Node {
  public:
    explicit MassNode(std::shared_ptr<MassFunction> function)
        : Node(S_IFREG | 0666), function_(std::move(function)) {}
    Outcome open(const OpenCall&, std::unique_ptr<File>& file) override {
        const int error = function_->open(file);
        return error == 0 ? Outcome::done() : Outcome::failed(error);
    }

  private:
    std::shared_ptr<MassFunction> function_;
};

class MassFile : public File {
  public:
    MassFile(Board& board, std::shared_ptr<MassFunction> function, InPipe& in, OutPipe& out)
        : board_(board), function_(std::move(function)), in_(in), out_(out) {}
    MassFile(const MassFile&) = delete;
    MassFile& operator=(const MassFile&) = delete;
    ~MassFile() override { function_->closed(this); }

    Outcome read(std::size_t size, std::uint64_t offset) override;
    Outcome write(WriteCall& call) override;
    bool bulky() const override { return true; }
    short readiness() const override;

    void die() {
        dead_ = true;
        changed();
    }
    // The write under way ends here.
    void cancel() {
        cancelled_ = writing_.has_value();
        changed();
    }

  private:
    struct Writing {
        std::uint64_t call;
        std::size_t sent;
    };

    Board& board_;
    std::shared_ptr<MassFunction> function_; // whose pipes these are
    InPipe& in_;
    OutPipe& out_;
    bool dead_ = false;
    bool cancelled_ = false;
    std::optional<Writing> writing_; // has begun to cross, or is the next to
};

// --- one open ---

Outcome MassFile::read(std::size_t size, std::uint64_t) {
    if (dead_) {
        return Outcome::failed(ESHUTDOWN);
    }
    return out_.offered() ? Outcome::bytes(out_.take(size)) : Outcome::wait();
}

// Nothing is kept for the host but by a write that is still there: of one that a signal has ended,
// it gets nothing more.
Outcome MassFile::write(WriteCall& call) {
    if (writing_ && !board_.traffic().under_way(writing_->call)) {
        writing_.reset();
    }
    if (dead_) {
        return Outcome::failed(ESHUTDOWN);
    }
    if (!writing_) {
        writing_ = {call.id, 0};
        cancelled_ = false;
    }
    if (writing_->call != call.id) {
        return Outcome::wait(); // its turn comes
    }
    const bool all = !cancelled_ && in_.give(call.data, writing_->sent);
    if (!all && !cancelled_ && !dead_) {
        return Outcome::wait();
    }
    writing_.reset();
    changed(); // the next one's turn
    return all          ? Outcome::done(static_cast<int>(call.data.size()))
           : cancelled_ ? Outcome::failed(EIO)
                        : Outcome::failed(ESHUTDOWN);
}

short MassFile::readiness() const {
    if (dead_) {
        return POLLERR | POLLHUP;
    }
    return static_cast<short>((out_.offered() ? POLLIN | POLLRDNORM : 0) |
                              (in_.asked() && !writing_ ? POLLOUT | POLLWRNORM : 0));
}

// --- the function ---

int MassFunction::open(std::unique_ptr<File>& file) {
    if (!enabled_) {
        return ENODEV;
    }
    if (file_ != nullptr) {
        return EBUSY;
    }
    auto made = std::make_unique<MassFile>(board_, shared_from_this(), in_, out_);
    file_ = made.get();
    file = std::move(made);
    return 0;
}

void MassFunction::wake() {
    if (file_ != nullptr) {
        file_->changed();
    }
}

int MassFunction::bind(Allocation& allocation) {
    interface_ = allocation.interface(*this);
    if (!allocation.endpoint(*this, in_) || !allocation.endpoint(*this, out_)) {
        return ENODEV;
    }
    if (board_.tree().find(kMassNode)) { // the same directory, linked into another configuration
        return EEXIST;
    }
    node_ = std::make_shared<MassNode>(shared_from_this());
    board_.tree().put(kMassNode, node_);
    return 0;
}

void MassFunction::unbind() {
    if (node_) {
        board_.tree().take(kMassNode);
        std::exchange(node_, nullptr)->set_gone(true);
    }
}

std::size_t packet_at(usb::Speed speed) {
    return speed == usb::Speed::high ? 512 : 64;
}

bool MassFunction::enable(usb::Speed speed) {
    disable();
    in_.set_packet(packet_at(speed));
    out_.set_packet(packet_at(speed));
    enabled_ = true;
    return true;
}

void MassFunction::disable() {
    enabled_ = false;
    in_.drop();
    out_.drop();
    in_.halt(false);
    out_.halt(false);
    if (file_ != nullptr) {
        file_->die();
    }
}

Bytes MassFunction::descriptors(usb::Speed speed) const {
    Bytes bytes;
    append_interface(bytes, {interface_, 2, kMassClass, kScsiSubclass, kBulkOnly, 0});
    append_endpoint(bytes, in_.address(), kBulk, packet_at(speed), 0);
    append_endpoint(bytes, out_.address(), kBulk, packet_at(speed), 0);
    return bytes;
}

std::optional<Bytes> MassFunction::control(const usb::Setup& setup, ByteView) {
    if (setup.value != 0) {
        return std::nullopt;
    }
    switch (static_cast<unsigned>(setup.request_type) << 8 | setup.request) {
    case kGetMaxLun:
        return Bytes{0};
    case kBulkOnlyReset:
        in_.drop();
        out_.drop();
        if (file_ != nullptr) {
            file_->cancel();
        }
        return Bytes{};
    default:
        return std::nullopt;
    }
}

// --- the directory ---

class MassItem : public FunctionItem {
  public:
    MassItem(Board& board, bool& taken, const std::string& name)
        : FunctionItem(name), board_(board), taken_(taken) {}

    std::shared_ptr<Function> make_function() override {
        return std::make_shared<MassFunction>(board_, name());
    }
    void retire() override { taken_ = false; }

  private:
    Board& board_;
    bool& taken_;
};

} // namespace

int make_mass_item(Board& board, bool& taken, const std::string& name,
                   std::shared_ptr<FunctionItem>& item) {
    if (std::exchange(taken, true)) {
        return EBUSY;
    }
    item = std::make_shared<MassItem>(board, taken, name);
    return 0;
}

} // namespace vb::gadget
