/*
 * Startup mode and backup path. The facts belong to the platform support library
 * "libsupport_linux.so", which is opened for each request and closed again.
 */
#ifndef BOOTINIT_STARTUP_H
#define BOOTINIT_STARTUP_H

#include "bootinit/base.h"

BOOTINIT_EXTERN_C_BEGIN

#define BOOT_INIT_STARTUP_MODE_NETWORK 0u
#define BOOT_INIT_STARTUP_MODE_LOCAL 1u
#define BOOT_INIT_STARTUP_MODE_INVALID 2u

/* 0, 0xFFFFFFFF when the library or entry point cannot be loaded, or the entry point's code. */
BOOTINIT_API uint32_t BOOT_INIT_SetStartupMode(uint32_t mode);
/* Sets *mode to 0 (network) first, then leaves it as the support library wrote it. */
BOOTINIT_API void BOOT_INIT_GetStartupMode(uint32_t *mode);
/* 0 when buffer names an existing directory afterwards, else 0xFFFFFFFF. */
BOOTINIT_API uint32_t BOOT_INIT_GetBackUpPath(char *buffer, uint32_t size);

/* Operation 9: prints "\nBACK_PATH:<path>\n". */
BOOTINIT_API uint32_t BOOT_InitOperGetBackPath(int32_t argc, char **argv);
/* Operation 10: prints "\nSTARTUP_MODE:local\n" or "\nSTARTUP_MODE:network\n". */
BOOTINIT_API uint32_t BOOT_InitOperGetStartupMode(int32_t argc, char **argv);
/* Operation 11: one argument, "network" or "local". */
BOOTINIT_API uint32_t BOOT_InitOperSetStartupMode(int32_t argc, char **argv);

BOOTINIT_EXTERN_C_END

#endif /* BOOTINIT_STARTUP_H */
