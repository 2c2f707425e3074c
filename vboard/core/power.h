#pragma once
// The board's power: how it goes, what is lost with it, and whether the board starts again.
//
// - In a cut everything on the board dies at once, and what storage had not flushed is lost, torn
//   or kept as chance will have it, the same with the same seed.
// - A restart is orderly: storage is flushed, then all programs end, then the board starts again.
// - When the board's program ends by itself, storage is flushed too.

#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <stdexcept>
#include <vector>

namespace vb {

class Board;

// The board has power but cannot come up: its program is not started.
class BootFailure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Something that outlives a loss of power, if it was flushed.
class Storage {
  public:
    virtual void flush() = 0;
    virtual void lose_power(std::mt19937_64& chance) = 0;

  protected:
    ~Storage() = default;
};

class Power {
  public:
    explicit Power(Board& board) : board_(board) {}

    // --- for whoever runs the board ---

    // Ends every program of the board, for good or to start it `again`.
    void on_end(std::function<void(bool again)> end) { end_ = std::move(end); }
    // Which start of the board this is, from 1.
    void set_start(unsigned start) { start_ = start; }
    // The program has ended by itself.
    void shut_down();
    void add_verbs();

    // --- for storage, inside act() ---

    // It has to outlive the board's programs, or be removed.
    void add(Storage& storage) { storages_.push_back(&storage); }
    void remove(Storage& storage) { std::erase(storages_, &storage); }
    // False when it is gone: nothing is answered any more.
    bool on() const { return on_; }
    // A write has reached storage and is not flushed yet. True where the power went with it: the
    // call is not answered.
    bool count_write();

  private:
    struct Order {
        std::uint64_t at_write;
        std::uint64_t seed;
        bool again;
    };

    void cut(std::uint64_t seed, bool again);
    void restart();
    void flush();
    void end(const char* how, bool again);

    Board& board_;
    std::vector<Storage*> storages_;
    std::function<void(bool)> end_;
    std::optional<Order> order_;
    std::uint64_t writes_ = 0;
    unsigned start_ = 1;
    bool on_ = true;
};

} // namespace vb
