// A chip library that an application opens when the board-support library is there already.
#include <hal_bsp/video.h>

int32_t gsv2001_IcRegister(video_chip_ops* /*ops*/, video_chip_services* /*services*/,
                           video_chip_dev_entry* /*dev_table*/) {
    return 42;
}
