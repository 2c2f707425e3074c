#include "chip.h"

#include "family.h"

#include <algorithm>

namespace chips {

namespace {

constexpr uint32_t kWakeUpMs = 2;
constexpr uint32_t kTries = 5; // to be answered after a reset
constexpr uint32_t kEdidPiece = 64;
constexpr uint32_t kEdidStepMs = 2;

using Lock = std::lock_guard<std::mutex>;

// Writes, and reads back what was written.
template <std::size_t kMost>
int32_t write_for_sure(Services& services, uint32_t first, std::span<const uint8_t> values) {
    std::array<uint8_t, kMost> held{};
    const std::span<uint8_t> back = std::span(held).first(values.size());
    if (!services.write(first, values) || !services.read(first, back)) {
        return HAL_CHIPS_NO_ANSWER;
    }
    return std::equal(values.begin(), values.end(), back.begin()) ? 0 : HAL_CHIPS_NOT_KEPT;
}

int32_t write_byte(Services& services, uint32_t number, uint8_t value) {
    return services.write(number, {&value, 1}) ? 0 : HAL_CHIPS_NO_ANSWER;
}

} // namespace

void Chip::connect(const video_chip_services& board, const video_chip_dev_entry& entry,
                   bool fails) {
    const Lock lock(mutex_);
    services_.connect(board, entry);
    entry_ = &entry;
    fails_ = fails;
}

// --- bringing it up ---

int32_t Chip::bring_up() {
    const Lock lock(mutex_);
    inits_.count();
    up_ = false;
    if (!services_.connected()) {
        return HAL_CHIPS_NOT_UP;
    }
    if (fails_) {
        services_.say("fails, as HAL_CHIPS_FAIL wants it");
        return HAL_CHIPS_TOLD_TO_FAIL;
    }
    const uint32_t start = services_.now_us();
    services_.reset();
    edid_size_ = 0;
    owes_ = false;
    plugged_ = false;
    choose_settings();
    int32_t result = identify();
    if (result == 0) {
        result = set_up();
    }
    if (result != 0) {
        services_.say("does not come up (%d)", result);
        return result;
    }
    up_ = true;
    answers_ = true;
    services_.say("up in %u ms", (services_.now_us() - start) / 1000);
    return 0;
}

int32_t Chip::identify() {
    std::array<uint8_t, 2> identity{};
    bool answered = false;
    for (uint32_t i = 0; i < kTries && !answered; ++i) {
        services_.delay_ms(kWakeUpMs);
        answered = services_.read(kIdentity, identity);
    }
    if (!answered) {
        return HAL_CHIPS_NO_ANSWER;
    }
    return (identity[0] << 8 | identity[1]) == kFamily.identity ? 0 : HAL_CHIPS_WRONG_CHIP;
}

void Chip::choose_settings() {
    settings_.fill(0);
    settings_[kMode - kSettings] = static_cast<uint8_t>(entry_->mode);
    settings_[kMode - kSettings + 1] = static_cast<uint8_t>(entry_->mode >> 8);
    std::transform(std::begin(entry_->words), std::end(entry_->words),
                   settings_.begin() + (kOptions - kSettings), [](uint32_t word) {
                       return word == HAL_VIDEO_NONE ? kNoOption : static_cast<uint8_t>(word);
                   });
}

// All that the chip was ever told. Its flag is cleared first: if it starts over once more
// meanwhile, it says so again.
int32_t Chip::set_up() {
    int32_t result = write_byte(services_, kStatus, kStartedOver);
    if (result == 0) {
        result = write_settings();
    }
    if (result == 0 && edid_size_ > 0) {
        result = write_edid();
    }
    if (result == 0) {
        result = write_byte(services_, kControl, kRun);
    }
    return result;
}

int32_t Chip::write_settings() {
    return write_for_sure<kSettingsEnd - kSettings>(services_, kSettings, settings_);
}

// --- what it is told while it runs ---

int32_t Chip::set(Register first, std::span<const uint8_t> values) {
    const Lock lock(mutex_);
    set_ups_.count();
    if (!up_) {
        return HAL_CHIPS_NOT_UP;
    }
    std::copy(values.begin(), values.end(), settings_.begin() + (first - kSettings));
    if (!services_.write(first, values)) {
        owes_ = true;
        return HAL_CHIPS_NO_ANSWER;
    }
    return 0;
}

int32_t Chip::set_edid(std::span<const uint8_t> edid, uint32_t most_ms) {
    const Lock lock(mutex_);
    set_ups_.count();
    if (!up_) {
        return HAL_CHIPS_NOT_UP;
    }
    std::copy(edid.begin(), edid.end(), edid_.begin());
    edid_size_ = static_cast<uint32_t>(edid.size());
    edid_ms_ = most_ms;
    const int32_t result = write_edid();
    if (result == HAL_CHIPS_BAD_EDID) {
        edid_size_ = 0; // the chip would not like it better another time
        services_.say("calls the EDID bad");
    } else if (result != 0) {
        owes_ = true;
    }
    return result;
}

int32_t Chip::write_edid() {
    const auto edid = std::span<const uint8_t>(edid_).first(edid_size_);
    for (uint32_t at = 0; at < edid_size_; at += kEdidPiece) {
        const int32_t result =
            write_for_sure<kEdidPiece>(services_, kEdid + at, edid.subspan(at, kEdidPiece));
        if (result != 0) {
            return result;
        }
    }
    return check_edid();
}

// The chip looks whether what it has is an EDID.
int32_t Chip::check_edid() {
    if (const int32_t result = write_byte(services_, kEdidControl, kCheck); result != 0) {
        return result;
    }
    for (uint32_t waited = 0;; waited += kEdidStepMs) {
        uint8_t status = 0;
        if (!read_status(status)) {
            return HAL_CHIPS_NO_ANSWER;
        }
        switch (status & kEdidState) {
        case kEdidGood:
            return 0;
        case kEdidBad:
            return HAL_CHIPS_BAD_EDID;
        case kEdidNotChecked: // it has started over
            return HAL_CHIPS_NOT_KEPT;
        default:
            break;
        }
        if (waited >= edid_ms_) {
            return HAL_CHIPS_NO_ANSWER;
        }
        services_.delay_ms(kEdidStepMs);
    }
}

int32_t Chip::read_edid(std::span<uint8_t> edid) {
    const Lock lock(mutex_);
    if (!up_) {
        return HAL_CHIPS_NOT_UP;
    }
    return services_.read(kEdid, edid) ? 0 : HAL_CHIPS_NO_ANSWER;
}

// --- looking after it ---

bool Chip::read_status(uint8_t& status) {
    return services_.read(kStatus, {&status, 1});
}

int32_t Chip::serve() {
    const Lock lock(mutex_);
    serves_.count();
    if (!up_) {
        return HAL_CHIPS_NOT_UP;
    }
    uint8_t status = 0;
    const bool answers = read_status(status);
    tell_whether_it_answers(answers);
    if (!answers) {
        return HAL_CHIPS_NO_ANSWER;
    }
    tell_whether_plugged((status & kPlugged) != 0);
    const bool started_over = (status & kStartedOver) != 0;
    return started_over || owes_ ? catch_up(started_over) : 0;
}

int32_t Chip::catch_up(bool started_over) {
    if (started_over && !owes_) {
        starts_over_.count();
        services_.say("has started over");
    }
    owes_ = true; // also where this thread is cancelled now
    const int32_t result = set_up();
    owes_ = result != 0; // the next call tries again, and says nothing until it is done
    if (!owes_) {
        services_.say("set up again");
    }
    return result;
}

void Chip::tell_whether_it_answers(bool answers) {
    if (answers != answers_) {
        answers_ = answers;
        services_.say(answers ? "answers again" : "does not answer any more");
    }
}

void Chip::tell_whether_plugged(bool plugged) {
    if (plugged != plugged_) {
        plugged_ = plugged;
        plug_changes_.count();
        services_.say(plugged ? "plugged in" : "pulled out");
    }
}

int32_t Chip::read_plugged(uint8_t& plugged) {
    const Lock lock(mutex_);
    uint8_t status = 0;
    if (!up_) {
        return HAL_CHIPS_NOT_UP;
    }
    if (!read_status(status)) {
        return HAL_CHIPS_NO_ANSWER;
    }
    plugged = status & kPlugged;
    return 0;
}

void Chip::add_to(hal_chips_counters& counters) const {
    counters.inits = inits_.value();
    counters.services = serves_.value();
    counters.set_ups = set_ups_.value();
    counters.starts_over = starts_over_.value();
    counters.plug_changes = plug_changes_.value();
    services_.add_to(counters);
}

} // namespace chips
