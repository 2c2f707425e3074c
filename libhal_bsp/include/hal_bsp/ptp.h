/*
 * PTP: switches time synchronisation on and off by running the daemons `ptp4l`, which keeps the
 * network interface's clock on PTP time, and `phc2sys`, which ties the system clock to it. That
 * they are installed and configured is for the system to see to.
 *
 * The functions run commands by system(3), one after the other on the calling thread; the daemons
 * stay in the background as children of nobody, with the standard streams of the application. A
 * command that no shell could be started for counts as failed; one that the shell does not find,
 * and a daemon that ends by itself, is not noticed.
 *
 * `eth_name` goes into the ptp4l command as it stands, unquoted: a shell reads it. Only names
 * that the application has checked belong there (letters, digits, '.', '_', '-', not first).
 * That command is cut to 63 characters, which a terminated name never reaches; of a name without
 * its NUL the 33 characters are taken.
 *
 * No function takes the record's lock: where other threads use the record, the caller holds
 * `mutex` around the call. The daemons are the machine's, not the record's, so one thread at a
 * time. Cancellation is off during the calls, so they are not cancellation points. As with any
 * use of system(3), SIGINT and SIGQUIT are ignored and SIGCHLD is blocked meanwhile.
 */
#ifndef HAL_BSP_PTP_H
#define HAL_BSP_PTP_H

#include <hal_bsp/export.h>
#include <hal_bsp/genlock.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Ends daemons that run, then starts both: role by `is_master`, ptp4l on interface `eth_name`.
 * May be repeated, to change role or interface. `ptp_enable` is 1 from then on; `ptp_state` goes
 * to HAL_PTP_STARTING, and to HAL_PTP_ON once both are started. Returns
 *   0 or more  done: the shell's wait status of the last command, as system(3) gives it
 *   -1         `p` is null (nothing is done then); or no shell could be started for a daemon,
 *              which is logged at ERROR and leaves the state at HAL_PTP_STARTING, the other
 *              daemon perhaps running: ptp_switch_off ends it
 */
HAL_API int ptp_switch_on(gen_sys_param* p);

/*
 * Ends both daemons, by SIGKILL; `ptp_enable` and `ptp_state` become 0. Also where nothing runs.
 * Returns
 *    0  done
 *   -1  `p` is null
 */
HAL_API int ptp_switch_off(gen_sys_param* p);

#ifdef __cplusplus
}
#endif

#endif
