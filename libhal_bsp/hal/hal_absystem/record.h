// The boot-control record itself: its defaults, its checksum, and whether it can be trusted.
#pragma once

#include <hal_bsp/absystem.h>

#include <cstddef>

static_assert(sizeof(avb_slot_info) == 4 && offsetof(avb_slot_info, tries_remaining) == 1 &&
              offsetof(avb_slot_info, boot_success) == 2);
static_assert(sizeof(avb_ctrl_block) == 32 && offsetof(avb_ctrl_block, version_major) == 4 &&
              offsetof(avb_ctrl_block, slots) == 8 && offsetof(avb_ctrl_block, last_boot) == 16 &&
              offsetof(avb_ctrl_block, crc32) == 28);

namespace hal::avb {

inline constexpr uint8_t kTopPriority = 15;
inline constexpr uint8_t kNextPriority = 14;

avb_ctrl_block default_record();
void update_crc(avb_ctrl_block& record);
// Logs the first thing that is wrong with it.
bool verify(const avb_ctrl_block& record);
// The slot that is to be booted.
unsigned current_slot(const avb_ctrl_block& record);

} // namespace hal::avb
