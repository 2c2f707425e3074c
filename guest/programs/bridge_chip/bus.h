#pragma once
// What is behind the bridge chip: an I2C bus with chips of plain registers, and eight lines.

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace bridge {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

std::string hex(ByteView bytes);

// Registers of a byte each. A write is a register's number, its high byte first, and then values;
// a read goes on at the register that was named last. Behind the last register comes the first.
class RegisterChip {
  public:
    RegisterChip(unsigned number_bytes, std::size_t registers);

    void hold(std::size_t at, std::string_view text); // which has to fit
    void write(ByteView bytes);
    Bytes read(std::size_t count);
    // Rows of sixteen registers, those that hold something.
    std::string show() const;

    bool muted = false; // does not acknowledge its address

  private:
    std::size_t number_bytes_;
    Bytes registers_;
    std::size_t at_ = 0;
};

// Keeps what goes over it in words: "write 0x50 10ab", "read 0x50 ab", "write 0x11 nobody".
class Bus {
  public:
    Bus();

    bool write(unsigned address, ByteView bytes); // false: nobody acknowledged the address
    std::optional<Bytes> read(unsigned address, std::size_t count);

    RegisterChip* chip(unsigned address); // null: there is none
    std::string take_said();

  private:
    RegisterChip* answering(unsigned address);
    void say(const char* direction, unsigned address, const std::string& what);

    std::map<unsigned, RegisterChip> chips_;
    std::string said_;
};

// Lines as bits.
class Lines {
  public:
    static constexpr unsigned kCount = 8;

    std::uint8_t outputs = 0; // the others are inputs
    std::uint8_t driven = 0;  // the levels of those that are outputs
    std::uint8_t outside = 0; // the levels that the world gives those that are not

    std::uint8_t levels() const;
    std::string show() const; // "0 in 1", a line each
};

} // namespace bridge
