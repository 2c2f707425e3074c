#pragma once
// What a host makes of input reports: keys and text typed, where pointers are, which fingers touch.

#include "core/board.h"
#include "host/hid_report.h"

#include <array>
#include <set>

namespace vb::host {

// Which report of which interface; what came from it stays apart from the rest.
struct HidSource {
    std::uint8_t interface;
    std::uint8_t report;
    auto operator<=>(const HidSource&) const = default; // NOLINT(modernize-use-nullptr)
};

class HidInput {
  public:
    HidInput(Board& board, std::string host) : board_(board), host_(std::move(host)) {}

    void take(const HidDescriptor& descriptor, std::uint8_t interface, const HidReport& report);
    // The device is gone, and what was held down on it is up.
    void let_go();
    // Forgets what was typed, moved and touched.
    void forget();

    // The lamps, a bit each, from that of Num Lock (bit 0).
    unsigned locks() const { return locks_; }
    void set_locks(unsigned locks);
    void on_locks(std::function<void()> listener) { locks_changed_ = std::move(listener); }

    Json typed() const;
    Json pointers() const;
    Json touches() const;

  private:
    struct Pointer {
        bool absolute = false;
        std::int64_t x = 0;
        std::int64_t y = 0;
        std::int64_t wheel = 0;
        unsigned buttons = 0;
        std::uint64_t reports = 0;
    };
    struct Finger {
        std::int64_t contact = 0;
        bool tip = false;
        std::int64_t x = 0;
        std::int64_t y = 0;
    };

    void take_keys(HidSource source, const HidReport& report);
    void key_moved(HidSource source, Usage usage, bool down);
    void type(std::uint16_t key);
    bool held(std::uint16_t left_key) const;
    void take_pointer(HidSource source, const HidReport& report);
    void take_fingers(const HidDescriptor& descriptor, HidSource source, const HidReport& report);
    Json told(HidSource source) const;
    static Json json_of(HidSource source, const Pointer& pointer);
    static Json json_of(const Finger& finger);

    Board& board_;
    std::string host_;
    std::map<HidSource, std::set<Usage>> down_;
    std::string text_;
    std::vector<std::uint16_t> consumer_; // usages, as they came
    unsigned locks_ = 0;
    std::function<void()> locks_changed_;
    std::map<HidSource, Pointer> pointers_;
    std::map<std::int64_t, Finger> fingers_; // those that touch
    std::int64_t contact_count_ = 0;         // of the newest report
    std::int64_t scan_time_ = 0;
    std::uint64_t touch_reports_ = 0;
};

} // namespace vb::host
