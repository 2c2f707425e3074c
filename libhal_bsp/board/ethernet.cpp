// The board's Ethernet controllers.
#include <hal_bsp/ethlink.h>

ethlink_info board_ethlink_info_list[HAL_ETHLINK_COUNT] = {
    {HAL_ETHLINK_FILE, 2, 0, "fe1b0000.ethernet", "/proc/ethernet-mdio0/link_status", nullptr,
     nullptr},
    {HAL_ETHLINK_STATE, 1, 0, "fe010000.ethernet", "", nullptr, nullptr},
};
