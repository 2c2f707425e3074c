/*
 * Genlock: keeps the frames of the video output on the grid of a reference frame rate by trimming
 * the output's pixel clock.
 *
 * What is here is the controller: from one time stamp of the output per step it works out the
 * phase error and the next pixel clock. It touches no device. The application reads the time
 * stamps of the video-timing generator and sets its clock with the requests below, in a loop:
 *
 *     genlock_switch_on(p); set the clock to p->clk_next; p->gen_state = HAL_GENLOCK_ADJ;
 *     every five reference frames:
 *         read the time stamps;
 *         if (genlock_process(p, stamps) == 0 && p->clk_next != p->clk_cur)
 *             { p->clk_cur = p->clk_next; set the clock to p->clk_next; }
 *
 * The reference grid has an edge at every multiple of 10^11 / refvs_x100 ns of the time-stamp
 * scale, from its 0 on. That a time stamp times `refvs_x100` stays below 2^64 is for the driver's
 * time scale to see to (35 days at 60 Hz): beyond, the phase comes out wrong, and jumps each time
 * the product wraps.
 *
 * None of these functions takes the record's lock, or keeps anything beside the record: one
 * thread at a time per record, different records independently. They are not cancellation points.
 * They read no other memory than their arguments and allocate nothing.
 */
#ifndef HAL_BSP_GENLOCK_H
#define HAL_BSP_GENLOCK_H

#include <pthread.h>
#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* States of `gen_state`; in brackets the name that is logged. */
#define HAL_GENLOCK_IDLE 0  /* [idle] switched off */
#define HAL_GENLOCK_START 1 /* [start] switched on, the nominal clock is not set yet */
#define HAL_GENLOCK_ADJ 2   /* [adj] phase error of 20 us or more */
#define HAL_GENLOCK_LOCK 3  /* [lock] phase error below 20 us */
#define HAL_GENLOCK_ERROR 4 /* [error] the generator failed: left by switching on, or off, only */

/* Values of `ptp_state`; see ptp.h. */
#define HAL_PTP_OFF 0
#define HAL_PTP_STARTING 1 /* set before the daemons are started, and left if that fails */
#define HAL_PTP_ON 3       /* both daemons were started */

/*
 * The parameters and state of genlock and of the PTP switch. The application's: it fills all with
 * 0, and `mutex` with pthread_mutex_init, before the first call. Marked [in] are the fields that
 * the application sets and the library only reads; the rest is written by the library.
 */
typedef struct gen_sys_param {
    uint32_t reserved0; /* not used */
    int fd; /* [in] descriptor of the video-timing generator; the controller needs none */
    uint64_t reserved1;    /* not used */
    pthread_mutex_t mutex; /* for the threads that share the record; no function here takes it */
    uint32_t ptp_enable;   /* 1 while PTP is switched on, else 0 */
    uint32_t gen_enable;   /* 1 while genlock is switched on, else 0 */
    uint8_t is_master;     /* [in] PTP role: 0 slave, anything else master */
    char eth_name[33];    /* [in] network interface for PTP, NUL included; reaches a shell: ptp.h */
    uint16_t refvs_x100;  /* [in] reference frame rate in 1/100 Hz: 5994 for 59.94 Hz */
    uint16_t h_total;     /* [in] pixels of a line of the output raster, blanking included */
    uint16_t v_total;     /* [in] lines of a frame, blanking included */
    uint16_t outvs_x100;  /* [in] output frame rate in 1/100 Hz; for the log only */
    uint32_t gen_state;   /* HAL_GENLOCK_IDLE .. HAL_GENLOCK_ERROR */
    uint32_t ptp_state;   /* HAL_PTP_OFF, HAL_PTP_STARTING or HAL_PTP_ON */
    uint8_t first_sample; /* 1 until an error has been regulated, else 0 */
    double kp;            /* gains for the error, */
    double ki;            /*   its sum over the steps, */
    double kd;            /*   and its change since the last step */
    double clk_center;    /* nominal pixel clock, Hz */
    double clk_range;     /* largest deviation from it, Hz: 0.06 % of it */
    double clk_step_max;  /* largest change in one step, Hz: 0.01 % of it */
    double err_sum;       /* sum of regulated errors, ns */
    double err_prev;      /* last regulated error, ns */
    uint32_t clk_next;    /* pixel clock that the last step asks for, Hz */
    uint32_t clk_cur;     /* pixel clock in force, Hz */
} gen_sys_param;

/* Time stamps in the ring of the generator. */
#define HAL_GEN_STAMPS 10

/*
 * What the generator tells of the output's frames: twelve words of 64 bits, and so also the
 * `const uint64_t*` that genlock_process takes. Times are nanoseconds of the driver's scale.
 */
typedef struct gen_timestamp {
    uint64_t sample;               /* the time stamp to regulate on */
    uint64_t ring[HAL_GEN_STAMPS]; /* the ten most recent frames */
    uint64_t newest;               /* index, 0 to 9, of the newest of them */
} gen_timestamp;

/*
 * Requests of the video-timing generator, for ioctl(2). The name of its device node is the
 * driver's to say, as is what the last three do; the sizes of the arguments are fixed.
 */
#define HAL_GEN_GET_TIMESTAMP 0x80604321UL /* reads a gen_timestamp */
#define HAL_GEN_SET_CLK 0x40044322UL       /* takes a uint32_t: pixel clock in Hz */
#define HAL_GEN_GET_CLKRATE 0x80044323UL   /* reads a uint32_t */
#define HAL_GEN_FORCE_VSYNC 0x40044324UL   /* takes a uint32_t: reference vsync cycle */
#define HAL_GEN_SET_ENABLE 0x40024325UL    /* takes a uint16_t: frame rate in 1/100 Hz */
#define HAL_GEN_SET_DISABLE 0x40044326UL   /* takes a uint32_t: 0 */

/*
 * Resets the controller's part of the record: off, idle, gains 0.001, 0 and 0.01, clocks, limits
 * and errors 0. The PTP fields and those marked [in] are untouched. Returns
 *    0  done
 *   -1  `p` is null
 */
HAL_API int genlock_sys_init(gen_sys_param* p);

/*
 * Resets as genlock_sys_init, then works out the nominal clock refvs_x100 * h_total * v_total /
 * 100 in Hz, sets both clocks and the limits by it, and arms the regulator: `gen_enable` 1, state
 * HAL_GENLOCK_START. Of a nominal clock beyond 32 bits the low 32 bits are taken, which no output
 * can be locked with. Returns
 *    0  done
 *   -1  `p` is null; or `refvs_x100`, `h_total` or `v_total` is 0: logged at ERROR, and genlock
 *       is off and idle as after genlock_sys_init, whatever it was before
 */
HAL_API int genlock_switch_on(gen_sys_param* p);

/* Logs, then genlock_sys_init: resets and returns as that does. */
HAL_API int genlock_switch_off(gen_sys_param* p);

/*
 * One step of the regulator on the time stamp `ts[0]`; only that word is read. Sets the state to
 * HAL_GENLOCK_LOCK below 20 us of phase error, else to HAL_GENLOCK_ADJ. From 4.5 us on it also
 * sets `clk_cur` to the old `clk_next`, and `clk_next` to the clock to be set now: at most
 * `clk_step_max` from the old `clk_cur`, and within `clk_center` +- `clk_range`. Returns
 *    0  done; or the state is HAL_GENLOCK_IDLE or HAL_GENLOCK_ERROR: logged, nothing has changed
 *   -1  the phase error is beyond range (logged); or `p` or `ts` is null, or `refvs_x100`,
 *       `h_total` or `v_total` is 0 (not logged). Nothing has changed
 *
 * Any content of the record is safe. Should gains or limits that an application has put there
 * lead beyond 32 bits, `clk_next` is the nearest that fits; where they lead to no number at all
 * it stays.
 */
HAL_API int genlock_process(gen_sys_param* p, const uint64_t* ts);

#ifdef __cplusplus
}
#endif

#endif
