/*
 * The USB device port on the SoC's own gadget: what the host computer at its other end sees.
 *
 * The gadget is composed in configfs (Documentation/usb/gadget_configfs.rst of the kernel): one
 * gadget, "/sys/kernel/config/usb_gadget/g1", with one configuration, "c.1". <hal_bsp/hid.h> adds
 * its HID devices and <hal_bsp/mass.h> its disk; they bind it to the USB device controller.
 *
 * In this order: hal_otg_init, then hal_hid_init, then, once the host has configured the device,
 * hal_mass_init; to take it down hal_mass_deinit, hal_hid_deinit, hal_otg_stop.
 *
 * Three attributes of the kernel's device "/sys/devices/virtual/android_usb/android0" are mailboxes
 * of the module's threads, a decimal number each: `usbsta` has the state of the connection, a
 * HAL_OTG_ state; `hidsee` and `masssee` tell the workers of HID devices and disk what to do: 0 to
 * close their nodes, 1 to open and serve them, 2 to end, 3 (the disk's only) to withdraw the disk.
 *
 * Files are changed by shell commands, whose success nobody examines. All of it logs as "hal_otg".
 */
#ifndef HAL_BSP_OTG_H
#define HAL_BSP_OTG_H

#include <pthread.h>
#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* States of the connection to the host. */
#define HAL_OTG_UNKNOWN (-1)   /* nothing heard since the last bind; never told to the callback */
#define HAL_OTG_CONFIGURED 0   /* the host has configured the device */
#define HAL_OTG_CONNECTED 1    /* there is a host */
#define HAL_OTG_DISCONNECTED 2 /* there is none */

/* What the application says of the gadget, 6 bytes. */
typedef struct hal_otg_info {
    uint16_t unused;     /* not read */
    uint16_t product_id; /* idProduct and idVendor of the USB device descriptor */
    uint16_t vendor_id;  /* the vendor's */
} hal_otg_info;

/*
 * Called on the listener thread with each state the kernel tells, also with one that is told again.
 * `dev` is 0. It runs with cancellation disabled. States are not heard meanwhile: the socket holds
 * some hundred, and of more the last ones are lost.
 */
typedef void (*hal_otg_state_callback)(int dev, int state);

/* The module's state, all zero at load. */
typedef struct hal_otg_state {
    int32_t thread_state; /* 1 from the start of the listener; the application writes 0 to end it */
    hal_otg_state_callback state_cb; /* as given to the last hal_otg_init */
    pthread_t listen_tid; /* the listener thread, which is detached; of no meaning before */
    pthread_t udc_tid;    /* the thread of the latest watch over a bind, detached too */
} hal_otg_state;

/* The module's state. */
extern HAL_API hal_otg_state hal_otg_prv;

/*
 * Composes what is missing of the gadget, writes its two IDs, and starts the listener thread unless
 * it runs. It does not bind. `info` is only read, and not kept; `count` is the number of gadgets:
 * more than one is one, with a warning, and with none or a negative number nothing is composed and
 * `info` is not needed. `callback` may be null; it replaces the one of before, whatever the result.
 * One thread at a time. Returns
 *    0  listening
 *   -3  there is no "/sys/kernel/config/usb_gadget", the gadget's folder cannot be made, or there
 *       is no `info`; the listener is as it was
 *   above 0, an error number: the thread cannot be started. `thread_state` stays 1 then, as if it
 *       had been; write 0 to it before the next try
 */
HAL_API int32_t hal_otg_init(const hal_otg_info* info, signed char count,
                             hal_otg_state_callback callback);

/* Do nothing, and return 0. Any thread. */
HAL_API int32_t hal_otg_reset(uint16_t dev);
HAL_API int32_t hal_otg_start(uint16_t dev);

/*
 * Tells both workers to end, unbinds the gadget, and removes the links of its functions, but for
 * that of keyboard and absolute mouse, which a later hal_hid_init finds and keeps. Takes 2.5 s and
 * the time of some commands. The listener goes on. `dev` is not used. Returns 0. One thread at a
 * time, together with the init and deinit calls of the three headers.
 */
HAL_API int32_t hal_otg_stop(uint16_t dev);

/*
 * Body of the listener thread, which hal_otg_init starts. It follows the kernel's uevents
 * (lib/kobject_uevent.c of the kernel; whoever sent them) on a netlink socket, and keeps the last
 * state in `usbsta`. It sets `hidsee` and `masssee` to 1 when the device becomes configured, and to
 * 0 whenever it is disconnected; then it calls the callback. A message of 2048 bytes or more is
 * dropped. Where there is no socket it waits idly.
 *
 * It returns null within 100 ms after `thread_state` is 0, and before that sets the thread_state of
 * hal_hid_prv to 0, so that the worker of the HID devices ends, too. It ends as well when a later
 * hal_otg_init has started another. `arg` is ignored. Cancellation ends it in its waits and rests,
 * and leaves the HID devices alone.
 */
HAL_API void* hal_otg_listen(void* arg);

/*
 * Body of the watch over a bind, which is started with each bind but those of its own: polls
 * `usbsta` a thousand times, 20 ms apart, until it is 0. Is it not, the gadget is unbound and bound
 * again, so that the host sees it anew. `arg` is ignored. It detaches the thread that it runs on,
 * and returns null. Cancellation ends it in its rests.
 */
HAL_API void* hal_udc_listen(void* arg);

#ifdef __cplusplus
}
#endif

#endif
