#pragma once
// A host's disk driver: looks what disk there is, and copies it, or does single commands, one job
// after another. What becomes of a job is told by trace events of kind "usb_disk".

#include "core/board.h"
#include "host/disk_file.h"
#include "host/scsi_host.h"

#include <deque>

namespace vb::host {

class Disk {
  public:
    // Of a mass-storage interface that speaks SCSI over the Bulk-Only Transport; null for others.
    // `jobs` counts the jobs of all disks the host ever has.
    static std::unique_ptr<Disk> of(Board& board, const std::string& host, Wire& wire,
                                    const Interface& interface, std::int64_t wait,
                                    std::uint64_t& jobs);

    void start();
    // Fails all that is under way.
    void gone();
    bool busy() const { return !ready_to_work_ || !jobs_.empty(); }
    Json show() const;

    // Each returns the job's number.
    Json read_all(const std::string& path);
    Json write(const std::string& path, std::uint32_t block);
    Json command(BulkCommand command);

  private:
    struct Job {
        std::uint64_t number = 0;
        std::string operation;
        std::function<void()> begin;
        std::string path = {};
        std::shared_ptr<DiskFile> file = {};
        std::uint64_t done = 0; // bytes
        std::uint64_t whole = 0;
        unsigned retries = 0;
    };

    Disk(Board& board, std::string host, BulkOnly bulk, std::uint64_t& jobs);

    void ask_name();
    void ask_ready(unsigned tries);
    void ask_capacity();
    void ask_protection();
    void probed(const std::string& error);
    std::uint64_t add(Job job);
    void begin_next();
    void end_job(const std::string& error, const Json& details = Json::object());
    void tell(const Job& job, const char* state, const Json& details) const;
    bool usable_for_copies();
    void read_chunk();
    void write_chunk(std::uint32_t block);
    // Whether a chunk has come over; ends the job, or does the chunk again, where not.
    bool chunk_passed(const ScsiOutcome& outcome, const std::function<void()>& again);
    void count_chunk(std::size_t bytes);
    std::size_t chunk_size() const;

    Board& board_;
    std::string host_;
    ScsiHost scsi_;
    std::uint64_t& last_job_;
    bool ready_to_work_ = false; // the disk has been looked at
    std::string error_;          // why it is none
    std::string vendor_;
    std::string product_;
    std::uint64_t blocks_ = 0;
    std::uint32_t block_size_ = 0;
    std::optional<bool> write_protected_;
    std::deque<Job> jobs_;
    bool working_ = false; // the first of them is under way
};

} // namespace vb::host
