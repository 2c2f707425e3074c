/*
 * The sensor link: packets and images between the application and a host computer, through the
 * driver at "/dev/sensor_usb" of the USB device port.
 *
 * hal_sensor_usb_init once, then packets and states arrive and the send calls work, then
 * hal_sensor_usb_deinit. The library hands the drivers' values through and interprets none of them.
 * States of the connection are those of <hal_bsp/otg.h>. All of it logs as "hal_sensor_usb".
 */
#ifndef HAL_BSP_SENSOR_USB_H
#define HAL_BSP_SENSOR_USB_H

#include <pthread.h>
#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

#define HAL_SENSOR_USB_PACKET_SIZE 4096 /* bytes of the longest packet, either way */

/* A packet that came, 16 bytes. */
typedef struct hal_sensor_usb_data {
    uint32_t len;  /* 0 to 4096 */
    uint8_t* data; /* so many bytes */
} hal_sensor_usb_data;

/* A state that the kernel told, 8 bytes. */
typedef struct hal_sensor_usb_state {
    int32_t prev; /* the one before; HAL_OTG_UNKNOWN at first */
    int32_t cur;  /* HAL_OTG_CONFIGURED, HAL_OTG_CONNECTED or HAL_OTG_DISCONNECTED */
} hal_sensor_usb_state;

/* A packet to send, 24 bytes. */
typedef struct hal_sensor_usb_pkt {
    uint32_t len;     /* 0 to 4096 */
    const void* data; /* so many bytes; not needed for none */
    uint32_t arg0;    /* handed to the driver, as is arg1 */
    uint32_t arg1;    /* the same */
} hal_sensor_usb_pkt;

/* An image to send, 24 bytes. Its fields are named after the byte at which they stand. */
typedef struct hal_sensor_image_pkt {
    uint32_t value0;  /* handed to the driver */
    uint32_t unused4; /* not read: the driver gets 0 */
    uint64_t value8;  /* the same */
    uint64_t value16; /* the same */
} hal_sensor_image_pkt;

/*
 * Called on the data thread for each packet, one at a time. Record and bytes are the library's and
 * valid until the callback returns. A packet whose length the driver gives as more than 4096 is
 * handed on as one of 4096, which is what there is room for. It runs with cancellation disabled,
 * and may make any call of this header.
 */
typedef void (*hal_sensor_usb_data_callback)(hal_sensor_usb_data* packet);

/*
 * Called on the state thread with each state the kernel tells, also with one that is told again.
 * The record is the library's and valid until the callback returns. It runs with cancellation
 * disabled, and may make any call of this header. States are not heard meanwhile: the socket holds
 * some hundred, and of more the last ones are lost.
 */
typedef void (*hal_sensor_usb_state_callback)(hal_sensor_usb_state* state);

/* The module's state, all zero at load. To be looked at; the library writes it. */
typedef struct hal_sensor_usb_channel {
    int32_t thread_state; /* 1 from init to deinit, and after an init that could start no thread */
    int32_t fd;           /* the descriptor of "/dev/sensor_usb", -1 after deinit */
    hal_sensor_usb_data_callback data_cb;   /* as given to the last init; null after deinit */
    hal_sensor_usb_state_callback state_cb; /* as given to the last init, also after deinit */
    pthread_t data_tid;  /* the data thread; of no meaning unless thread_state is 1 */
    pthread_t state_tid; /* the state thread, which is detached; the same */
} hal_sensor_usb_channel;

/* The module's state. */
extern HAL_API hal_sensor_usb_channel hal_sensor_usb_info;

/*
 * Opens the driver's node and starts both threads. Either callback may be null: packets are
 * fetched, and states heard, for nobody then. Any thread: of two calls at a time the second one
 * finds what the first has done. Returns 0  both threads run -35  logged at ERROR; one of
 *        - it is initialised already: nothing has changed;
 *        - "/dev/sensor_usb" cannot be opened: `thread_state` is 0 and the callbacks are stored;
 *        - a thread cannot be started: node and `thread_state`, and where the state thread is the
 *          missing one, the data thread, are as if both ran. hal_sensor_usb_deinit before the next
 *          try
 */
HAL_API int32_t hal_sensor_usb_init(hal_sensor_usb_data_callback data_callback,
                                    hal_sensor_usb_state_callback state_callback);

/*
 * Ends the data thread and waits for it, tells the state thread to end, and closes the node: with
 * the last send call that is under way, where there is one, which it does not wait for. No data
 * callback begins, or goes on, once it has returned, but for the one that it was called from; of
 * two calls at a time it is the first that waits for it. The state thread ends within 102 ms, or
 * once its callback has returned: one that was about to begin may still do so, and what it uses has
 * to be there as long. Harmless while not initialised. Not a cancellation point. Any thread, and
 * both callbacks; it must not hold a lock that the data callback waits for.
 */
HAL_API void hal_sensor_usb_deinit(void);

/*
 * The state of the connection, as the attribute `usbsta` of the kernel's device
 * "/sys/devices/virtual/android_usb/android0" has it: hal_otg_init's listener keeps it, and this
 * module does not. `state` gets -1 (HAL_OTG_UNKNOWN) where there is no attribute (logged at ERROR)
 * or it cannot be opened (four times, logged at INFO), and 0 where it holds no number; null for
 * `state` is allowed. Returns 0. Any thread.
 */
HAL_API int32_t hal_get_usb_connect_state(int32_t* state);

/*
 * Send a packet, send an image, clear flags: one request to the driver on the node that is open,
 * from any thread, also while another deinitialises. The argument is only read, and not kept. Each
 * returns
 *   the request's own result: 0 or more done, negative refused (logged at ERROR; errno tells why)
 *   -1  logged at ERROR in the same words, errno is EBADF while not initialised; EINVAL for a
 *       null argument, or null `data` with a `len`; EMSGSIZE for a `len` above 4096, of which
 *       nothing is sent; ENOMEM where there is no memory for a packet's record
 */
HAL_API int32_t hal_send_protocol_pkt(const hal_sensor_usb_pkt* pkt);
HAL_API int32_t hal_send_image_pkt(const hal_sensor_image_pkt* pkt);
HAL_API int32_t hal_clear_flag(const uint8_t flags[2]);

/*
 * Body of the data thread, which hal_sensor_usb_init starts. `arg` is a hal_sensor_usb_channel; for
 * null it returns null at once. It waits for packets, 200 ms at a time, and rests 2 ms after each
 * packet and each time-out, but not after a request that the driver refuses. It returns null once
 * `thread_state` is 0. Cancellation ends it in its waits and rests.
 */
HAL_API void* hal_sensor_usb_data_listen(void* arg);

/*
 * Body of the state thread, which hal_sensor_usb_init starts: hal_otg_listen's, but that it writes
 * no attribute and leaves the HID devices alone. `arg` is a hal_sensor_usb_channel; for null it
 * returns null at once. It returns null within 102 ms after `thread_state` is 0 or either of init
 * and deinit was called. Cancellation ends it in its waits and rests.
 */
HAL_API void* hal_sensor_usb_state_listen(void* arg);

#ifdef __cplusplus
}
#endif

#endif
