#include "family.h"
#include "library.h"

constinit const chips::Family& chips::kFamily = chips::kIt6264;

int32_t it6615_6264_IcRegister(video_chip_ops* ops, video_chip_services* services,
                               video_chip_dev_entry* dev_table) {
    return chips::register_family(ops, services, dev_table);
}

int32_t it6615_6264_counters(uint32_t dev, hal_chips_counters* counters) {
    return chips::counters(dev, counters);
}
