#pragma once
// The bridge chip as its USB host sees it, which is a HID device of reports without meaning to HID:
// as the kernel's driver hid-cp2112 wants it.

#include "bridge_chip/bus.h"

namespace bridge {

// What HID is told of the reports there are.
Bytes report_descriptor();

class Chip {
  public:
    // Feature reports, the number in front. Empty: the chip has no such report.
    Bytes feature(std::uint8_t number);
    bool set_feature(ByteView report); // false: the chip has no such report to set

    // An output report; returns the input report that answers it, if one does.
    std::optional<Bytes> take(ByteView report);

    Bus& bus() { return bus_; }
    Lines& lines() { return lines_; }
    // How often the host has asked for the lines' levels: it learns of edges by that.
    unsigned long looks() const { return looks_; }

  private:
    void begin_read(unsigned address, std::size_t count);
    void end(bool acknowledged, std::size_t count);
    Bytes status() const;
    Bytes next_read(std::size_t most);

    Bus bus_;
    Lines lines_;
    unsigned long looks_ = 0;
    Bytes smbus_settings_ = default_smbus_settings();
    Bytes line_settings_ = {0, 0, 0}; // push-pull, special functions, clock divider: kept only
    Bytes unread_;                    // what a read has brought, less what the host has fetched
    std::uint8_t state_ = 0;          // of the last transfer: idle
    std::uint8_t why_ = 0;
    std::size_t transferred_ = 0;

    static Bytes default_smbus_settings();
};

} // namespace bridge
