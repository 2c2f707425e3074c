/*
 * USB sticks in the device's host port: their partitions are mounted as they come, unmounted as
 * they go, and the application is told where.
 *
 * hal_usb_init mounts what is there already and starts a thread that follows the kernel's uevents
 * (lib/kobject_uevent.c of the kernel) from then on, for the life of the process. Only disks that
 * are called "sd" and one lower-case letter of ASCII are known, and their partitions 1 to 9:
 * "/dev/sda1" is mounted on "/mnt/dev/sda1", which is made where it is missing. Of a partition with
 * more digits the first one counts: what is told of "/dev/sda12" is taken for told of "/dev/sda1".
 *
 * Disks are listed with fdisk(8); mkdir, mount and umount do the rest. All of them are run by the
 * shell, and how they end is nobody's concern: a partition whose mount fails is told as mounted.
 * Nothing of a uevent or of a listing gets into a command but such a name. All of it logs as
 * "hal_usb".
 */
#ifndef HAL_BSP_USB_H
#define HAL_BSP_USB_H

#include <pthread.h>
#include <stdint.h>
#include <sys/time.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

#define HAL_USB_LIST_SIZE 8   /* mount points in a list */
#define HAL_USB_PATH_SIZE 128 /* bytes of each, the NUL at its end included */

/* What happened to the partitions of a list. */
#define HAL_USB_REMOVED 0U
#define HAL_USB_ADDED 1U

/* Mount points, 1040 bytes. The application's memory, which the library writes. */
typedef struct usb_disk_list {
    uint8_t zero0;   /* 0 */
    uint32_t action; /* HAL_USB_ADDED or HAL_USB_REMOVED: what happened to the last one */
    uint32_t zero8;  /* 0 */
    uint8_t count;   /* of entries, 0 to 8 */
    char path[HAL_USB_LIST_SIZE][HAL_USB_PATH_SIZE]; /* "/mnt/dev/sda1" */
} usb_disk_list;

/*
 * Called with a list that has at least one entry: by find_usb_disk_once on the caller's thread,
 * once for each disk with partitions; by the automount thread when 200 ms have passed since the
 * last partition came or went, which it notices with the next uevent of another kind, or within 50
 * ms. What came and went meanwhile is in one list, in that order. The list is the one that was
 * given to the call or to hal_usb_init, and is cleared afterwards.
 *
 * A list that is full when a ninth entry comes (a disk may have nine partitions) is told at once,
 * and the ninth begins the next one: nothing is lost.
 *
 * It runs with cancellation disabled, and uevents wait in the socket meanwhile. It may make any
 * call of this header; it must not wait for another thread that makes one.
 */
typedef void (*hal_usb_callback)(usb_disk_list* list);

/* The module's state, all zero at load. To be looked at; the library writes it. */
typedef struct hal_usb_state {
    hal_usb_callback usb_disk_cb; /* as given to the last hal_usb_init */
    pthread_t tid_usb;            /* the automount thread; of no meaning before it was started */
    usb_disk_list* disk_list;     /* as given to the last hal_usb_init */
    /* Both of the wall clock, and zero again once a list was told or dropped. */
    struct timeval now_tv; /* the last uevent that was of no partition, or end of a wait */
    struct timeval
        last_tv; /* the last partition that came or went; zero while none is to be told */
} hal_usb_state;

/* The module's state. */
extern HAL_API hal_usb_state gst_usb_info;

/*
 * Stores callback and list, mounts what is there (find_usb_disk_once) and starts the automount
 * thread. `list` stays the application's and has to be there, and be left alone outside the
 * callback, for the life of the process, or until another call has replaced it: a process has one
 * automount thread, and a later call gives that thread callback and list, and scans anew. Lists are
 * written by one thread at a time: while one scans, the others wait. Any thread. Returns
 *     0  the thread runs
 *    -2  the scan failed (it does not, with a list)
 *   -10  the thread cannot be started: logged at ERROR. Callback and list stay stored; another call
 *        tries again
 *   -22  `callback` or `list` is null: logged at ERROR; nothing was done
 */
HAL_API int32_t hal_usb_init(hal_usb_callback callback, usb_disk_list* list);

/* Does nothing: the automount thread goes on, and what is mounted stays so. Returns 0. Any thread.
 */
HAL_API int32_t hal_usb_deinit(void);

/*
 * Mounts the partitions of all disks that fdisk lists, and calls the callback of the last
 * hal_usb_init, if there was one, once for each disk that has any. What is mounted already is told
 * again. `list` is cleared before, after each disk and so at the end. Of a line of a listing the
 * first name counts; of a longer line than 1023 characters, each such piece is a line. Takes as
 * long as fdisk and the mounts do. Any thread; one scan at a time, and the automount thread waits
 * for it. Cancellation ends it between commands or in a listing. Returns 0, or -1 if `list` is
 * null.
 */
HAL_API int32_t find_usb_disk_once(usb_disk_list* list);

/*
 * Body of the automount thread, which hal_usb_init starts; it is named "netlink_process". `arg` is
 * a hal_usb_state, whose callback and list are looked up each time; without a list partitions are
 * mounted and unmounted, and nobody is told. For null it says so at ERROR and returns null; else it
 * does not return. Cancellation ends it in its wait (50 ms at most).
 *
 * It hears the kernel's group of uevents, whoever sent them, from a socket of 16 MiB, or of the
 * system's limit where the process has no right to more (CAP_NET_ADMIN); of a message the first
 * 4096 bytes. When it has dealt with all that has come it rests for 2 ms, so that a stream of
 * uevents does not wake it for each one. Where there is no socket it waits idly. A command that
 * hangs holds up what comes behind it. When the wall clock goes back while a list is to be told, or
 * forward by more than half an hour, that list is dropped; what was mounted stays so.
 */
HAL_API void* netlink_process(void* arg);

/*
 * Finds the first match of a POSIX extended regular expression, in the process's locale, and copies
 * it to `out`, which has room for `out_size` bytes, its NUL included. Neither text is changed. Time
 * and memory are what regcomp(3) and regexec(3) need for the pattern. Any thread. Returns
 *    0  found
 *   -1  a pointer is null or `out_size` 0; the pattern is none; the text has no match; or, logged
 *       at ERROR, the match and its NUL do not fit. `out` is as it was
 */
HAL_API int32_t regex_match(const char* pattern, const char* text, char* out, uint8_t out_size);

#ifdef __cplusplus
}
#endif

#endif
