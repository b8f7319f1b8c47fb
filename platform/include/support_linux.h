/*
 * Platform support library "libsupport_linux.so", opened at run time by the boot code.
 *
 * The startup mode (0 network, 1 local) is kept in the boot environment variable
 * "startup_mode" ("0" or "1") through libdrv; the backup directory comes from the board
 * description ([support] backup_dir). Results are 0 on success; a failure forced by the board
 * description ([fail] section, non-zero code) is returned as its code after the argument
 * checks, with outputs still written (PSSP_SetStartupMode then stores nothing).
 *
 * Lies apart from the other platform libraries in the build tree (lib/runtime/), so that only
 * LD_LIBRARY_PATH makes dlopen find it. drv_env_set is referenced weakly: with a driver that
 * lacks it the library still loads and PSSP_SetStartupMode answers PSSP_ERR_STORE.
 */
#ifndef SUPPORT_LINUX_H
#define SUPPORT_LINUX_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define PSSP_API __attribute__((visibility("default")))

#define PSSP_ERR_PARAM 1u    /* invalid mode, empty pointer or zero size */
#define PSSP_ERR_NOT_SET 2u  /* no mode stored yet, or no backup directory described */
#define PSSP_ERR_TOO_LONG 3u /* the backup directory does not fit the buffer */
/* The boot environment cannot be read or written, or holds a startup_mode other than "0" and
 * "1". */
#define PSSP_ERR_STORE 4u

/* Stores mode 0 or 1. */
PSSP_API uint32_t PSSP_SetStartupMode(uint32_t mode);
/* *mode receives the stored mode; it is written only when one was read. */
PSSP_API uint32_t PSSP_GetStartupMode(uint32_t *mode);
/* Copies the backup directory with its terminator; buffer is "" after a failure that is not
 * forced. */
PSSP_API uint32_t PSSP_GetBackUpPath(char *buffer, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif /* SUPPORT_LINUX_H */
