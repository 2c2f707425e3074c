#include "serve/transfer.h"

#include "core/board.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>

namespace vb {

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

void OpenTransfer::describe(const Outcome&, Json& event) const {
    static constexpr const char* kModes[] = {"read", "write", "read-write", "none"};
    event["mode"] = kModes[call_.flags & O_ACCMODE];
    if ((call_.flags & O_NONBLOCK) != 0) {
        event["nonblocking"] = true;
    }
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

void ChangeTransfer::describe(const Outcome&, Json& event) const {
    if (operation_ == Operation::make_link) {
        event["target"] = link_.text;
    }
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

void ReadTransfer::describe(const Outcome& outcome, Json& event) const {
    event["size"] = size_;
    if (offset_ != 0) {
        event["offset"] = offset_;
    }
    if (outcome.kind == Outcome::Kind::done && !open()->file->bulky()) {
        event["bytes"] = to_hex(outcome.data);
    }
}

Outcome WriteTransfer::attempt(Board&) {
    Bytes spoiled_data;
    if (spoiled()) {
        spoiled_data.assign(data_.begin(), data_.end());
        spoil_bytes(spoiled_data);
    }
    WriteCall call{id(), spoiled() ? ByteView(spoiled_data) : data_, offset_, caller(), target_};
    return open()->file->write(call);
}

void WriteTransfer::keep() {
    kept_.assign(data_.begin(), data_.end());
    data_ = kept_;
}

void WriteTransfer::describe(const Outcome&, Json& event) const {
    event["size"] = data_.size();
    if (offset_ != 0) {
        event["offset"] = offset_;
    }
    if (!open()->file->bulky()) {
        event["bytes"] = to_hex(data_);
    }
}

RequestTransfer::RequestTransfer(Caller caller, const std::shared_ptr<OpenFile>& open,
                                 std::uint32_t code, std::uint64_t argument)
    : Transfer(caller, open->path, open), code_(code), argument_(argument) {
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
        return Outcome::failed(ENOTTY);
    }
    Bytes record(row_->size);
    RequestCall call{*row_, argument_, record, caller(), id()};
    if (row_->takes() && !caller().read(argument_, record)) {
        return Outcome::failed(EFAULT);
    }
    taken_ = row_->takes() ? record : Bytes{};
    return ask(call, record);
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

void RequestTransfer::describe(const Outcome& outcome, Json& event) const {
    event["request"] = row_ == nullptr ? "?" : row_->name;
    event["code"] = fmt::format("{:#x}", code_);
    if (row_ == nullptr) {
        return;
    }
    event["size"] = row_->size;
    if (row_->size == 0) {
        event["argument"] = argument_;
    }
    if (row_->takes()) {
        event["bytes"] = to_hex(taken_);
        event["record"] = decode(row_->fields, taken_);
    }
    if (outcome.kind == Outcome::Kind::done && row_->gives()) {
        event["reply"] = to_hex(outcome.data);
        event["reply_record"] = decode(row_->fields, outcome.data);
    }
}

} // namespace vb
