/*
 * The system configuration: named values that the system keeps, reached through the program
 * /usr/bin/sysconfig.
 *
 * KEYS AND VALUES REACH A SHELL UNQUOTED. They are put into a command line as they stand, so what
 * a shell reads in them happens, with the application's rights: "eth0; reboot" reboots, "$(...)"
 * runs, "a b" is two words, and "*" becomes the names of files. Pass only texts whose characters
 * you know: letters, digits, and of the others '_', '.', ',', ':', '/', '@', '%', '+', '=' and '-'
 * (not first). A caller that needs more quotes the text itself, for a POSIX shell: 'a b'.
 *
 * No command is longer than 127 characters (a key to read has up to 104): one that would be is not
 * run at all, since cut off it would be another command.
 *
 * Any thread: there is no state and no lock, each call starts a process of its own and waits for
 * its end. The tool's standard input and error stream are those of the calling process, and its
 * exit status is not looked at.
 */
#ifndef HAL_BSP_SYSCONF_H
#define HAL_BSP_SYSCONF_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The least size in bytes of an out buffer. */
#define HAL_SYSCONFIG_VALUE_SIZE 127

/*
 * Reads a value, terminated, into `value`, which has at least HAL_SYSCONFIG_VALUE_SIZE bytes.
 *
 * It is the first line of the tool's output, at most 126 characters of it; a longer one is cut and
 * is no failure. The line ends before its last newline, and then before its last carriage return.
 * Returns
 *     0  done
 *   -35  `key` is null; `value` is null, the command is too long or cannot be started, each logged
 *        at ERROR; or the tool printed no line
 * After a failure the buffer is as it was.
 */
HAL_API int32_t hal_sysconfig_get(const char* key, char* value);

/*
 * Sets a value; where `value` is null the tool is given the key alone. Returns
 *     0  the tool ran, whatever came of it
 *   -35  `key` is null; or the command is too long or cannot be started, logged at ERROR
 */
HAL_API int32_t hal_sysconfig_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif

#endif
