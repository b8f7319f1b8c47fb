/*
 * libbootinit: types, result codes and export rules shared by every subsystem header.
 *
 * ABI rules: every function has C linkage and returns plain C types; structures exchanged
 * with callers have frozen layouts; nothing thrown inside the library crosses this boundary.
 * Result codes are unsigned 32-bit: 0 is success, any other value a failure.
 */
#ifndef BOOTINIT_BASE_H
#define BOOTINIT_BASE_H

#include <stdint.h>

#define BOOTINIT_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define BOOTINIT_EXTERN_C_BEGIN extern "C" {
#define BOOTINIT_EXTERN_C_END }
#else
#define BOOTINIT_EXTERN_C_BEGIN
#define BOOTINIT_EXTERN_C_END
#endif

#define BOOT_INIT_OK 0u
#define BOOT_INIT_ERROR 0xFFFFFFFFu              /* general failure */
#define BOOT_INIT_ERR_GENERAL 1u                 /* general failure of a step */
#define BOOT_INIT_ERR_PARAM 0x10000001u          /* bad argument or argument count */
#define BOOT_INIT_ERR_NULL_PTR 0x10000002u       /* empty pointer argument */
#define BOOT_INIT_ERR_FILE_NOT_EXIST 0x10000003u /* a required file does not exist */
#define BOOT_INIT_ERR_NO_MEMORY 0x10000005u      /* out of memory */
#define BOOT_INIT_ERR_NOT_IN_PACKAGE 0x10000007u /* file not in the package */
#define BOOT_INIT_ERR_OPEN_FILE 0x10000011u      /* file cannot be opened */

#endif /* BOOTINIT_BASE_H */
