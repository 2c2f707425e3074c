/*
 * The bootloader environment: named values that the bootloader keeps, such as "bootdelay", reached
 * through the programs /usr/bin/fw_printenv and /usr/bin/fw_setenv (Debian: libubootenv-tool).
 *
 * NAMES AND VALUES REACH A SHELL UNQUOTED. They are put into a command line as they stand, so what
 * a shell reads in them happens, with the application's rights: "2; reboot" reboots, "$(...)" runs,
 * "a b" is two words, of which fw_setenv stores one, and "*" becomes the names of files. A text
 * that starts with '-' is an option of the tool. Pass only texts whose characters you know:
 * letters, digits, and of the others '_', '.', ',', ':', '/', '@', '%', '+', '=' and '-' (not
 * first). A caller that needs more quotes the text itself, for a POSIX shell: 'a b'.
 *
 * No command is longer than 127 characters: one that would be is not run at all, since cut off it
 * would be another command.
 *
 * Any thread: there is no state and no lock, each call starts processes of its own. The tools are
 * children of the calling process for as long as a call takes; their standard input and error
 * stream are its own, and their exit status is not looked at.
 */
#ifndef HAL_BSP_FWENV_H
#define HAL_BSP_FWENV_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The least size in bytes of an out buffer. */
#define HAL_FW_VALUE_SIZE 127

/*
 * Reads a variable, terminated, into `value`, which has at least HAL_FW_VALUE_SIZE bytes. It waits
 * for the tool to end.
 *
 * Of the tool's output the first line counts, and of that the first 126 characters: name, '=' and
 * value. A longer value is cut there and is no failure. The line ends before its last newline, and
 * then before its last carriage return. An empty name asks for every variable, and gets the first.
 * How a variable that is not set looks is the tool's to say: an empty value, or no line. Returns
 *     0  done
 *    -1  `name` is null
 *   -35  `value` is null, the command is too long or cannot be started, each logged at ERROR; or
 *        the tool printed no line, or one without a '=', which is logged whole at INFO in the
 *        result's place
 * After a failure the buffer is as it was.
 */
HAL_API int32_t hal_fw_printenv(const char* name, char* value);

/*
 * Starts setting a variable; removes it where `value` is null. The tool goes on in the background
 * after the call has returned, and nothing tells whether it succeeded: read the variable until it
 * has changed. Two calls in quick succession run two tools at the same time, in any order. Returns
 *     0  started
 *   -35  `name` is null; or the command is too long or cannot be started, logged at ERROR
 */
HAL_API int32_t hal_fw_setenv(const char* name, const char* value);

#ifdef __cplusplus
}
#endif

#endif
