// The host's commands to the disk and the data of its WRITEs, as the dispatcher has them.
#include "sata/sata_usb/bridge.h"
#include "support/fields.h"
#include "support/mass_event.h"

#include <atomic>

namespace {

using namespace hal::sata;

constexpr uint8_t kWrite10 = 0x2A;

// The host's WRITE. Only the dispatcher touches it, but for the two counts, which the watchdog
// reports.
std::array<uint8_t, MCU_MASS_BYTES> mass_buf;
uint32_t mass_write_off = 0;                       // where in it the next piece goes
constinit std::atomic<uint32_t> cur_lrn{0};        // bytes that came
constinit std::atomic<uint32_t> mass_write_len{0}; // that are to come in all

void tell(uint32_t kind, std::span<uint8_t> bytes) {
    hal::tell_mass_event(sata_usb_prv.mass_cb, kind, bytes);
}

} // namespace

WriteProgress hal::sata::write_progress() {
    return {cur_lrn, mass_write_len};
}

void hal::sata::take_mass_command(const tlv_info& packet) {
    // Taken before the application has the wrapper in its hands.
    const uint8_t code = packet.value[15];
    const auto length = hal::load_le<uint32_t>(std::span(packet.value + 8, 4));
    watch_command(packet);
    tell(MASS_EVENT_CBW, value_of(packet));
    if (code == kWrite10) {
        mass_write_len = length;
        mass_buf.fill(0);
        mass_write_off = 0;
        cur_lrn = 0;
    }
}

void hal::sata::take_mass_data(const tlv_info& packet) {
    std::span<const uint8_t> value = value_of(packet);
    value = value.first(std::min<std::size_t>(value.size(), mass_write_len - cur_lrn));
    while (!value.empty()) {
        const std::span<uint8_t> room = std::span(mass_buf).subspan(mass_write_off);
        const std::size_t size = std::min(room.size(), value.size());
        std::copy_n(value.begin(), size, room.begin());
        value = value.subspan(size);
        mass_write_off += static_cast<uint32_t>(size);
        cur_lrn += static_cast<uint32_t>(size);
        if (mass_write_off == mass_buf.size() || cur_lrn == mass_write_len) {
            tell(MASS_EVENT_DATA, std::span(mass_buf).first(mass_write_off));
            mass_write_off = 0;
        }
    }
}
