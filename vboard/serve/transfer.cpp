#include "serve/transfer.h"

#include "core/board.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>

namespace vb {

namespace {

Transfer::Shown show_piece(std::size_t size, std::uint64_t offset, std::optional<Bytes> bytes) {
    const std::size_t shown = bytes ? bytes->size() : 0;
    return {[size, offset, bytes = std::move(bytes)](Json& event) {
                event["size"] = size;
                if (offset != 0) {
                    event["offset"] = offset;
                }
                if (bytes) {
                    event["bytes"] = to_hex(*bytes);
                }
            },
            shown};
}

void put_code(const char* name, std::uint32_t code, Json& event) {
    event["request"] = name;
    event["code"] = fmt::format("{:#x}", code);
}

} // namespace

void Transfer::spoil_bytes(Bytes& bytes) const {
    if (!spoil_) {
        return;
    }
    if (spoil_->kind == FaultAction::Kind::shorten) {
        bytes.resize(std::min(bytes.size(), spoil_->size));
    } else if (spoil_->kind == FaultAction::Kind::garble && !bytes.empty()) {
        // At least one bit turns over, wherever the noise points.
        const std::uint64_t noise = spoil_->noise;
        bytes[noise % bytes.size()] ^= static_cast<std::uint8_t>(1U << (noise >> 61));
    }
}

Outcome OpenTransfer::attempt(Board& board) {
    std::unique_ptr<File> file;
    Outcome outcome = node_->open(call_, file);
    if (outcome.kind == Outcome::Kind::done) {
        set_open(board.traffic().new_open(call_.path, node_, std::move(file)));
    }
    return outcome;
}

Transfer::Shown OpenTransfer::show(const Outcome&) {
    return {[flags = call_.flags](Json& event) {
        static constexpr const char* kModes[] = {"read", "write", "read-write", "none"};
        event["mode"] = kModes[flags & O_ACCMODE];
        if ((flags & O_NONBLOCK) != 0) {
            event["nonblocking"] = true;
        }
    }};
}

int ChangeTransfer::change(Board& board, const std::string& name) {
    if (operation_ == Operation::make_directory) {
        return above_->make_directory(name);
    }
    if (operation_ == Operation::make_link) {
        return link_.target.error != 0 ? link_.target.error
                                       : above_->make_link(name, {link_.text, link_.target});
    }
    const std::shared_ptr<Entry> entry = above_->find(name);
    const int error = operation_ == Operation::remove_link ? above_->remove_link(name)
                                                           : above_->remove_directory(name);
    if (error == 0 && entry) {
        board.removed(path(), *entry);
    }
    return error;
}

Outcome ChangeTransfer::attempt(Board& board) {
    const std::string name(split_path(path()).second);
    if (const int error = change(board, name); error != 0) {
        return Outcome::failed(error);
    }
    made_ = above_->find(name);
    return Outcome::done();
}

Transfer::Shown ChangeTransfer::show(const Outcome&) {
    if (operation_ != Operation::make_link) {
        return {};
    }
    return {[target = link_.text](Json& event) { event["target"] = target; }, link_.text.size()};
}

Outcome ReadTransfer::attempt(Board&) {
    Outcome outcome = open()->file->read(size_, offset_);
    if (outcome.kind == Outcome::Kind::done) {
        spoil_bytes(outcome.data);
        outcome.data.resize(std::min(outcome.data.size(), size_));
        outcome.result = static_cast<int>(outcome.data.size());
    }
    return outcome;
}

Transfer::Shown ReadTransfer::show(const Outcome& outcome) {
    const bool shows_bytes = outcome.kind == Outcome::Kind::done && !open()->file->bulky();
    return show_piece(size_, offset_,
                      shows_bytes ? std::optional<Bytes>(outcome.data) : std::nullopt);
}

Outcome WriteTransfer::attempt(Board&) {
    Bytes spoiled_data;
    if (spoiled()) {
        spoiled_data.assign(data_.begin(), data_.end());
        spoil_bytes(spoiled_data);
    }
    WriteCall call{id(),    spoiled() ? ByteView(spoiled_data) : data_,
                   offset_, caller(),
                   target_, (flags_ & O_DIRECT) != 0};
    return open()->file->write(call);
}

void WriteTransfer::keep() {
    kept_.assign(data_.begin(), data_.end());
    data_ = kept_;
}

Transfer::Shown WriteTransfer::show(const Outcome&) {
    return show_piece(data_.size(), offset_,
                      open()->file->bulky() ? std::nullopt
                                            : std::optional<Bytes>({data_.begin(), data_.end()}));
}

RequestTransfer::RequestTransfer(Caller caller, const std::shared_ptr<OpenFile>& open,
                                 std::uint32_t code, std::uint64_t argument, ByteView given)
    : Transfer(caller, open->path, open), code_(code), argument_(argument), given_(given) {
    const std::span<const RequestRow> rows = open->file->requests();
    const auto found = std::find_if(rows.begin(), rows.end(),
                                    [&](const RequestRow& row) { return row.code == code; });
    if (found != rows.end()) {
        row_ = &*found;
    }
}

Outcome RequestTransfer::attempt(Board& board) {
    if (row_ == nullptr) {
        board.misuse(path(), fmt::format("unknown request {:#x}", code_));
        return Outcome::failed(open()->file->unknown_request());
    }
    Bytes record(row_->size);
    RequestCall call{*row_, argument_, record, caller(), id()};
    if (row_->takes() && !take(record)) {
        return Outcome::failed(EFAULT);
    }
    taken_ = row_->takes() ? record : Bytes{};
    return ask(call, record);
}

void RequestTransfer::keep() {
    kept_.assign(given_.begin(), given_.end());
    given_ = kept_;
}

bool RequestTransfer::take(Bytes& record) const {
    if (given_.size() < record.size()) {
        return caller().read(argument_, record);
    }
    std::copy_n(given_.begin(), record.size(), record.begin());
    return true;
}

Outcome RequestTransfer::ask(RequestCall& call, Bytes& record) const {
    if (row_->takes() && !row_->gives()) {
        spoil_bytes(record);
        record.resize(row_->size);
        call.record = record;
    }
    Outcome outcome = row_->handler(*open()->file, call);
    if (outcome.kind == Outcome::Kind::done && row_->gives()) {
        spoil_bytes(record);
        // The kernel copies what the code's size field says from the reply, and the rest is ours.
        const bool all_by_reply =
            (_IOC_DIR(code_) & _IOC_READ) != 0 && _IOC_SIZE(code_) >= record.size();
        if (!all_by_reply && !caller().write(argument_, record)) {
            return Outcome::failed(EFAULT);
        }
        outcome.data = record;
    }
    return outcome;
}

// The row may go with its file.
Transfer::Shown RequestTransfer::show(const Outcome& outcome) {
    if (row_ == nullptr) {
        return {[code = code_](Json& event) { put_code("?", code, event); }};
    }
    const bool replied = outcome.kind == Outcome::Kind::done && row_->gives();
    const std::size_t bytes = 2 * (taken_.size() + (replied ? outcome.data.size() : 0));
    return {[row = *row_, argument = argument_, taken = std::move(taken_), replied,
             reply = replied ? outcome.data : Bytes{}, code = code_](Json& event) {
                put_code(row.name, code, event);
                event["size"] = row.size;
                if (row.size == 0) {
                    event["argument"] = argument;
                }
                if (row.takes()) {
                    event["bytes"] = to_hex(taken);
                    event["record"] = decode(row.fields, taken);
                }
                if (replied) {
                    event["reply"] = to_hex(reply);
                    event["reply_record"] = decode(row.fields, reply);
                }
            },
            bytes};
}

} // namespace vb
