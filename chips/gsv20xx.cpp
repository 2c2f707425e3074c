#include "family.h"
#include "library.h"

constinit const chips::Family& chips::kFamily = chips::kGsv20xx;

int32_t gsv20xx_IcRegister(video_chip_ops* ops, video_chip_services* services,
                           video_chip_dev_entry* dev_table) {
    return chips::register_family(ops, services, dev_table);
}

int32_t gsv20xx_counters(uint32_t dev, hal_chips_counters* counters) {
    return chips::counters(dev, counters);
}
