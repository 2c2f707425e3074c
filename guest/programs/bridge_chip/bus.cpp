#include "bridge_chip/bus.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace bridge {

namespace {

struct ChipRow {
    unsigned address;
    unsigned number_bytes;
    std::size_t registers;
    std::size_t at; // the register from which on it holds this at the start; the others are 0
    const char* text;
};

constexpr ChipRow kChips[] = {
    {0x50, 1, 256, 0x80, "a small EEPROM"},
    {0x3C, 2, 4096, 0, ""},
};

constexpr std::size_t kMostSaid = std::size_t{64} * 1024; // nobody may ever ask
constexpr std::size_t kRow = 16;

std::string hex_number(std::size_t value, int digits) {
    char text[24];
    std::snprintf(text, sizeof text, "%0*zx", digits, value);
    return text;
}

} // namespace

std::string hex(ByteView bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += hex_number(byte, 2);
    }
    return text;
}

// --- a chip ---

RegisterChip::RegisterChip(unsigned number_bytes, std::size_t registers)
    : number_bytes_(number_bytes), registers_(registers) {}

void RegisterChip::hold(std::size_t at, std::string_view text) {
    std::copy(text.begin(), text.end(), registers_.begin() + static_cast<std::ptrdiff_t>(at));
}

void RegisterChip::write(ByteView bytes) {
    if (bytes.size() < number_bytes_) {
        return;
    }
    at_ = 0;
    for (const std::uint8_t byte : bytes.first(number_bytes_)) {
        at_ = at_ << 8 | byte;
    }
    at_ %= registers_.size();
    for (const std::uint8_t byte : bytes.subspan(number_bytes_)) {
        registers_[at_] = byte;
        at_ = (at_ + 1) % registers_.size();
    }
}

Bytes RegisterChip::read(std::size_t count) {
    Bytes bytes(count);
    for (std::uint8_t& byte : bytes) {
        byte = registers_[at_];
        at_ = (at_ + 1) % registers_.size();
    }
    return bytes;
}

std::string RegisterChip::show() const {
    std::string text;
    const ByteView all = registers_;
    for (std::size_t at = 0; at < all.size(); at += kRow) {
        const ByteView row = all.subspan(at, kRow);
        if (std::any_of(row.begin(), row.end(), [](std::uint8_t byte) { return byte != 0; })) {
            text += hex_number(at, 4) + " " + hex(row) + "\n";
        }
    }
    return text;
}

// --- the bus ---

Bus::Bus() {
    for (const ChipRow& row : kChips) {
        RegisterChip chip(row.number_bytes, row.registers);
        chip.hold(row.at, row.text);
        chips_.emplace(row.address, std::move(chip));
    }
}

RegisterChip* Bus::chip(unsigned address) {
    const auto found = chips_.find(address);
    return found == chips_.end() ? nullptr : &found->second;
}

RegisterChip* Bus::answering(unsigned address) {
    RegisterChip* found = chip(address);
    return found == nullptr || found->muted ? nullptr : found;
}

void Bus::say(const char* direction, unsigned address, const std::string& what) {
    if (said_.size() < kMostSaid) {
        said_ += std::string(direction) + " 0x" + hex_number(address, 2) + " " + what + "\n";
    }
}

bool Bus::write(unsigned address, ByteView bytes) {
    RegisterChip* to = answering(address);
    say("write", address, to == nullptr ? "nobody" : hex(bytes));
    if (to != nullptr) {
        to->write(bytes);
    }
    return to != nullptr;
}

std::optional<Bytes> Bus::read(unsigned address, std::size_t count) {
    RegisterChip* from = answering(address);
    if (from == nullptr) {
        say("read", address, "nobody");
        return std::nullopt;
    }
    Bytes bytes = from->read(count);
    say("read", address, hex(bytes));
    return bytes;
}

std::string Bus::take_said() {
    return std::exchange(said_, {});
}

// --- the lines ---

std::uint8_t Lines::levels() const {
    return static_cast<std::uint8_t>((driven & outputs) | (outside & ~outputs));
}

std::string Lines::show() const {
    std::string text;
    for (unsigned line = 0; line < kCount; ++line) {
        text += std::to_string(line) + ((outputs >> line & 1) != 0 ? " out " : " in ") +
                ((levels() >> line & 1) != 0 ? "1\n" : "0\n");
    }
    return text;
}

} // namespace bridge
