/*
 * Logging: every message of the library, and those the application cares to add, goes through
 * log_log, which hands it to standard error, to the system log and to the sinks that the
 * application registered.
 *
 * Settings need no start-up call and last for the life of the process. They can be read by
 * logging threads at any moment without a data race, but make them before other threads log:
 * messages already on their way use the old setting.
 *
 * None of these functions is a cancellation point, with one exception: a callback or lock hook
 * that enables cancellation itself.
 */
#ifndef HAL_BSP_LOG_H
#define HAL_BSP_LOG_H

#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <time.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Levels, rising in weight. The library itself uses DEBUG to ERROR. */
#define HAL_LOG_TRACE 0
#define HAL_LOG_DEBUG 1
#define HAL_LOG_INFO 2
#define HAL_LOG_WARN 3
#define HAL_LOG_ERROR 4
#define HAL_LOG_FATAL 5

/* Sinks in the table, the system log's included: an application can add 31. */
#define HAL_LOG_SLOTS 32

/* One message as a sink gets it. Owned by log_log and valid until the sink returns. */
typedef struct log_event {
    va_list ap;       /* the values of `fmt`, started afresh for each sink: use them once */
    const char* fmt;  /* printf format of the text, never null */
    const char* file; /* source file or module that logged, never null */
    struct tm* time;  /* local time of the message, the same for all its sinks */
    void* udata;      /* what the sink was registered with; the FILE * for streams */
    int line;         /* line of the call */
    int level;        /* HAL_LOG_TRACE .. HAL_LOG_FATAL, or whatever the caller passed */
} log_event;

/*
 * A sink. Runs on the logging thread, with cancellation disabled and, when a lock hook is
 * installed, with that lock held. It may call log_log; see there.
 */
typedef void (*log_callback)(log_event* ev);

/* Locks (true) or unlocks (false) whatever `udata` is. Runs with cancellation disabled. */
typedef void (*log_lock_hook)(bool lock, void* udata);

/*
 * "BSP_HAL_VER: " and the build's time as year-month-day-hour-minute-second, NUL included. The
 * version is hal_bsp_version.
 */
extern HAL_API const char VER_STR[33];

/*
 * Sends one message to standard error (unless quiet, and if `level` reaches the threshold) and
 * to every registered sink whose level it reaches. Any thread, but not a signal handler.
 *
 *   level  HAL_LOG_TRACE .. HAL_LOG_FATAL. Any other value is compared as the number it is and
 *          shown with the placeholder name that log_level_string gives.
 *   file   name of the source file or module; null is shown as "?"
 *   line   line of the call
 *   fmt    printf format; null is taken as "". Lines usually end in "\n"; sinks keep it and the
 *          stream sinks add one of their own.
 *
 * A message logged by a sink or by the lock hook, that is from inside log_log, is dispatched
 * without calling the hook again, and dropped when it is nested more than eight deep. errno is
 * left as it was, and each sink sees it so ("%m" works).
 *
 * The standard-error line is "HH:MM:SS LEVEL file:line: text" and a newline, LEVEL left-aligned
 * in five characters. A line goes to its stream in one piece even when no lock hook is installed.
 * A stream that cannot be written, and text that cannot be encoded, lose that text only.
 */
HAL_API void log_log(int level, const char* file, int line, const char* fmt, ...) HAL_PRINTF(4, 5);

/*
 * The level's name: "TRACE", "DEBUG", "INFO", "WARN", "ERROR" or "FATAL"; "?????" for a level
 * outside 0..5. The string lasts for ever. Any thread.
 */
HAL_API const char* log_level_string(int level);

/*
 * Installs the hook that log_log calls with true before and with false after each message, so
 * that one message is written to all sinks before the next begins; a null `hook` removes it.
 * A message under way still unlocks what it locked, so `udata` must outlive it. To replace one
 * hook by another while other threads log, remove the first and let them pass. One thread at a
 * time.
 */
HAL_API void log_set_lock(log_lock_hook hook, void* udata);

/* Sets the lowest level that standard error shows; HAL_LOG_INFO at first. Any thread. */
HAL_API void log_set_level(int level);

/* true silences standard error, and nothing else; false at first. Any thread. */
HAL_API void log_set_quiet(bool enable);

/*
 * Registers a sink for messages of `level` and above. Sinks are called in the order of their
 * registration, after standard error, and cannot be removed: `callback` and `udata` must last
 * for the life of the process. The first slot is taken by syslog_callback_func from the start.
 * Any thread. Returns
 *    0  registered
 *   -1  all HAL_LOG_SLOTS slots are taken, or `callback` is null; nothing has changed
 */
HAL_API int log_add_callback(log_callback callback, void* udata, int level);

/*
 * Registers an open stream for messages of `level` and above. Lines look like those on standard
 * error with the date before the time ("YYYY-MM-DD HH:MM:SS"), and the stream is flushed after
 * each. The stream stays the application's, which must not close it. Any thread. Returns
 *    0  registered
 *   -1  all HAL_LOG_SLOTS slots are taken, or `fp` is null; nothing has changed
 */
HAL_API int log_add_fp(FILE* fp, int level);

/*
 * The system-log sink, there from the start with level HAL_LOG_TRACE; exported so that it can be
 * registered again or called. Sends "LEVEL file:line: text", cut to 65534 bytes, under ident
 * "libhal_bsp", facility LOG_LOCAL5, with the process id. The system log is opened before and
 * closed after each message; calls take turns. An application that uses syslog(3) itself opens
 * it again afterwards. A null `ev` is ignored, and so is a message for which no buffer can be
 * had. Text that cannot be encoded is replaced by its format. Any thread.
 */
HAL_API void syslog_callback_func(log_event* ev);

/*
 * Writes `str` and a newline to standard output: no level, no prefix, no lock hook. A null `str`
 * is ignored. Any thread.
 */
HAL_API void drv_printf(const char* str);

#ifdef __cplusplus
}
#endif

#endif
