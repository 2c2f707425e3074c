// A chip library, of whichever family: the bodies of the functions that it exports.
#pragma once

#include <hal_bsp/video.h>
#include <hal_chips/hal_chips.h>

namespace chips {

int32_t register_family(video_chip_ops* ops, const video_chip_services* services,
                        const video_chip_dev_entry* dev_table);
int32_t counters(uint32_t dev, hal_chips_counters* counters);

} // namespace chips
