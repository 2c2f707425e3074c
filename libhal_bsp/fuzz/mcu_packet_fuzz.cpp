// Packets from the MCU, as the dispatcher finds them in the ring: a byte says of which type the
// next one is, two how long it claims to be, one how much of it follows. Nothing that the
// application is handed may go beyond its block, its buffer or the command's announcement.
#include "sata/sata_usb/bridge.h"
#include "support/fields.h"

#include <hal_bsp/log.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using Slot = std::array<std::uint8_t, MCU_SLOT_BYTES>;

std::uint64_t announced = 0; // bytes of the latest WRITE(10) that have not come yet
unsigned sum = 0;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void read_all(const std::uint8_t* bytes, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        sum += bytes[i];
    }
}

void hear_report(hal_hid_data* report) {
    require(report->len >= 0 && report->len <= MCU_VALUE_BYTES);
    read_all(report->data, static_cast<std::size_t>(report->len));
}

// A command is answered at once, or the next one would be told 2 s later.
void hear_event(hal_mass_data* event) {
    read_all(event->data, event->len);
    if (event->kind == MASS_EVENT_CBW) {
        require(event->len <= MCU_VALUE_BYTES);
        const std::uint8_t* const cbw = event->data;
        if (cbw[15] == 0x2A) {
            announced = hal::load_le<std::uint32_t>(std::span(cbw + 8, 4));
        }
        const hal_mass_reply reply{0, 0, nullptr, 1};
        sata_mass_write(&reply);
    } else {
        require(event->kind == MASS_EVENT_DATA && event->len > 0 && event->len <= MCU_MASS_BYTES &&
                event->len <= announced);
        announced -= event->len;
    }
}

std::uint32_t type_of(std::uint8_t byte) {
    constexpr std::uint32_t kTypes[] = {MCU_ENUM_STATE, MCU_HID_OUTPUT, MCU_MASS_COMMAND,
                                        MCU_MASS_DATA};
    return byte < 0xF0 ? kTypes[byte % 4] : byte;
}

// Of a block as it stands no more than the header is read.
void check_header(const std::uint8_t* data, std::size_t size) {
    std::vector<std::uint8_t> block(MCU_VALUE_OFFSET);
    std::copy_n(data, std::min(size, block.size()), block.begin());
    tlv_info info{};
    const bool is_packet = analysis_tlv_packet(&info, block.data(), MCU_BLOCK_BYTES) == 0;
    require(is_packet == (block[0] == 0xBB && block[1] == 0x55));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kHead = 4;
    log_set_quiet(true);
    sata_usb_prv.hid_cb = hear_report;
    sata_usb_prv.mass_cb = hear_event;
    check_header(data, size);
    const auto slot = std::make_unique<Slot>(); // on the heap, where its end is watched
    while (size >= kHead) {
        slot->fill(0);
        make_tlv_packet(slot->data(), nullptr, 0, type_of(data[0]));
        (*slot)[0] = 0xBB;
        (*slot)[1] = 0x55;
        (*slot)[28] = data[1];
        (*slot)[29] = data[2];
        const std::size_t follows = std::min<std::size_t>(data[3], size - kHead);
        std::memcpy(slot->data() + MCU_VALUE_OFFSET, data + kHead, follows);
        hal::sata::dispatch(*slot);
        data += kHead + follows;
        size -= kHead + follows;
    }
    return 0;
}
