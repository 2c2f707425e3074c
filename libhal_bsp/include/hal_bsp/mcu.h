/*
 * The USB device port on the board's microcontroller (MCU): the same keyboard, mice, touch screen
 * and disk that <hal_bsp/otg.h>, <hal_bsp/hid.h> and <hal_bsp/mass.h> present on the SoC's own
 * gadget, with the same records and callbacks. An application uses the one or the other; the two
 * share no state.
 *
 * The MCU sits behind a bridge chip, which is a disk on the SoC's first SATA port. A packet for the
 * MCU is written as a block of 2560 bytes at logical block address 0, and one from it is read
 * there; a line rises when it has one. Commands go to the disk through the SG_IO ioctl of Linux
 * (<scsi/sg.h>, interface version 3): READ(10) and WRITE(10) of SBC, INQUIRY of SPC.
 *
 * In this order: sata_otg_init, sata_hid_init, sata_mass_init; to take it down sata_mass_deinit,
 * sata_hid_deinit, sata_otg_deinit.
 *
 * Threads. sata_otg_init starts three that never end: the dispatcher, which calls hid_cb and
 * mass_cb, the poller of the MCU's line, and the poller of VBUS, which calls state_cb. Each command
 * of the host's has a fourth for up to 2 s, the reply watchdog. Callbacks run with cancellation
 * disabled and no lock held, and may call any function here; but none is heard while one of the
 * same thread runs. Any thread may call any function, also before sata_otg_init, and several at the
 * same time; the packets of calls that overlap may alternate. None is a cancellation point.
 *
 * Recovery. A block command whose ioctl fails has the MCU reset and the disk opened anew (see
 * mcu_recover) before it returns; it is not repeated itself. While one thread recovers, commands of
 * all others wait, and go to the new disk then. Commands that had begun on the old disk are waited
 * for before it is closed; where one of them fails as well, this recovery, whatever comes of it, is
 * that command's too. A command of a recovery's own that fails starts no other.
 *
 * Queue. Packets from the MCU wait in a ring for the dispatcher. One is fetched at a time, and only
 * while there is a free slot: with 99 waiting, the poller of the line waits for one, so that the
 * MCU keeps the packet, and other fetches do nothing. What is queued is never lost.
 *
 * A callback that is null is not called. It may be replaced at any time; one that runs is not
 * waited for. All of it logs as "sata_usb".
 */
#ifndef HAL_BSP_MCU_H
#define HAL_BSP_MCU_H

#include <pthread.h>
#include <stdint.h>

#include <hal_bsp/export.h>
#include <hal_bsp/hid.h>
#include <hal_bsp/mass.h>
#include <hal_bsp/otg.h>

#ifdef __cplusplus
extern "C" {
#endif

#define MCU_BLOCK_BYTES 2560 /* of a block, which has one packet at its start */
#define MCU_VALUE_OFFSET 30  /* of the value in it */
#define MCU_VALUE_BYTES 2530 /* of the longest value */
#define MCU_RING_SLOTS 100   /* of the ring of packets, of which one is always free */
#define MCU_SLOT_BYTES 4096  /* of each of its slots */
#define MCU_MASS_BYTES 65536 /* of the largest MASS_EVENT_DATA */

/* Types of packets to the MCU. Their values: */
#define MCU_ABSOLUTE_MOUSE 0xE1000000u /* a report, its ID first; so in the next three */
#define MCU_RELATIVE_MOUSE 0xE1000001u
#define MCU_KEYBOARD 0xE1000002u
#define MCU_TOUCH_SCREEN 0xE1000004u
#define MCU_MASS_REPLY 0xE1001000u /* 1 to 512 bytes of data and status for the host */
#define MCU_USB_CONTROL                                                                            \
    0xE1001003u                       /* 2 bytes: 1 attach the USB device, 0 detach it;            \
                                         1 with the disk, 0 without */
#define MCU_FUNCTION_INFO 0xE1001004u /* the 8 bytes of usb_fun_info_default */

/* Types of packets from the MCU. Their values: */
#define MCU_HID_OUTPUT 0xE1000003u   /* a report of the host's */
#define MCU_MASS_COMMAND 0xE1001001u /* a command block wrapper, as in <hal_bsp/mass.h> */
#define MCU_MASS_DATA 0xE1001002u    /* a piece of the host's data, in order */
#define MCU_ENUM_STATE                                                                             \
    0xE1001005u /* 1 byte: 1, the host has enumerated the device; else an error */

/* What analysis_tlv_packet finds, 32 bytes with its padding. */
typedef struct tlv_info {
    uint16_t total_len; /* as in the packet; nothing goes by it */
    uint32_t type;      /* an MCU_ number of those above */
    uint16_t value_len; /* as in the packet; the module takes it as signed, a negative one as 0, and
                           one above MCU_VALUE_BYTES as that */
    uint8_t* value;     /* in the block */
    uint16_t series;    /* the MCU's number of the packet */
} tlv_info;

/*
 * The module's state, all zero at load; to be looked at, the library writes it. Its size and the
 * places of its fields depend on the C library's mutex and condition.
 */
typedef struct sata_usb_state {
    pthread_mutex_t rx_lock; /* guards rx_write and rx_read */
    uint32_t irq_gpio;       /* the MCU's line, a number of <hal_bsp/sysgpio.h> */
    uint32_t vbus_gpio;      /* that of VBUS: 96 */
    char sata_dev_path[20];  /* the bridge disk, "/dev/" and a name; one that has no room here is
                                cut, and not opened */
    int32_t sata_dev_fd;     /* its descriptor; 0 or below is none */
    uint8_t rx_ring[MCU_RING_SLOTS][MCU_SLOT_BYTES]; /* each begins with a block */
    int32_t rx_write; /* the slot that the next packet is read into */
    int32_t rx_read;  /* the one that is dispatched next; the ring is empty where they are
                         equal */
    hal_otg_state_callback state_cb; /* as given to sata_otg_init */
    hal_hid_callback hid_cb;         /* as given to sata_hid_init */
    hal_mass_callback mass_cb;       /* as given to sata_mass_init */
    pthread_t dispatch_tid;          /* of no meaning unless `otg_inited` is 1 */
    pthread_t irq_tid;               /* the same */
    pthread_t vbus_tid;              /* the same */
    int32_t gpio_fd;              /* the value of the MCU's line, -1 where it could not be opened */
    int32_t vbus_gpio_fd;         /* that of VBUS */
    pthread_cond_t rx_cond;       /* signalled when a packet was queued */
    pthread_mutex_t rx_cond_lock; /* the mutex of rx_cond */
    uint32_t otg_inited;          /* 1 after a successful sata_otg_init */
    uint32_t hid_inited;          /* 1 after sata_hid_init, until sata_otg_init starts the bridge */
    uint32_t usb_enum_state; /* 1 when the MCU reports that the host has enumerated it; 0 when VBUS
                                is gone */
} sata_usb_state;

/* The module's state. */
extern HAL_API sata_usb_state sata_usb_prv;

/* The reply watchdog's state, all zero at load; as that above. */
typedef struct sata_safe_state {
    uint8_t scsi_command;         /* operation code of the latest command */
    uint32_t command_offset;      /* its CBW's bytes 17 to 20, little-endian */
    uint32_t transfer_len;        /* its CBW's bytes 8 to 11, little-endian */
    uint32_t series_old;          /* `series` of the command before */
    uint32_t series_now;          /* its own; both extended from 16 signed bits */
    pthread_t safe_tid;           /* the latest watchdog, which is detached */
    uint32_t waiting;             /* 1 from a command until its last reply */
    pthread_condattr_t cond_attr; /* of cond */
    pthread_cond_t cond;  /* on CLOCK_MONOTONIC; signalled with the last reply. Attribute, condition
                             and mutex are made once, before their first use, and stay */
    pthread_mutex_t lock; /* the mutex of cond */
    uint32_t running;     /* 1 from just before a watchdog is started until it ends; atomic */
} sata_safe_state;

/* The module's state. */
extern HAL_API sata_safe_state safe_info;

/*
 * 1 while an rcv fetches a packet, else 0; where several do, it is 0 when the first of them has
 * done.
 */
extern HAL_API int32_t flag;

/*
 * The value of MCU_FUNCTION_INFO: vendor and product ID, little-endian, 0x2323 and 0x5757; report
 * IDs of keyboard, relative mouse, absolute mouse and touch screen, 7 to 10. sata_otg_init sets the
 * first two, sata_hid_init the others.
 */
extern HAL_API uint8_t usb_fun_info_default[8];

/* The answer to INQUIRY by which check_inquiry knows the bridge: "ATA", "WCH SD to SATA T", ".0".
 */
extern HAL_API uint8_t inquiry_data[36];

/* --- packets --- */

/*
 * Makes a packet for the MCU in a block that the caller has filled with zeros: at least 30 bytes
 * and the value's, which should be no more than MCU_VALUE_BYTES; this is not looked at. Multi-byte
 * fields are little-endian; bytes 0 and 1 are 0x55 and 0xBB, 5, 10 and 11 are 0x01, 0x60 and 0x01;
 * 8 and 9 are the value's length and 22 more, 22 to 25 the type, 28 and 29 the value's length.
 * `value` may be null where `value_len` is 0. Returns where the value is in the block; null, and
 * nothing done, where `block` is null.
 */
HAL_API uint8_t* make_tlv_packet(uint8_t* block, const uint8_t* value, uint16_t value_len,
                                 uint32_t type);

/*
 * Finds a packet from the MCU in a block, of which the first 30 bytes are read: bytes 0 and 1 are
 * 0xBB and 0x55; 6 and 7 its number, the rest as above. `block_len` is not used, and nothing of the
 * value is read. Returns
 *    0  `info` is filled
 *   -1  there is none: `info` is all zero; or a pointer is null
 */
HAL_API int32_t analysis_tlv_packet(tlv_info* info, uint8_t* block, uint32_t block_len);

/* --- the bridge disk --- */

struct sg_io_hdr; /* of <scsi/sg.h> */

/*
 * Reads or writes a block at logical block address 0. `length` is in bytes; the command asks for
 * the whole 512-byte sectors in it, modulo 65536. The last two arguments are not used. A read first
 * zeroes the buffer's first 8 bytes (fewer, where it has fewer), whatever comes of it. A write has
 * 2 s, a read as long as the kernel lets it. Return
 *    0  done
 *   above 0  the SCSI status, where it is not GOOD: nothing is logged or retried
 *   -1  the ioctl failed (its own result; logged at ERROR), and recovery has been tried; or there
 *       is no disk, which for a write is logged at ERROR; or the buffer is null, and nothing was
 * done
 */
HAL_API int32_t sata_read(void* buffer, uint32_t length, uint32_t unused1, uint32_t unused2);
HAL_API int32_t sata_write(const void* buffer, uint32_t length, uint32_t unused1, uint32_t unused2);

/*
 * The same with a request of the caller's on a descriptor of its own: direction, command and its
 * length are set here, the latter from `dxfer_len`. The command is in the request no more when they
 * return: `cmdp` is null then. Return the SCSI status, 0 is GOOD; or -1, the ioctl's result, after
 * an ERROR and a recovery; or -1 where the request is null.
 */
HAL_API int32_t scsi_read(int fd, uint32_t unused1, uint32_t unused2, struct sg_io_hdr* request);
HAL_API int32_t scsi_write(int fd, uint32_t unused1, uint32_t unused2, struct sg_io_hdr* request);

/*
 * Whether the disk answers INQUIRY as inquiry_data has it. The disk stays open, and a failure
 * starts no recovery. Returns 0 if so, else -1: also where there is no disk; where the ioctl
 * failed (logged at ERROR), as it does before a disk was ever opened; or where the SCSI status is
 * not GOOD (the sense data are printed).
 */
HAL_API int32_t check_inquiry(void);

/*
 * Prints all `mx_sb_len` bytes of a request's sense buffer to standard output, "%02x " each, and a
 * newline. A null request or buffer has none. Returns the result of putchar for the newline.
 */
HAL_API int32_t show_sense_buffer(const struct sg_io_hdr* request);

/* --- the MCU --- */

/*
 * Starts the bridge: resets the MCU, waits up to 60 s for the disk, opens it, exports the MCU's
 * line (`irq_gpio`) and VBUS (96), both inputs, starts the threads and attaches the USB device
 * without a disk. The record is cleared, so earlier callbacks are forgotten; a disk that was open
 * is closed. `info` is only read, and not kept; with a null one the two USB IDs stay as they are.
 * `count`, `unused` and `vbus_gpio` are not used. Once it has succeeded a further call only sends
 * the attach packet. Calls at the same time follow one another. It runs the board's tool `bspmm`,
 * and does without where there is none. Returns
 *    0  working, or it was before. A packet that could not be sent is logged at ERROR, no more
 *   -1  the disk did not appear or cannot be opened, which is logged at ERROR; or a thread cannot
 * be started. No thread of the three is left
 */
HAL_API int32_t sata_otg_init(const hal_otg_info* info, uint8_t count, void* unused,
                              uint32_t irq_gpio, uint32_t vbus_gpio,
                              hal_otg_state_callback callback);

/*
 * Detaches the USB device. Threads, disk and lines stay. Returns 0; a packet that could not be sent
 * is logged at ERROR.
 */
HAL_API int32_t sata_otg_deinit(void);

/*
 * Resets the MCU, in about 1.06 s, through the lines 492 to 494 of the GPIO driver: power, reset
 * and programming pin are made outputs for 510 ms, raised, and released. Calls at the same time
 * follow one another. Returns the result of configuring the last line, 0 or negative; the others'
 * failures are logged at ERROR, too, and change nothing.
 */
HAL_API int32_t mcu_hard_rst(void);

/*
 * Recovers the MCU: closes the disk, resets, looks for the disk once, opens it, detaches and
 * attaches the USB device, reads a block, and sets the HID devices up again where `hid_inited`
 * is 1. The USB device has no disk then: a sata_mass_init is the application's to call. Always a
 * recovery of its own, after another one that is under way, if any. Returns 0  the disk is open -1
 * it is not; logged at ERROR. Or called from within a recovery, as a sink of the log could
 */
HAL_API int32_t mcu_recover(void);

/*
 * Body of a thread that fetches one packet, which the library never starts: detaches the thread it
 * runs on, reads a block, and queues it if it is a packet. With the ring full it fetches nothing.
 * `arg` is ignored. Returns null.
 */
HAL_API void* rcv(void* arg);

/* --- HID devices --- */

/*
 * Sets the HID devices up: takes the report IDs of `info`, sends them, and attaches the USB device
 * anew, in about 1 s. `info` is only read, and not kept; with a null one the IDs stay as they are.
 * `callback` is called with each report of the host's: `dev` is 0, `len` 0 to MCU_VALUE_BYTES.
 * Returns the result of the last packet, as sata_write does, or -1 where there is no memory for
 * one, as those below; whatever it is, IDs and callback are set, and later recoveries set the
 * devices up.
 */
HAL_API int32_t sata_hid_init(const hal_hid_info* info, hal_hid_callback callback);

/*
 * Sends a report. `len` is taken modulo 65536. One of HAL_HID_KEYBOARD_MOUSE is that of a keyboard
 * or an absolute mouse by its first byte; where it is neither's, the packet's type is 0. Returns
 *   as sata_write
 *   -1  also for a null report, a null `data` where there is a length, or more than
 *       MCU_VALUE_BYTES, and nothing was sent; so for an unknown device, logged at ERROR
 */
HAL_API int32_t sata_hid_write(const hal_hid_data* report);

/* Forgets the callback. The devices stay, also over recoveries. */
HAL_API void sata_hid_deinit(void);

/* --- the disk --- */

/*
 * Attaches the USB device anew, with the disk, in about 1 s, and then takes `callback`, which is
 * called on the dispatcher thread with
 *   MASS_EVENT_CBW   for each command, before its data. `len` is what came, 0 to MCU_VALUE_BYTES
 *   MASS_EVENT_DATA  for the data of a WRITE(10): once, with all of it, when it is complete. One of
 *                    more than MCU_MASS_BYTES comes in pieces of that size, and a last one with the
 *                    rest
 * Data beyond the length of the latest WRITE(10) is dropped; one that is not completed ends with
 * the next. There is no MASS_EVENT_END. A command is to be answered within 2 s; one that is not is
 * logged at INFO, and the next one is told only then. `info` and `count` are not used. Returns the
 * result of the last packet, as sata_write does; `callback` is taken in any case.
 */
HAL_API int32_t sata_mass_init(void* info, uint8_t count, hal_mass_callback callback);

/*
 * Answers a command, in packets of up to 512 bytes; with `last` not 0 it is answered, whatever
 * comes of them. A packet that cannot be sent does not stop those after it. Returns
 *    0  there was nothing to send
 *   else the result of the last packet, as sata_write
 *   -1  also for a null reply, or null `data` where there is a length
 */
HAL_API int32_t sata_mass_write(const hal_mass_reply* reply);

/*
 * Attaches the USB device anew, without the disk, in about 1 s, and forgets the callback. The
 * arguments are not used. Returns 0; a packet that could not be sent is logged at ERROR.
 */
HAL_API int32_t sata_mass_deinit(uint16_t dev, uint8_t count);

/*
 * Body of the reply watchdog, which the dispatcher starts with each command: detaches the thread it
 * runs on, and waits up to 2 s until `waiting` is 0. Is it not, the command is logged at INFO, and
 * one packet fetched as by rcv. `arg` is ignored. Returns null.
 */
HAL_API void* safe_handle(void* arg);

#ifdef __cplusplus
}
#endif

#endif
