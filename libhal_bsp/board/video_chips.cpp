// The video interface chips of this board: where they are, and how they are set up.
#include <hal_bsp/video.h>

namespace {

constexpr video_chip_dev_entry silent_entry(uint32_t dev, uint8_t i2c_addr, uint16_t mode) {
    constexpr uint32_t kNone = HAL_VIDEO_NONE;
    return {dev, i2c_addr, 0, mode, {kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone}};
}

} // namespace

video_chip_dev_entry gsv2002_dev_table[HAL_GSV2002_DEVICES] = {
    {0,
     0xB0,
     0,
     3,
     {0, HAL_VIDEO_NONE, 1, 0, HAL_VIDEO_NONE, HAL_VIDEO_NONE, HAL_VIDEO_NONE, HAL_VIDEO_NONE}},
};
video_chip_dev_entry gsv2001_dev_table[HAL_GSV2001_DEVICES] = {silent_entry(0, 0xB0, 1)};
video_chip_dev_entry it6264_dev_table[HAL_IT6264_DEVICES] = {silent_entry(0, 0x98, 0xFF)};
video_chip_dev_entry gsv20xx_dev_table[HAL_GSV20XX_DEVICES] = {
    silent_entry(0, 0xB0, 2),
    silent_entry(1, 0xB0, 2),
    silent_entry(2, 0xB0, 2),
    silent_entry(3, 0xB0, 0),
};

// Mode, address, bus, reset line, and the set-up values from a to f.
video_chip_mode st_gsv2002_mode[HAL_GSV2002_DEVICES] = {{3, 0xB0, 4, 323, 0, 0, 0, 0, 0, 1}};
video_chip_mode st_gsv2001_mode[HAL_GSV2001_DEVICES] = {{1, 0xB0, 53, 500, 1, 1, 1, 1, 8, 0}};
video_chip_mode st_it6264_mode[HAL_IT6264_DEVICES] = {{0xFF, 0x98, 4, 323, 1, 1, 1, 4, 8, 1}};
video_chip_mode st_gsv2011_mode[HAL_GSV20XX_DEVICES] = {
    {2, 0xB0, 51, 418, 1, 1, 1, 0, 8, 0},
    {2, 0xB0, 52, 419, 1, 1, 1, 0, 8, 0},
    {2, 0xB0, 54, 421, 1, 1, 1, 0, 8, 0},
    {0, 0xB0, 55, 422, 1, 1, 1, 0, 8, 0},
};
