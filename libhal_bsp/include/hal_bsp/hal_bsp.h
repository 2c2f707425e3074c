/*
 * The whole interface of libhal_bsp, the board-support library: include this one.
 *
 * Usable from C99 and C++. The library has no start-up call and no main loop: each module is
 * started by its own init call and stopped by its deinit call, in the order the application
 * chooses. No C++ exception leaves any function.
 *
 * Words about threads that the comments of every header use:
 *
 *   any thread                may be called from any thread, by several at the same time.
 *   one thread at a time      may be called from any thread, but the application sees to it
 *                             that no two calls of the functions so marked overlap.
 *   listener thread           a thread that the library starts in a module's init call and ends
 *                             in its deinit call; the module's callbacks run on it and on no
 *                             other. The module hears nothing while a callback runs, so a
 *                             callback should return quickly. Records passed to a callback are
 *                             valid until it returns.
 *
 * Threads that call the library may be cancelled (pthread_cancel) as long as their cancellation
 * type is deferred, which is how every thread starts. A function whose comment says that it is
 * not a cancellation point is always completed. Signals, whose handlers may be installed without
 * SA_RESTART, change no result. A stack of 16 KiB is enough for every function.
 *
 * A library that was loaded with dlopen stays mapped after dlclose: a listener that was stopped may
 * need a moment to end.
 *
 * Records and objects hold plain fixed-width fields in the order shown. An exported state object
 * (hal_gpio_info and its like) is there to be looked at; the library alone writes it. Board data
 * (cdcm6208_devlist and its like) and records of callbacks (cdcm6208_user_cfg) are read when a
 * function needs them; an application that changes them does so while no such function runs.
 */
#ifndef HAL_BSP_HAL_BSP_H
#define HAL_BSP_HAL_BSP_H

#include <hal_bsp/absystem.h>
#include <hal_bsp/armhdmi_out.h>
#include <hal_bsp/backlight.h>
#include <hal_bsp/boardtemp.h>
#include <hal_bsp/clock.h>
#include <hal_bsp/disabled.h>
#include <hal_bsp/ethlink.h>
#include <hal_bsp/export.h>
#include <hal_bsp/fans.h>
#include <hal_bsp/fpga.h>
#include <hal_bsp/fwenv.h>
#include <hal_bsp/genlock.h>
#include <hal_bsp/gpio.h>
#include <hal_bsp/hid.h>
#include <hal_bsp/i2c.h>
#include <hal_bsp/keypad.h>
#include <hal_bsp/log.h>
#include <hal_bsp/mass.h>
#include <hal_bsp/mcu.h>
#include <hal_bsp/md5sum.h>
#include <hal_bsp/oled.h>
#include <hal_bsp/otg.h>
#include <hal_bsp/partition.h>
#include <hal_bsp/ptp.h>
#include <hal_bsp/sensor_usb.h>
#include <hal_bsp/sysconf.h>
#include <hal_bsp/sysgpio.h>
#include <hal_bsp/tbar.h>
#include <hal_bsp/timing.h>
#include <hal_bsp/usb.h>
#include <hal_bsp/vendor.h>
#include <hal_bsp/version.h>
#include <hal_bsp/video.h>

#endif
