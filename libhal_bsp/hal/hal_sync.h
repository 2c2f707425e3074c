// The generator loop: reads the time stamps of the video-timing generator, lets the controller
// work on them and sets its clock. Built into the library, but nothing there starts it: in this
// configuration genlock is run by the application, with the controller of <hal_bsp/genlock.h>.
//
// The requests return what ioctl(2) returned; a negative result is logged at ERROR.
#pragma once

#include <hal_bsp/genlock.h>

#include <cstdint>
#include <pthread.h>

// What the loop works with; it must last as long as the loop's thread.
struct gen_loop_para { // NOLINT(readability-identifier-naming): as the C records are
    gen_sys_param* param;
    void* reserved;                   // not read
    void (*state_cb)(uint32_t state); // may be null; called on the loop's thread, without the lock
};

int gen_set_enable(int fd, uint16_t frame_x100);
int gen_set_disable(int fd);
int gen_set_clk(int fd, uint32_t clk);
// -1 for a null `rate`. Logs the value after the request, whatever came of it.
int gen_get_clkrate(int fd, uint32_t* rate);
int gen_force_vsync_enable(int fd, uint32_t refvs_cycle);

// Reads twelve words of time stamps into `ts` and judges them. 0 where the controller may have
// them; -1 where not:
// - `p` or `ts` is null, the rate is 0 (nothing is read then), or the request failed
// - the fourth identical record in a row, which also sets the state to error, and all that follow
// - irregular frames: the last three intervals; `ts` is filled with zeros then
// What it compares with is one for the whole process, so there can be one loop in a process. The
// caller holds the record's lock.
int gen_get_timestamp(gen_sys_param* p, uint64_t* ts);

// The loop, for a thread of its own. `arg` is a gen_loop_para. Returns at once where that or its
// `param` is null, else never: it is ended by cancellation, in its rest between two passes.
void* gen_loop_thread_task(void* arg);

// Starts a thread on it: 0, an error number, or -1 for a null `thread`.
int gen_loop_create(pthread_t* thread, gen_loop_para* arg);
