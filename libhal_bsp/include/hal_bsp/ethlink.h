/*
 * Whether an Ethernet adapter has a link.
 *
 * The board has two Ethernet controllers, each read in its own way. The application names a network
 * interface; the device behind it in sysfs says which controller it is, and so which record of
 * board_ethlink_info_list says how to read it.
 *
 * Everything is found out by shell commands (ls, grep, wc, readlink, cat, mdio, awk), two to five a
 * query: for occasional polling, not for fast paths. There is no state and no lock; queries may run
 * on any threads at once.
 *
 * THE NAME REACHES A SHELL UNQUOTED. A name with shell characters in it ("eth0; reboot", "$(...)")
 * is run as what it says, with the application's rights. Pass only names that come from the kernel
 * or from your own code, never what somebody typed, unless you have looked at each character first.
 */
#ifndef HAL_BSP_ETHLINK_H
#define HAL_BSP_ETHLINK_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* How a link is read: `type` of an ethlink_info. Any other value is as HAL_ETHLINK_STATE. */
enum {
    HAL_ETHLINK_STATE = 0, /* operstate and carrier of the network interface */
    HAL_ETHLINK_FILE = 1,  /* the number in the driver's link-status file */
    HAL_ETHLINK_NONE = 2,  /* not at all: the caller's status is left as it is */
    HAL_ETHLINK_PHY = 3    /* operstate and carrier, then a register of the PHY through mdio */
};

/* One Ethernet controller of the board. */
typedef struct ethlink_info {
    uint32_t type;           /* HAL_ETHLINK_... */
    uint8_t port_num;        /* the port's number on the case, for the log */
    uint8_t phy_addr;        /* the PHY's address on its MDIO bus, for HAL_ETHLINK_PHY */
    char dev_name[128];      /* looked for in the target of /sys/class/net/NAME */
    char link_file[128];     /* the link-status file, for HAL_ETHLINK_FILE */
    void (*pre_hook)(void);  /* called before the status is read; may be null */
    void (*post_hook)(void); /* called after it was read, also in vain; may be null */
} ethlink_info;

/* Controllers in the table. */
#define HAL_ETHLINK_COUNT 2

/*
 * The board's controllers. The library only reads it; an application may change a record while no
 * query is under way.
 */
extern HAL_API ethlink_info board_ethlink_info_list[HAL_ETHLINK_COUNT];

/*
 * Reads the link of the interface `name` ("eth0") into `*status`: 0 no link, otherwise what the
 * source says of it: the carrier value (1), the number in the link-status file, or for a PHY 1 or 2
 * (2 where bit 0x1000 of its register 0x10 on page 0xdf0 is set).
 *
 * The name has to occur in exactly one of the names under /sys/class/net ("eth" where there are
 * eth0 and eth1 does not). "bond0" is a virtual interface and read as HAL_ETHLINK_STATE. A source's
 * text that is no number counts as 0, a number above 65535 as 65535. Returns
 *     0  done; of type HAL_ETHLINK_NONE nothing was written
 *   -22  `name` or `status` is null, or a command with this name or link_file in it would be longer
 *        than 127 characters (nothing was run then)
 *    -6  the name matches no interface or several, or its device is not in the table
 *    -5  a command cannot be started
 *   -35  a command printed nothing
 * all logged at ERROR. After a failure `*status` is as it was, except where the post_hook or the
 * caller changed it.
 */
HAL_API int32_t hal_get_ethlink_status_byname(const char* name, uint16_t* status);

/*
 * The link of the board as a whole: nothing, on this board. Logs and returns what
 * operation_get_ethlink returns.
 */
HAL_API int32_t hal_get_ethlink_status(uint16_t* status);

/* The board's part of it: writes nothing and returns 0. */
HAL_API int32_t operation_get_ethlink(uint16_t* status);

#ifdef __cplusplus
}
#endif

#endif
