#pragma once
// The registers of a chip as rows, behind an I2C address: one mechanism for every register chip.
//
// A write message is the register's number and then values, a read message is values from the
// register that was named last; number and values go most significant byte first, and the number
// moves on by one with every value. Registers that no row names read as 0.
//
// Misuse, reported and then ignored: a number or value that is cut short, a value for a register
// that is read-only or that the chip does not have. Bits that a row does not let a program write
// keep what they hold, without complaint: programs write whole registers.

#include "core/board.h"
#include "core/i2c_bus.h"

#include <functional>
#include <optional>

namespace vb {

struct RegisterRow {
    std::uint16_t number = 0; // of the first
    std::uint16_t count = 0;  // how many of the kind stand in a row
    const char* name = nullptr;
    std::uint16_t reset = 0;
    std::uint16_t writable = 0xFFFF; // the bits a program may set and clear; none: read-only
    std::uint16_t clear_by_one = 0;  // the bits that a program clears by writing 1
};

struct RegisterLayout {
    unsigned number_bytes; // 1 or 2
    unsigned value_bytes;  // 1 or 2
};

class RegisterTable : public I2cDevice {
  public:
    // After a program wrote a register: its number and the value before.
    using Written = std::function<void(std::uint16_t number, std::uint16_t before)>;

    // `place` is how misuse names the chip: "cdcm6208[0]". The rows outlive the table.
    RegisterTable(Board& board, std::string place, RegisterLayout layout,
                  std::span<const RegisterRow> rows);

    void write(ByteView bytes) override;
    Bytes read(std::size_t count) override;
    Bytes read_on(std::size_t count) override;

    void on_written(Written hook) { written_ = std::move(hook); }

    // The chip's own side: no row stands in its way.
    std::uint16_t value(unsigned number) const;
    void set(unsigned number, unsigned value);
    void reset();

    // Every register that holds something but 0, by its name.
    Json show() const;

  private:
    const RegisterRow* row_of(unsigned number) const;
    void store(std::uint16_t number, std::uint16_t value);
    std::uint16_t after(std::uint16_t number) const;
    void complain(const std::string& text);

    Board& board_;
    std::string place_;
    RegisterLayout layout_;
    std::span<const RegisterRow> rows_;
    std::map<unsigned, std::uint16_t> values_;
    Written written_;
    std::uint16_t pointer_ = 0;
    unsigned byte_ = 0; // of the value the pointer is at
};

} // namespace vb
