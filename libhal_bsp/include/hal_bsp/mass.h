/*
 * A disk that the board is to the host on its USB device port. Through the kernel's gadget function
 * `mtp.mass0` and its node "/dev/mass": a read has what the host sent, a write goes to the host.
 *
 * Commands come as command block wrappers (CBW, 31 bytes) of the USB Mass Storage Class Bulk-Only
 * Transport, revision 1.0. The library looks at three fields: bytes 8 to 11, how many bytes are
 * to follow (little-endian); byte 12, flags, 0 where those come from the host; byte 15, the SCSI
 * operation code. The SCSI commands are the application's, and so is what it writes: data and
 * status as the kernel's function wants them.
 *
 * After hal_otg_init of <hal_bsp/otg.h>, which has the whole order, and hal_hid_init:
 * hal_mass_init, then a MASS_EVENT_CBW for each command and one or more hal_mass_write to answer
 * it, until MASS_EVENT_END; hal_mass_deinit asks for that end.
 */
#ifndef HAL_BSP_MASS_H
#define HAL_BSP_MASS_H

#include <pthread.h>
#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Disks. */
#define HAL_MASS_DEVICES 1

/* Kinds of events. */
#define MASS_EVENT_CBW 0  /* a command */
#define MASS_EVENT_DATA 1 /* some of the data of the host's that belong to it */
#define MASS_EVENT_END 2  /* the disk is gone, or could not be had */

/* An event, 24 bytes with its padding. */
typedef struct hal_mass_data {
    uint16_t dev;  /* 0 */
    uint32_t kind; /* a MASS_EVENT_ */
    uint32_t len;  /* bytes at `data`; 31 in MASS_EVENT_END, where there are none */
    uint8_t* data; /* the library's, and valid until the callback returns; null in MASS_EVENT_END */
} hal_mass_data;

/*
 * Called with each event, on the worker thread or, with a MASS_EVENT_END, on that of hal_mass_init.
 *   MASS_EVENT_CBW   one for each command. `len` is what came: 31, or less of a host that sends
 *                    rubbish; bytes that are missing up to 31 are 0
 *   MASS_EVENT_DATA  after the command, as they come: 1 to 32768 bytes. Where reading them fails,
 *                    or gives nothing, before there are as many as announced, no more come, and
 *                    the application answers with what it has
 * The data of a MODE SELECT(6), 0x15, are read and dropped before its command is told, with a `len`
 * of 31. Each command is to be answered within 7 s after its last event; the next one is read only
 * then. It runs with cancellation disabled, and may call hal_mass_write.
 */
typedef void (*hal_mass_callback)(hal_mass_data* event);

/* Bytes for the host, 24 with its padding. Only read, and not kept. */
typedef struct hal_mass_reply {
    uint16_t dev;        /* 0 */
    uint32_t len;        /* bytes at `data` */
    const uint8_t* data; /* what the kernel's function wants */
    uint32_t last;       /* not 0: the command is answered with this */
} hal_mass_reply;

/* The module's state, all zero at load but for the descriptors. To be looked at. */
typedef struct hal_mass_state {
    int32_t thread_state;              /* 1 while the worker runs, else 0 */
    int32_t mass_fd[HAL_MASS_DEVICES]; /* of "/dev/mass", -1 when closed, at load too */
    hal_mass_callback mass_cb;         /* as given to the last hal_mass_init that got so far */
    int32_t mass_num;                  /* number of disks: 1 from hal_mass_init on */
    pthread_t listen_tid;              /* the worker thread, which is detached; of no meaning unless
                                          `thread_state` is 1 */
    int32_t busy;                      /* 1 from a command to the end of its answer, else 0 */
    int32_t umount_flag;               /* 1 asks for the end of the disk; 0 when that is noticed */
} hal_mass_state;

/* The module's state. */
extern HAL_API hal_mass_state hal_mass_prv;

/*
 * Adds the disk to the gadget, which is bound anew, and starts the worker. It waits up to 20 s for
 * the HID devices to be up (`hidsee` is 1; <hal_bsp/otg.h>), and takes 2.5 s more. `info` and
 * `count` are not used: there is always one disk. `callback` may be null. One thread at a time,
 * together with the init and deinit calls of the three headers. Returns
 *    0  working; or the HID devices did not come up, or `umount_flag` was set meanwhile
 *   -2  the worker runs already, and is not disturbed
 *   -3  hal_hid_init has not made the gadget's folders, or the disk's folder or its link cannot be
 *       made; the gadget stays unbound
 *   above 0, an error number: the worker cannot be started; `thread_state` is 0
 * Wherever there is no new worker, but for the last, this is logged at ERROR and `callback` is
 * called with a MASS_EVENT_END.
 */
HAL_API int32_t hal_mass_init(void* info, unsigned char count, hal_mass_callback callback);

/*
 * Sends bytes to the host in one write; with `last` the command is answered then, whatever the
 * write's result. Any thread. A descriptor that the worker closes meanwhile stays the write's until
 * that returns: it never reaches another file. Returns
 *   the write's own result; where it is negative errno tells why
 *   -7  the disk is not open, or there is none of that index, or `reply` is null; logged at ERROR
 */
HAL_API int32_t hal_mass_write(const hal_mass_reply* reply);

/*
 * Asks the worker to withdraw the disk and to bind the gadget without it, and returns 1.1 s later
 * without waiting for that: MASS_EVENT_END tells. A worker that waits for a command notices when
 * the host sends one or the read fails. While it does not run there is a warning. One thread at a
 * time, together with the init and deinit calls of the three headers.
 */
HAL_API void hal_mass_deinit(void);

/* Whether `umount_flag` was 1: 1, and the flag is 0 then; or 0. Any thread. */
HAL_API int32_t check_umount_flag(void);

/*
 * Body of the worker thread, which hal_mass_init starts. It waits until `masssee` is 1 twice, 200
 * ms apart, opens the disk's node, and hands what it reads to the callback, one command at a time.
 * It ends, and returns null,
 *   - with the gadget left alone when `masssee` is 0, or not to be read, once it serves, or when
 *     `thread_state` is 0 or another worker has been started
 *   - the same, with a MASS_EVENT_END, after a thousand looks, 200 s, at a `masssee` that is not 1
 *   - with the gadget unbound and the disk's link removed when `masssee` is 2 (MASS_EVENT_END)
 *   - so, and with the gadget bound again without the disk, when `masssee` is 3 or `umount_flag` 1,
 *     the node cannot be read, or be opened ten thousand times, or a command is not answered within
 *     7 s (MASS_EVENT_END)
 * An `umount_flag` of 1 that is noticed before it serves ends it by what `masssee` says, unless
 * hal_mass_deinit has set it. There is neither MASS_EVENT_END nor a new bind where somebody else
 * has removed the link meanwhile. It leaves `thread_state` 0 and the node closed. `arg` is ignored.
 * Cancellation ends it, in the same way but for gadget and messages, in its waits, rests and reads.
 */
HAL_API void* hal_mass_listen(void* arg);

/* Sleeps in steps of 10 ms, for ever; nothing in the library starts it. Ended by cancellation. */
HAL_API void* hal_mass_timeout_listen(void* arg);

#ifdef __cplusplus
}
#endif

#endif
