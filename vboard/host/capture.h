#pragma once
// What crosses the wire, as a capture file: pcap with the records of Linux' usbmon, in its longer
// form (link type 220). Times are board time.

#include "host/usb.h"

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace vb::host {

enum class TransferType : std::uint8_t { interrupt = 1, control = 2, bulk = 3 };

// A transfer, as both of its records tell of it.
struct CapturedTransfer {
    std::uint64_t id = 0;
    TransferType type = TransferType::control;
    std::uint8_t endpoint = 0; // with the direction, for endpoint 0 too
    std::uint8_t device = 0;
    std::optional<usb::Setup> setup;
    std::uint8_t interval = 0;
    std::size_t length = 0; // at most
};

class Capture {
  public:
    // The part that models find it as, where one is wanted.
    static constexpr char kName[] = "capture";

    // Board time in nanoseconds since the board started.
    explicit Capture(std::function<std::int64_t()> now) : now_(std::move(now)) {}

    // False with errno where the file cannot be written.
    bool write_to(const std::string& path, bool append);

    void submitted(const CapturedTransfer& transfer, ByteView data);
    // `status` is 0 or a negative errno.
    void completed(const CapturedTransfer& transfer, int status, ByteView data);

  private:
    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    struct Record;

    void put(const Record& record, ByteView data);

    std::function<std::int64_t()> now_;
    std::unique_ptr<std::FILE, Closer> file_;
};

} // namespace vb::host
