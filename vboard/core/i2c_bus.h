#pragma once
// An I2C bus: messages on one side, the chips that answer to their addresses on the other. How a
// program comes to send a message is the business of the adapter's model.

#include "core/bytes.h"
#include "core/trace.h"

#include <map>
#include <set>

namespace vb {

// What a chip is to its bus. Calls come under the board's lock.
class I2cDevice {
  public:
    I2cDevice() = default;
    virtual ~I2cDevice() = default;
    I2cDevice(const I2cDevice&) = delete;
    I2cDevice& operator=(const I2cDevice&) = delete;

    // False while the chip does not acknowledge its address.
    virtual bool answers() const { return true; }
    // One write message, begun by a start or a repeated start; empty where only the address went
    // over the bus.
    virtual void write(ByteView bytes) = 0;
    // The first bytes of a read message; read_on() gives the ones after them.
    virtual Bytes read(std::size_t count) = 0;
    virtual Bytes read_on(std::size_t count) = 0;
};

struct I2cMessage {
    unsigned address = 0; // 7 bits, or more where ten_bit
    bool ten_bit = false;
    bool reads = false;
    // The first byte read tells how many more there are, up to 32; `bytes` then has room for that
    // byte and whatever is to follow the others (a checksum), and grows.
    bool counted = false;
    Bytes bytes; // what is written, or room for what is read
};

class I2cBus {
  public:
    I2cBus(unsigned number, Trace& trace) : number_(number), trace_(trace) {}

    unsigned number() const { return number_; }
    // False where another chip has the address.
    bool attach(unsigned address, I2cDevice& device);
    // Takes a chip off the bus, and puts it back.
    void mute(unsigned address, bool muted);

    // One transfer: a start, the messages with repeated starts between them, a stop. Returns 0 or
    // an errno (ENXIO: nobody acknowledged); what was done until then stays done.
    int transfer(std::span<I2cMessage> messages);

    const std::map<unsigned, I2cDevice*>& devices() const { return devices_; }
    bool has_adapter() const { return has_adapter_; }
    void set_adapter() { has_adapter_ = true; }

  private:
    int pass(I2cMessage& message);
    I2cDevice* find(const I2cMessage& message) const;

    unsigned number_;
    Trace& trace_;
    std::map<unsigned, I2cDevice*> devices_; // they belong to their models
    std::set<unsigned> muted_;
    bool has_adapter_ = false;
};

class Board;

// The bus of a number, made by whoever speaks of it first: an adapter or a chip.
I2cBus& i2c_bus(Board& board, unsigned number);

} // namespace vb
