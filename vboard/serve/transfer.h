#pragma once
// One call on a node, from its arrival until its answer: what it asks of the model, and what the
// trace is to show of it.

#include "core/faults.h"
#include "core/trace.h"
#include "serve/file.h"
#include "serve/tree.h"

#include <fcntl.h>

#include <list>
#include <memory>

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

    Transfer(Caller caller, std::string path, std::shared_ptr<OpenFile> open)
        : caller_(caller), path_(std::move(path)), open_(std::move(open)) {}
    virtual ~Transfer() = default;
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    virtual Operation operation() const = 0;
    virtual std::string request_name() const { return {}; }
    virtual std::uint32_t request_code() const { return 0; }
    // Asks the model. May be called again after it answered Outcome::wait().
    virtual Outcome attempt(Board& board) = 0;
    // What it is about is no longer in the tree.
    virtual bool gone() const { return open_->gone; }
    virtual bool nonblocking() const { return false; }
    // It is not answered yet, and what the caller handed over is about to go: keep what is needed.
    virtual void keep() {}
    // Who sends the outcome to the caller; called once, without the board's lock.
    void on_answer(Answer answer) { answer_ = std::move(answer); }
    // What the trace is to show of the call besides what all calls have. Asked once, at its end:
    // the bytes that only the trace still needs are given away.
    struct Shown {
        Trace::Tell details;
        std::size_t bytes = 0; // of what is shown
    };
    virtual Shown show(const Outcome& outcome) = 0;

    const Caller& caller() const { return caller_; }
    const std::string& path() const { return path_; }
    const std::shared_ptr<OpenFile>& open() const { return open_; }
    // A fault that changes bytes: applied by attempt().
    void spoil(const FaultAction& action) { spoil_ = action; }

  protected:
    bool spoiled() const { return spoil_.has_value(); }
    std::uint64_t id() const { return id_; }
    void spoil_bytes(Bytes& bytes) const;
    void set_open(std::shared_ptr<OpenFile> open) { open_ = std::move(open); }

  private:
    friend class Traffic;

    std::uint64_t id_ = 0;
    std::int64_t since_ = 0; // board time
    Caller caller_;
    std::string path_;
    std::shared_ptr<OpenFile> open_;
    Answer answer_;
    std::optional<FaultAction> spoil_;
    bool finished_ = false;
};

class OpenTransfer : public Transfer {
  public:
    OpenTransfer(Caller caller, const OpenCall& call, std::shared_ptr<Node> node)
        : Transfer(caller, call.path, nullptr), call_(call), node_(std::move(node)) {}
    Operation operation() const override { return Operation::open; }
    Outcome attempt(Board& board) override;
    bool gone() const override { return node_->gone(); }
    bool nonblocking() const override { return (call_.flags & O_NONBLOCK) != 0; }
    Shown show(const Outcome& outcome) override;

  private:
    OpenCall call_;
    std::shared_ptr<Node> node_;
};

// What a program asks of a directory: mkdir(2), rmdir(2), symlink(2) or unlink(2).
class ChangeTransfer : public Transfer {
  public:
    struct Link {
        std::string text;
        Found target;
    };

    ChangeTransfer(Caller caller, Operation operation, std::string path,
                   std::shared_ptr<Directory> above, Link link = {})
        : Transfer(caller, std::move(path), nullptr),
          operation_(operation),
          above_(std::move(above)),
          link_(std::move(link)) {}
    Operation operation() const override { return operation_; }
    Outcome attempt(Board& board) override;
    bool gone() const override { return above_->gone(); }
    Shown show(const Outcome& outcome) override;

    // What was made.
    const std::shared_ptr<Entry>& made() const { return made_; }

  private:
    int change(Board& board, const std::string& name);

    Operation operation_;
    std::shared_ptr<Directory> above_;
    Link link_;
    std::shared_ptr<Entry> made_;
};

class ReadTransfer : public Transfer {
  public:
    ReadTransfer(Caller caller, const std::shared_ptr<OpenFile>& open, std::size_t size,
                 std::uint64_t offset, bool nonblocking)
        : Transfer(caller, open->path, open),
          size_(size),
          offset_(offset),
          nonblocking_(nonblocking) {}
    Operation operation() const override { return Operation::read; }
    Outcome attempt(Board& board) override;
    bool nonblocking() const override { return nonblocking_; }
    Shown show(const Outcome& outcome) override;

  private:
    std::size_t size_;
    std::uint64_t offset_;
    bool nonblocking_;
};

class WriteTransfer : public Transfer {
  public:
    WriteTransfer(Caller caller, const std::shared_ptr<OpenFile>& open, ByteView data,
                  std::uint64_t offset, int flags, Found target)
        : Transfer(caller, open->path, open),
          data_(data),
          offset_(offset),
          flags_(flags),
          target_(std::move(target)) {}
    Operation operation() const override { return Operation::write; }
    Outcome attempt(Board& board) override;
    bool nonblocking() const override { return (flags_ & O_NONBLOCK) != 0; }
    void keep() override;
    Shown show(const Outcome& outcome) override;

  private:
    ByteView data_;
    Bytes kept_; // the same, once the caller's is gone
    std::uint64_t offset_;
    int flags_; // of the open, as they are now
    Found target_;
};

class SyncTransfer : public Transfer {
  public:
    SyncTransfer(Caller caller, const std::shared_ptr<OpenFile>& open)
        : Transfer(caller, open->path, open) {}
    Operation operation() const override { return Operation::sync; }
    Outcome attempt(Board&) override { return open()->file->sync(); }
    Shown show(const Outcome&) override { return {}; }
};

class RequestTransfer : public Transfer {
  public:
    // `given` is what the kernel has copied of the record, as far as the code says that there is
    // something.
    RequestTransfer(Caller caller, const std::shared_ptr<OpenFile>& open, std::uint32_t code,
                    std::uint64_t argument, ByteView given);
    Operation operation() const override { return Operation::request; }
    std::string request_name() const override { return row_ == nullptr ? "" : row_->name; }
    std::uint32_t request_code() const override { return code_; }
    Outcome attempt(Board& board) override;
    void keep() override;
    Shown show(const Outcome& outcome) override;

  private:
    bool take(Bytes& record) const;
    Outcome ask(RequestCall& call, Bytes& record) const;

    std::uint32_t code_;
    std::uint64_t argument_;
    ByteView given_;
    Bytes kept_; // the same, once the caller's call has to wait
    const RequestRow* row_ = nullptr;
    Bytes taken_; // the record as the caller gave it
};

} // namespace vb
