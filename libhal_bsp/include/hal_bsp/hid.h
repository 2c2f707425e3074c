/*
 * HID devices that the board is to the host on its USB device port: a keyboard with consumer keys,
 * an absolute mouse, a relative mouse, a touch screen for ten fingers. Through the functions of
 * type `hid` of the kernel's USB gadget, and their nodes "/dev/hidgN".
 *
 * After hal_otg_init of <hal_bsp/otg.h>, which has the whole order: hal_hid_init, then
 * hal_hid_write for each report, then hal_hid_deinit. Reports can be written while the host has
 * the device configured, from about a second later on. Formats are those of HID 1.11 (Device Class
 * Definition for Human Interface Devices).
 */
#ifndef HAL_BSP_HID_H
#define HAL_BSP_HID_H

#include <pthread.h>
#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Device indexes. */
typedef enum hal_hid_dev {
    HAL_HID_KEYBOARD_MOUSE = 0, /* keyboard and absolute mouse, told apart by their report IDs */
    HAL_HID_TOUCH_SCREEN = 1,
    HAL_HID_RELATIVE_MOUSE = 2
} hal_hid_dev;

/* Slots of the module's record; those of 3 and 4 are never used. */
#define HAL_HID_SLOTS 5

/* Which devices there are to be, 8 bytes: a flag each, and the ID of its reports (1 to 255). */
typedef struct hal_hid_info {
    uint8_t kb_on; /* keyboard */
    uint8_t kb_id; /* not 3, which the consumer keys have */
    uint8_t ts_on; /* touch screen */
    uint8_t ts_id; /* not 4 or 8, which its settings have */
    uint8_t rm_on; /* relative mouse */
    uint8_t rm_id; /* not that of another device */
    uint8_t am_on; /* absolute mouse */
    uint8_t am_id; /* with a keyboard neither its ID nor 3 */
} hal_hid_info;

/*
 * A report, 16 bytes with its padding. Those to the host begin with their report ID; numbers of 16
 * bits in them are little-endian:
 *   keyboard        9 bytes: modifiers, a bit for each of the usages 0xE0 to 0xE7; 0; six keys
 *   consumer keys   3 bytes: 16 bits of usage
 *   absolute mouse  7 bytes: buttons in bits 0 to 2; 16 bits of X and of Y, 0 to 32767; wheel
 *   relative mouse  5 bytes: buttons; X, Y and wheel, a signed byte each
 *   touch screen   64 bytes: ten times tip (bit 0), contact ID, 16 bits of X and of Y, 0 to 32767;
 *                            number of contacts; 16 bits of scan time in units of 100 us
 * Those from the host, for the keyboard's LEDs: report ID; LED usages 1 to 5 in bits 0 to 4.
 */
typedef struct hal_hid_data {
    uint32_t dev;  /* a hal_hid_dev */
    int32_t len;   /* bytes at `data` */
    uint8_t* data; /* hal_hid_write only reads them, and keeps nothing */
} hal_hid_data;

/*
 * Called on the worker thread with what a device's node has of the host's. `len` is the result of
 * the read, 100 at most; it can be 0 or negative, and `data` has nothing then. The record and the
 * bytes are the library's and valid until the callback returns. It runs with cancellation disabled.
 */
typedef void (*hal_hid_callback)(hal_hid_data* report);

/* The module's state, all zero at load. To be looked at; the library writes it. */
typedef struct hal_hid_state {
    int32_t thread_state;             /* 1 while the worker runs, else 0 */
    int32_t hid_fd[HAL_HID_SLOTS];    /* descriptors of the nodes, -1 when closed */
    int8_t hidg_minor[HAL_HID_SLOTS]; /* N of "/dev/hidgN"; -1: no such device, or its number,
                                         0 to 127, could not be read */
    hal_hid_callback hid_cb;          /* as given to the last hal_hid_init */
    pthread_t listen_tid;             /* the worker thread, which is detached; of no meaning unless
                                         `thread_state` is 1 */
} hal_hid_state;

/* The module's state. */
extern HAL_API hal_hid_state hal_hid_prv;

/*
 * The report descriptors. Byte 7 of each is its first report ID, which hal_hid_init sets where it
 * makes that device. An application that changes them does so before hal_hid_init.
 */
extern HAL_API uint8_t kb_report_desc[91];
extern HAL_API uint8_t am_report_desc[78];
extern HAL_API uint8_t rm_report_desc[54];
extern HAL_API uint8_t ts_report_desc[694];

/*
 * Ends the worker and unbinds the gadget, adds the devices, binds the gadget again so that the host
 * sees it anew, and starts a new worker. A device that is there already, from an earlier call,
 * keeps the descriptor and report ID that it has. `info` is only read, and not kept; `callback` may
 * be null. Takes 3.7 s and the time of some commands. One thread at a time, together with the init
 * and deinit calls of the three headers. Returns
 *    0  working
 *   -3  hal_otg_init has not made the gadget's folders, or there is no `info`: nothing was done but
 *       to store `callback` and to close the devices for hal_hid_write. Or a device's folder cannot
 *       be made: logged at ERROR, and the gadget stays unbound
 *   above 0, an error number: the worker cannot be started; `thread_state` is 0
 */
HAL_API int32_t hal_hid_init(const hal_hid_info* info, hal_hid_callback callback);

/*
 * Sends a report in one write, which waits while the host has not yet fetched the one before. Any
 * thread. A descriptor that the worker closes meanwhile stays the write's until that returns: it
 * never reaches another file. Returns
 *   the number of bytes written
 *   -8  the device is not open, or there is none of that index, or there is no `report`: logged at
 *       ERROR
 *   another negative result, of the write, errno tells why, or -1 for a negative `len`: logged at
 *       ERROR, and returned 2 s later, so that a caller that knows no end is slow
 */
HAL_API int32_t hal_hid_write(const hal_hid_data* report);

/*
 * Tells the worker to end, and sleeps 100 ms; the devices stay, and so does the binding. It ends
 * when it next looks: within 20 ms while it serves, a second later while it prepares to, and only
 * after some seconds while it tries to open what cannot be opened. While it does not run there is a
 * warning. One thread at a time, together with the init and deinit calls of the three headers.
 */
HAL_API void hal_hid_deinit(void);

/*
 * Body of the worker thread, which hal_hid_init starts. It waits until `hidsee` is 1, and is it
 * still a second later, opens the devices' nodes; then it hands what comes from them to the
 * callback, until `hidsee` is not 1 any more, closes them, and waits again. It ends, and returns
 * null, when `hidsee` is 2, `thread_state` is 0 or another worker has been started, or when a node
 * could not be opened six times in one waiting; it leaves `thread_state` 0 and the nodes closed. A
 * pass in which a node cannot be opened keeps none open. `arg` is ignored. Cancellation ends it, in
 * the same way but for the messages, in its waits, rests and reads.
 */
HAL_API void* hal_hid_listen(void* arg);

#ifdef __cplusplus
}
#endif

#endif
