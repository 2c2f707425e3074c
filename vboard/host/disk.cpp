#include "host/disk.h"

#include "control/argument.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace vb::host {

namespace {

constexpr std::size_t kLargestChunk = 64 << 10;
constexpr std::size_t kMostJobs = 64;
constexpr unsigned kRetries = 3;

std::uint32_t big_endian(ByteView bytes) {
    std::uint32_t value = 0;
    for (const std::uint8_t byte : bytes.first(4)) {
        value = value << 8U | byte;
    }
    return value;
}

// Printable letters, without the blanks that fill the rest.
std::string padded_text(ByteView bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text.push_back(byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '?');
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

template <class Open>
std::shared_ptr<DiskFile> opened(const Open& open) {
    try {
        return std::make_shared<DiskFile>(open());
    } catch (const std::exception& error) {
        throw VerbError(error.what());
    }
}

} // namespace

std::unique_ptr<Disk> Disk::of(Board& board, const std::string& host, Wire& wire,
                               const Interface& interface, std::int64_t wait, std::uint64_t& jobs) {
    constexpr std::uint8_t kMassStorage = 8;
    constexpr std::uint8_t kScsi = 6;
    constexpr std::uint8_t kBulkOnly = 0x50;
    const Endpoint* in = interface.find(TransferType::bulk, true);
    const Endpoint* out = interface.find(TransferType::bulk, false);
    if (interface.interface_class != kMassStorage || interface.subclass != kScsi ||
        interface.protocol != kBulkOnly || in == nullptr || out == nullptr) {
        return nullptr;
    }
    return std::unique_ptr<Disk>(
        new Disk(board, host, BulkOnly(wire, interface.number, *in, *out, wait), jobs));
}

Disk::Disk(Board& board, std::string host, BulkOnly bulk, std::uint64_t& jobs)
    : board_(board), host_(std::move(host)), scsi_(std::move(bulk)), last_job_(jobs) {}

// --- what disk it is ---

void Disk::start() {
    scsi_.ask_units([this] { ask_name(); });
}

void Disk::ask_name() {
    constexpr std::size_t kVendorPlace = 8;
    constexpr std::size_t kProductPlace = 16;
    constexpr std::size_t kProductEnd = 32;
    scsi_.run(inquiry(), [this](const ScsiOutcome& outcome) {
        const ByteView data = outcome.bulk.data;
        if (!outcome.passed() || data.size() < kProductEnd) {
            probed(fmt::format("INQUIRY: {}, {} bytes", outcome.in_words(), data.size()));
            return;
        }
        vendor_ = padded_text(data.subspan(kVendorPlace, kProductPlace - kVendorPlace));
        product_ = padded_text(data.subspan(kProductPlace, kProductEnd - kProductPlace));
        ask_ready(0);
    });
}

void Disk::ask_ready(unsigned tries) {
    constexpr unsigned kTries = 10;
    constexpr std::int64_t kPause = 100 * kMillisecond;
    scsi_.run(test_unit_ready(), [this, tries](const ScsiOutcome& outcome) {
        if (outcome.passed()) {
            ask_capacity();
        } else if (outcome.bulk.kind == BulkOutcome::Kind::failed && tries + 1 < kTries) {
            scsi_.later(kPause, [this, tries] { ask_ready(tries + 1); });
        } else {
            probed(fmt::format("TEST UNIT READY: {}", outcome.in_words()));
        }
    });
}

void Disk::ask_capacity() {
    scsi_.run(read_capacity(), [this](const ScsiOutcome& outcome) {
        const ByteView data = outcome.bulk.data;
        if (!outcome.passed() || data.size() < 8) {
            probed(fmt::format("READ CAPACITY: {}, {} bytes", outcome.in_words(), data.size()));
            return;
        }
        blocks_ = std::uint64_t{big_endian(data)} + 1;
        block_size_ = big_endian(data.subspan(4));
        ask_protection();
    });
}

void Disk::ask_protection() {
    scsi_.run(mode_sense(), [this](const ScsiOutcome& outcome) {
        if (outcome.passed() && outcome.bulk.data.size() >= 4) {
            write_protected_ = (outcome.bulk.data[2] & 0x80U) != 0;
        }
        probed(""); // not every disk knows the command
    });
}

void Disk::probed(const std::string& error) {
    error_ = error;
    if (error_.empty() && (block_size_ == 0 || block_size_ > kLargestChunk)) {
        error_ = fmt::format("blocks of {} bytes", block_size_);
    }
    ready_to_work_ = true;
    Json event = show();
    event.update({{"host", host_}, {"state", error_.empty() ? "ready" : "unusable"}});
    board_.trace().add("usb_disk", event);
    begin_next();
}

Json Disk::show() const {
    Json shown = {{"vendor", vendor_},
                  {"product", product_},
                  {"blocks", blocks_},
                  {"block_size", block_size_},
                  {"known", ready_to_work_}};
    if (!error_.empty()) {
        shown["error"] = error_;
    }
    if (write_protected_) {
        shown["write_protected"] = *write_protected_;
    }
    if (working_) {
        const Job& job = jobs_.front();
        shown["job"] = {{"job", job.number},
                        {"operation", job.operation},
                        {"done", job.done},
                        {"bytes", job.whole},
                        {"waiting", jobs_.size() - 1}};
    }
    return shown;
}

// --- jobs ---

std::uint64_t Disk::add(Job job) {
    if (jobs_.size() >= kMostJobs) {
        throw VerbError("too many jobs wait for this disk");
    }
    job.number = ++last_job_;
    jobs_.push_back(std::move(job));
    begin_next();
    return last_job_;
}

void Disk::begin_next() {
    if (ready_to_work_ && !working_ && !jobs_.empty()) {
        working_ = true;
        tell(jobs_.front(), "started", Json::object());
        const auto begin = jobs_.front().begin;
        begin();
    }
}

void Disk::end_job(const std::string& error, const Json& details) {
    const Job job = std::move(jobs_.front());
    jobs_.pop_front();
    working_ = false;
    Json all = details;
    if (!error.empty()) {
        all["error"] = error;
    }
    tell(job, error.empty() ? "done" : "failed", all);
    scsi_.later(0, [this] { begin_next(); });
}

void Disk::tell(const Job& job, const char* state, const Json& details) const {
    Json event = {
        {"host", host_}, {"job", job.number}, {"operation", job.operation}, {"state", state}};
    if (!job.path.empty()) {
        event.update({{"path", job.path}, {"done", job.done}, {"bytes", job.whole}});
    }
    event.update(details);
    board_.trace().add("usb_disk", event);
}

void Disk::gone() {
    for (const Job& job : std::exchange(jobs_, {})) {
        tell(job, "failed", {{"error", "the disk is gone"}});
    }
}

bool Disk::usable_for_copies() {
    if (!error_.empty()) {
        end_job(error_);
    }
    return error_.empty();
}

bool Disk::chunk_passed(const ScsiOutcome& outcome, const std::function<void()>& again) {
    Job& job = jobs_.front();
    if (outcome.passed() && outcome.bulk.residue == 0) {
        job.retries = 0;
        return true;
    }
    if (outcome.attention() && ++job.retries <= kRetries) { // something changed, and we know now
        again();
    } else {
        end_job(fmt::format("{}, residue {}", outcome.in_words(), outcome.bulk.residue));
    }
    return false;
}

void Disk::count_chunk(std::size_t bytes) {
    Job& job = jobs_.front();
    const std::uint64_t tenth = std::max<std::uint64_t>(job.whole / 10, 1);
    const bool tell_of_it = job.done / tenth != (job.done + bytes) / tenth;
    job.done += bytes;
    if (tell_of_it && job.done < job.whole) {
        tell(job, "going on", Json::object());
    }
}

std::size_t Disk::chunk_size() const {
    return kLargestChunk / block_size_ * block_size_;
}

Json Disk::read_all(const std::string& path) {
    Job job;
    job.operation = "read";
    job.path = path;
    job.file = opened([&] { return DiskFile::to_write(path); });
    job.begin = [this] {
        jobs_.front().whole = blocks_ * block_size_;
        if (usable_for_copies()) {
            read_chunk();
        }
    };
    return add(std::move(job));
}

void Disk::read_chunk() {
    const Job& job = jobs_.front();
    if (job.done >= job.whole) {
        end_job("");
        return;
    }
    const std::size_t size = std::min<std::uint64_t>(job.whole - job.done, chunk_size());
    const auto block = static_cast<std::uint32_t>(job.done / block_size_);
    const auto count = static_cast<std::uint16_t>(size / block_size_);
    scsi_.run(read_blocks(block, count, block_size_), [this, size](const ScsiOutcome& outcome) {
        if (!chunk_passed(outcome, [this] { read_chunk(); })) {
            return;
        }
        if (outcome.bulk.data.size() != size) {
            end_job(fmt::format("{} bytes came instead of {}", outcome.bulk.data.size(), size));
        } else if (!jobs_.front().file->write(outcome.bulk.data)) {
            end_job(std::strerror(errno));
        } else {
            count_chunk(size);
            read_chunk();
        }
    });
}

Json Disk::write(const std::string& path, std::uint32_t block) {
    Job job;
    job.operation = "write";
    job.path = path;
    job.file = opened([&] { return DiskFile::to_read(path); });
    job.whole = job.file->size();
    job.begin = [this, block] {
        if (!usable_for_copies()) {
            return;
        }
        const std::uint64_t blocks = (jobs_.front().whole + block_size_ - 1) / block_size_;
        if (block + blocks > blocks_) {
            end_job(fmt::format("the disk has only {} blocks", blocks_));
        } else {
            write_chunk(block);
        }
    };
    return add(std::move(job));
}

// The rest of the last block is filled with zeros.
void Disk::write_chunk(std::uint32_t block) {
    const Job& job = jobs_.front();
    if (job.done >= job.whole) {
        end_job("");
        return;
    }
    const std::size_t size = std::min<std::uint64_t>(job.whole - job.done, chunk_size());
    Bytes data = job.file->read(job.done, size);
    if (data.size() != size) {
        end_job(errno == 0 ? "the file has become shorter" : std::strerror(errno));
        return;
    }
    const std::size_t count = (size + block_size_ - 1) / block_size_;
    data.resize(count * block_size_);
    const auto next = static_cast<std::uint32_t>(block + count);
    scsi_.run(write_blocks(block, static_cast<std::uint16_t>(count), std::move(data)),
              [this, size, block, next](const ScsiOutcome& outcome) {
                  if (chunk_passed(outcome, [this, block] { write_chunk(block); })) {
                      count_chunk(size);
                      write_chunk(next);
                  }
              });
}

Json Disk::command(BulkCommand command) {
    Job job;
    job.operation = "command";
    job.begin = [this, command = std::move(command)] {
        scsi_.run(command, [this](const ScsiOutcome& outcome) { end_job("", outcome.describe()); });
    };
    return add(std::move(job));
}

} // namespace vb::host
