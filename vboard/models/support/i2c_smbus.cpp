#include "models/support/i2c_smbus.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace vb {

namespace {

std::uint8_t checksum(std::uint8_t crc, std::uint8_t byte) {
    auto value = static_cast<unsigned>(crc ^ byte);
    for (int bit = 0; bit < 8; ++bit) {
        value = (value & 0x80) != 0 ? value << 1 ^ 0x07 : value << 1;
    }
    return static_cast<std::uint8_t>(value);
}

std::uint8_t checksum_of(std::uint8_t crc, const I2cMessage& message, std::size_t count) {
    crc = checksum(crc, static_cast<std::uint8_t>(message.address << 1 | (message.reads ? 1 : 0)));
    for (std::size_t i = 0; i < count; ++i) {
        crc = checksum(crc, message.bytes[i]);
    }
    return crc;
}

// An operation as one or two messages.
class Emulation {
  public:
    explicit Emulation(const SmbusCall& call) : call_(call) {
        for (I2cMessage& message : messages_) {
            message.address = call.address;
            message.ten_bit = call.ten_bit;
        }
        messages_[1].reads = true;
        messages_[0].bytes = {call.command};
        count_ = call.reads ? 2 : 1;
    }

    int run(I2cBus& bus, i2c_smbus_data& data);

  private:
    int prepare(const i2c_smbus_data& data);
    void write_word(std::uint16_t word);
    int write_block(const i2c_smbus_data& data, bool with_count);
    void read_last(std::size_t count, bool counted = false);
    int transfer_with_checksum(I2cBus& bus);
    void finish(i2c_smbus_data& data) const;
    I2cMessage& last() { return messages_[count_ - 1]; }

    const SmbusCall& call_;
    std::array<I2cMessage, 2> messages_;
    std::size_t count_;
};

void Emulation::write_word(std::uint16_t word) {
    messages_[0].bytes.push_back(static_cast<std::uint8_t>(word));
    messages_[0].bytes.push_back(static_cast<std::uint8_t>(word >> 8));
}

int Emulation::write_block(const i2c_smbus_data& data, bool with_count) {
    if (data.block[0] > I2C_SMBUS_BLOCK_MAX) {
        return EINVAL;
    }
    messages_[0].bytes.insert(messages_[0].bytes.end(), data.block + (with_count ? 0 : 1),
                              data.block + data.block[0] + 1);
    return 0;
}

void Emulation::read_last(std::size_t count, bool counted) {
    count_ = 2;
    messages_[1].bytes.assign(count, 0);
    messages_[1].counted = counted;
}

int Emulation::prepare(const i2c_smbus_data& data) {
    switch (call_.size) {
    case I2C_SMBUS_QUICK: // the direction is all that is said
        count_ = 1;
        messages_[0].reads = call_.reads;
        messages_[0].bytes.clear();
        return 0;
    case I2C_SMBUS_BYTE:
        count_ = 1;
        messages_[0].reads = call_.reads;
        return 0;
    case I2C_SMBUS_BYTE_DATA:
        if (call_.reads) {
            read_last(1);
        } else {
            messages_[0].bytes.push_back(data.byte);
        }
        return 0;
    case I2C_SMBUS_WORD_DATA:
        if (call_.reads) {
            read_last(2);
        } else {
            write_word(data.word);
        }
        return 0;
    case I2C_SMBUS_PROC_CALL:
        write_word(data.word);
        read_last(2);
        return 0;
    case I2C_SMBUS_BLOCK_DATA:
        if (call_.reads) {
            read_last(1, true);
            return 0;
        }
        return write_block(data, true);
    case I2C_SMBUS_BLOCK_PROC_CALL:
        read_last(1, true);
        return write_block(data, true);
    case I2C_SMBUS_I2C_BLOCK_DATA:
        if (call_.reads) {
            read_last(data.block[0]);
            return data.block[0] > I2C_SMBUS_BLOCK_MAX ? EINVAL : 0;
        }
        return write_block(data, false);
    default:
        return EOPNOTSUPP;
    }
}

int Emulation::transfer_with_checksum(I2cBus& bus) {
    const I2cMessage& first = messages_[0];
    const std::uint8_t sum = first.reads ? 0 : checksum_of(0, first, first.bytes.size());
    if (count_ == 1 && !first.reads) {
        messages_[0].bytes.push_back(sum);
    } else {
        last().bytes.push_back(0);
    }
    const int error = bus.transfer(std::span(messages_).first(count_));
    if (error != 0 || !last().reads) {
        return error;
    }
    const std::size_t count = last().bytes.size() - 1;
    const bool right = checksum_of(sum, last(), count) == last().bytes[count];
    return right ? 0 : EBADMSG;
}

void Emulation::finish(i2c_smbus_data& data) const {
    const Bytes& bytes = messages_[count_ - 1].bytes;
    switch (call_.size) {
    case I2C_SMBUS_BYTE:
    case I2C_SMBUS_BYTE_DATA:
        data.byte = bytes[0];
        break;
    case I2C_SMBUS_WORD_DATA:
    case I2C_SMBUS_PROC_CALL:
        data.word = static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
        break;
    case I2C_SMBUS_I2C_BLOCK_DATA:
        std::copy_n(bytes.begin(), data.block[0], data.block + 1);
        break;
    case I2C_SMBUS_BLOCK_DATA:
    case I2C_SMBUS_BLOCK_PROC_CALL:
        std::copy_n(bytes.begin(), bytes[0] + 1, data.block);
        break;
    default:
        break;
    }
}

int Emulation::run(I2cBus& bus, i2c_smbus_data& data) {
    if (const int error = prepare(data); error != 0) {
        return error;
    }
    const bool pec =
        call_.pec && call_.size != I2C_SMBUS_QUICK && call_.size != I2C_SMBUS_I2C_BLOCK_DATA;
    const int error =
        pec ? transfer_with_checksum(bus) : bus.transfer(std::span(messages_).first(count_));
    if (error == 0 && last().reads) {
        finish(data);
    }
    return error;
}

} // namespace

int smbus_transfer(I2cBus& bus, const SmbusCall& call, i2c_smbus_data& data) {
    return Emulation(call).run(bus, data);
}

} // namespace vb
