#pragma once
// Calls that are under way: each open, request, read or write from its arrival until its answer.
// This is where faults strike, where waiting calls wait, and where the trace is written; the
// models know nothing of it, and it knows nothing of how the answer travels to the caller.

#include "core/faults.h"
#include "core/file.h"
#include "core/tree.h"

#include <list>
#include <memory>
#include <unordered_map>
#include <unordered_set>

namespace vb {

class Board;
class Transfer;

// One open of a node.
struct OpenFile {
    std::uint64_t id = 0;
    std::string path;
    std::unique_ptr<File> file;
    std::shared_ptr<Node> node;                   // kept while open, also when it has vanished
    bool gone = false;                            // the node vanished under its user
    std::list<std::shared_ptr<Transfer>> waiting; // calls the model has no answer for yet
    std::function<void()> wake;                   // set while somebody polls: look again
};

class Transfer {
  public:
    using Answer = std::function<void(const Outcome&)>;

    Transfer(pid_t thread, std::string path, std::shared_ptr<OpenFile> open)
        : thread_(thread), path_(std::move(path)), open_(std::move(open)) {}
    virtual ~Transfer() = default;
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    virtual Operation operation() const = 0;
    virtual std::string request_name() const { return {}; }
    virtual std::uint32_t request_code() const { return 0; }
    // Asks the model. May be called again after it answered Outcome::wait().
    virtual Outcome attempt(Board& board) = 0;
    virtual bool nonblocking() const { return false; }
    // Who sends the outcome to the caller; called once, without the board's lock.
    void on_answer(Answer answer) { answer_ = std::move(answer); }
    // What the trace is to show of the call.
    virtual void describe(const Outcome& outcome, Json& event) const = 0;

    pid_t thread() const { return thread_; }
    const std::string& path() const { return path_; }
    const std::shared_ptr<OpenFile>& open() const { return open_; }
    // A fault that changes bytes: applied by attempt().
    void spoil(const FaultAction& action) { spoil_ = action; }

  protected:
    void spoil_bytes(Bytes& bytes) const;
    void set_open(std::shared_ptr<OpenFile> open) { open_ = std::move(open); }

  private:
    friend class Transfers;

    std::uint64_t id_ = 0;
    pid_t thread_;
    std::string path_;
    std::shared_ptr<OpenFile> open_;
    Answer answer_;
    std::optional<FaultAction> spoil_;
    bool finished_ = false;
};

class OpenTransfer : public Transfer {
  public:
    OpenTransfer(const OpenCall& call, std::shared_ptr<Node> node)
        : Transfer(call.thread, call.path, nullptr), call_(call), node_(std::move(node)) {}
    Operation operation() const override { return Operation::open; }
    Outcome attempt(Board& board) override;
    void describe(const Outcome& outcome, Json& event) const override;

  private:
    OpenCall call_;
    std::shared_ptr<Node> node_;
};

class ReadTransfer : public Transfer {
  public:
    ReadTransfer(pid_t thread, const std::shared_ptr<OpenFile>& open, std::size_t size,
                 std::uint64_t offset, bool nonblocking)
        : Transfer(thread, open->path, open),
          size_(size),
          offset_(offset),
          nonblocking_(nonblocking) {}
    Operation operation() const override { return Operation::read; }
    Outcome attempt(Board& board) override;
    bool nonblocking() const override { return nonblocking_; }
    void describe(const Outcome& outcome, Json& event) const override;

  private:
    std::size_t size_;
    std::uint64_t offset_;
    bool nonblocking_;
};

class WriteTransfer : public Transfer {
  public:
    WriteTransfer(pid_t thread, const std::shared_ptr<OpenFile>& open, Bytes data,
                  std::uint64_t offset, bool nonblocking)
        : Transfer(thread, open->path, open),
          data_(std::move(data)),
          offset_(offset),
          nonblocking_(nonblocking) {}
    Operation operation() const override { return Operation::write; }
    Outcome attempt(Board& board) override;
    bool nonblocking() const override { return nonblocking_; }
    void describe(const Outcome& outcome, Json& event) const override;

  private:
    Bytes data_;
    std::uint64_t offset_;
    bool nonblocking_;
};

class SyncTransfer : public Transfer {
  public:
    SyncTransfer(pid_t thread, const std::shared_ptr<OpenFile>& open)
        : Transfer(thread, open->path, open) {}
    Operation operation() const override { return Operation::sync; }
    Outcome attempt(Board&) override { return open()->file->sync(); }
    void describe(const Outcome&, Json&) const override {}
};

class RequestTransfer : public Transfer {
  public:
    RequestTransfer(pid_t thread, const std::shared_ptr<OpenFile>& open, std::uint32_t code,
                    std::uint64_t argument);
    Operation operation() const override { return Operation::request; }
    std::string request_name() const override { return row_ == nullptr ? "" : row_->name; }
    std::uint32_t request_code() const override { return code_; }
    Outcome attempt(Board& board) override;
    void describe(const Outcome& outcome, Json& event) const override;

  private:
    Outcome ask(RequestCall& call, Bytes& record) const;

    std::uint32_t code_;
    std::uint64_t argument_;
    const RequestRow* row_ = nullptr;
    Bytes taken_; // the record as the caller gave it
};

class Transfers {
  public:
    explicit Transfers(Board& board) : board_(board) {}

    // A number for a call, by which it can be interrupted; free of the board's lock.
    static std::uint64_t new_id();
    void start(std::uint64_t id, const std::shared_ptr<Transfer>& transfer);
    bool under_way(std::uint64_t id) const { return live_.contains(id); }
    void interrupt(std::uint64_t id);
    // Lets the calls that a hold fault keeps under this tag go on; returns how many.
    std::size_t release(const std::string& tag);
    // How many calls a hold fault keeps under this tag.
    std::size_t held(const std::string& tag) const;

    std::shared_ptr<OpenFile> new_open(const std::string& path, std::shared_ptr<Node> node,
                                       std::unique_ptr<File> file);
    void close(const std::shared_ptr<OpenFile>& open);
    // The node is gone: everybody who has it open is told, now and at each later call.
    void vanish(const std::string& path);
    std::size_t open_count(const std::string& path) const;

    // Makes the calls again that may go on after what has happened since.
    void settle();

  private:
    void proceed(const std::shared_ptr<Transfer>& transfer);
    void attempt(const std::shared_ptr<Transfer>& transfer);
    void finish(const std::shared_ptr<Transfer>& transfer, const Outcome& outcome);
    bool strike(const std::shared_ptr<Transfer>& transfer);

    Board& board_;
    std::unordered_map<std::uint64_t, std::shared_ptr<Transfer>> live_;
    std::map<std::string, std::vector<std::shared_ptr<Transfer>>> held_;
    std::unordered_map<std::uint64_t, std::shared_ptr<OpenFile>> opens_;
    std::unordered_set<std::uint64_t> changed_; // opens to look at again
    std::uint64_t next_open_ = 1;
};

} // namespace vb
