// One video chip: what it was told, so that it can be told again when it has started over.
#pragma once

#include "registers.h"
#include "services.h"

#include <array>
#include <mutex>

namespace chips {

class Chip {
  public:
    void connect(const video_chip_services& board, const video_chip_dev_entry& entry, bool fails);

    // Operations: each returns what an operation returns.
    int32_t bring_up();
    int32_t serve();
    int32_t set(Register first, std::span<const uint8_t> values);
    // `edid` has one block or two.
    int32_t set_edid(std::span<const uint8_t> edid, uint32_t most_ms);
    int32_t read_edid(std::span<uint8_t> edid);
    int32_t read_plugged(uint8_t& plugged);

    void add_to(hal_chips_counters& counters) const;

  private:
    // All of these under the mutex.
    int32_t identify();
    void choose_settings();
    int32_t set_up();
    int32_t catch_up(bool started_over);
    int32_t write_settings();
    int32_t write_edid();
    int32_t check_edid();
    bool read_status(uint8_t& status);
    void tell_whether_it_answers(bool answers);
    void tell_whether_plugged(bool plugged);

    std::mutex mutex_;
    Services services_;
    const video_chip_dev_entry* entry_ = nullptr;
    bool fails_ = false; // as it was told to
    bool up_ = false;
    bool owes_ = false; // the chip missed something it was to be told
    bool answers_ = false;
    bool plugged_ = false;
    std::array<uint8_t, kSettingsEnd - kSettings> settings_{};
    std::array<uint8_t, kEdidSize> edid_{};
    uint32_t edid_size_ = 0; // 0: it has none
    uint32_t edid_ms_ = 0;
    Counter inits_;
    Counter serves_;
    Counter set_ups_;
    Counter starts_over_;
    Counter plug_changes_;
};

} // namespace chips
