/*
 * Chip libraries for the board's video interface chips, one for each family, as <hal_bsp/video.h>
 * describes what a chip library is:
 *
 *   library       registration function    chips
 *   libgsv2001    gsv2001_IcRegister       1
 *   libgsv2002    gsv2002_IcRegister       1
 *   libgsv20xx    gsv20xx_IcRegister       4
 *   libit6264     it6615_6264_IcRegister   1
 *
 * An application links those of its board (-lgsv20xx) beside libhal_bsp. It calls nothing in them,
 * for libhal_bsp does; so a linker that leaves out what nobody calls has to be told not to, by
 * -Wl,--no-as-needed before the libraries (the targets of CMake see to that). The libraries link
 * nothing of ours: all they do goes through the services that they are registered with, and before
 * that no operation does anything.
 *
 * What they offer, by the slot in video_chip_ops; `port` has to be 0. Every value is handed to the
 * chip, which keeps it in a register of a byte: a value above 255, or above 1 where that is all
 * there is, is refused.
 *
 *   slot  arguments after dev            does                                      families
 *   0     -                              resets the chip, makes sure of its        all
 *                                        identity, writes mode and options and
 *                                        reads them back
 *   1     period_ms, which is not used   looks for hot plug, and for a chip that   all
 *                                        has started over: it is set up again
 *   3     port, EDID, most_ms            writes the EDID, reads it back, and has   gsv2001, gsv20xx
 *                                        the chip check it, which may take so long
 *   4     port, uint8_t*                 whether something is plugged in: 0 or 1   all
 *   6     port, value                    set-up value d                            all but gsv2002
 *   8     port, value                    set-up value e                            all but gsv2002
 *   17    value                          set-up value f                            all
 *   18    value, value, value            set-up values a, b and c                  all but gsv2002
 *   20    0 or 1                         output off or on                          it6264
 *   21    port, uint8_t*, size           reads the EDID back out of the chip, at   gsv2001, gsv20xx
 *                                        most 256 bytes of it
 *   33    port, 0 or 1                   equaliser of the input off or on          gsv2001
 *
 * An EDID is 128 bytes, and 128 more where its byte 126 is not 0. Hot plug, and what becomes of a
 * chip, is told by the print service. Of an entry of the device table, `i2c_addr` is where the chip
 * is, `mode` goes to its mode register, and the words to its options, of a byte each, where
 * HAL_VIDEO_NONE leaves an option alone.
 *
 * Operations return
 *   0                         done
 *   HAL_CHIPS_NO_ANSWER       a transfer failed, or the chip did not come up in time
 *   HAL_CHIPS_WRONG_CHIP      somebody answers, who is no chip of the family
 *   HAL_CHIPS_WRONG_ARGUMENT  no such chip or port, no such value, or a null pointer
 *   HAL_CHIPS_NOT_UP          not registered, or slot 0 was not called or has failed
 *   HAL_VIDEO_NOT_OFFERED     the slot is none of those above (libhal_bsp's default operation)
 *   HAL_CHIPS_NOT_KEPT        the chip does not hold what was written
 *   HAL_CHIPS_TOLD_TO_FAIL    slot 0 of a chip that HAL_CHIPS_FAIL names
 *   HAL_CHIPS_BAD_EDID        the chip calls the EDID bad, and is not handed it again
 *
 * What a chip that is up did not get because it did not answer or keep it, slot 1 hands to it
 * later.
 *
 * Any thread, any number at once: calls for one chip wait for one another, also while one of them
 * sleeps. They are cancellation points where the services are.
 *
 * To see an application with a chip that does not come up, there is the environment variable
 * HAL_CHIPS_FAIL, which is read at registration: names of chips with commas between them, such as
 * "gsv20xx:2,gsv2001:0". Slot 0 of each fails, and the chip is not touched.
 */
#ifndef HAL_CHIPS_HAL_CHIPS_H
#define HAL_CHIPS_HAL_CHIPS_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

#define HAL_CHIPS_NO_ANSWER 1
#define HAL_CHIPS_WRONG_CHIP 2
#define HAL_CHIPS_WRONG_ARGUMENT 3
#define HAL_CHIPS_NOT_UP 4
#define HAL_CHIPS_NOT_KEPT 6
#define HAL_CHIPS_TOLD_TO_FAIL 7
#define HAL_CHIPS_BAD_EDID 8

/* What was done for one chip since the library was loaded. Numbers wrap at 2^32. */
typedef struct hal_chips_counters {
    uint32_t inits;        /* calls of slot 0 */
    uint32_t services;     /* calls of slot 1 */
    uint32_t set_ups;      /* calls of slots 3, 6, 8, 17, 18, 20 and 33 */
    uint32_t starts_over;  /* how often the chip was found to have started over */
    uint32_t plug_changes; /* how often something was plugged in or pulled out */
    uint32_t resets;       /* calls of the services, from here on */
    uint32_t delays;
    uint32_t times;
    uint32_t prints;
    uint32_t i2c_writes;
    uint32_t i2c_reads;
    uint32_t i2c_failures; /* so many of the two before */
} hal_chips_counters;

/*
 * The counters of a chip. Each is right by itself; while other threads work, they are not of one
 * moment. Any thread, no waiting. Return 0, or HAL_CHIPS_WRONG_ARGUMENT, with nothing stored, if
 * there is no chip `dev` in the family or `counters` is null.
 */
HAL_API int32_t gsv2001_counters(uint32_t dev, hal_chips_counters* counters);
HAL_API int32_t gsv2002_counters(uint32_t dev, hal_chips_counters* counters);
HAL_API int32_t gsv20xx_counters(uint32_t dev, hal_chips_counters* counters);
HAL_API int32_t it6615_6264_counters(uint32_t dev, hal_chips_counters* counters);

#ifdef __cplusplus
}
#endif

#endif
