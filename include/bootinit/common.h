/*
 * Common services: configuration files, text and path helpers, address conversion, worker
 * threads and bounded descriptor copies. Results are 0 on success and 0xFFFFFFFF on failure
 * unless a function says otherwise; failures are written to the main boot log.
 */
#ifndef BOOTINIT_COMMON_H
#define BOOTINIT_COMMON_H

#include <pthread.h>

#include "bootinit/base.h"

BOOTINIT_EXTERN_C_BEGIN

/* Fixed configuration files; the strings are constant and must not be freed. */
BOOTINIT_API const char *BOOT_INIT_GetIniFile(void);       /* "/opt/startup.ini" */
BOOTINIT_API const char *BOOT_INIT_GetBootIpIniFile(void); /* "/opt/boot_ip.ini" */
BOOTINIT_API const char *BOOT_INIT_GetUserCfgFile(void);   /* "/etc/swm_user.conf" */

/* Value of one "key=value" line: the text after the single "=", trimmed. */
BOOTINIT_API uint32_t BOOT_INIT_GetValueInLine(char *line, char *valueBuf, uint32_t valueBufLen);
/* Value of the first non-blank line of a flat key=value file that contains key. */
BOOTINIT_API uint32_t BOOT_INIT_GetValueFromCfg(const char *cfgFile, const char *key,
                                                char *valueBuf, uint32_t valueBufLen);
/* Root directory of the software-management data ("/var/lib" unless /opt/startup.ini names
 * another). */
BOOTINIT_API uint32_t BOOT_INIT_GetRootPath(char *outBuf, uint32_t outBufLen);

/* Splits path at its last "/" into a non-empty directory and a non-empty base name. */
BOOTINIT_API uint32_t BOOT_INIT_GetDirAndBaseName(const char *path, char *dirBuf,
                                                  uint32_t dirBufLen, char *baseBuf,
                                                  uint32_t baseBufLen);
/* Canonical form of an existing path. */
BOOTINIT_API uint32_t BOOT_INIT_Trans2CanonicalFilepath(const char *path, char *outBuf,
                                                        uint32_t outBufLen);
/* Canonical form of a path whose last component may not exist yet. */
BOOTINIT_API uint32_t BOOT_INIT_GetCanonicalFilepath(const char *path, char *outBuf,
                                                     uint32_t outBufLen);

/* 1 when a NUL byte lies within buf[0..len), else 0 (also for NULL or len < 1). */
BOOTINIT_API uint32_t BOOT_INIT_IsContainsEndCharacter(const char *buf, int32_t len);
/* 1 when one of str[0..len) is a shell-dangerous character or NUL (or on bad arguments). */
BOOTINIT_API uint32_t BOOT_INIT_IsIncludeInvalidChar(const char *str, uint32_t len);

/* Fills family, port (network order) and address of a sockaddr_in (family 2) or sockaddr_in6
 * (family 10) at sockAddr, which must hold a sockaddr_in6; nothing else is touched.
 * 0 on success, 1 on a bad family or address, 0x10000002 on an empty pointer. */
BOOTINIT_API uint32_t BOOT_INIT_StrIPAddr2SockAddr(int32_t family, const char *ipString,
                                                   uint16_t port, void *sockAddr);

/* Starts a detached thread. */
BOOTINIT_API uint32_t BOOT_INIT_CreateThread(void *(*startRoutine)(void *), void *arg,
                                             pthread_t *threadId);

/* Copies exactly length bytes from the current position of in to out: 0 when all moved,
 * 1 when a read or write moved less, 0x10000005 when no buffer could be had. */
BOOTINIT_API uint32_t BOOT_INIT_CopyFileWithLen(int in, int out, int32_t length);

BOOTINIT_EXTERN_C_END

#endif /* BOOTINIT_COMMON_H */
