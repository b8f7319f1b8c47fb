/*
 * Operation dispatch: the library's front door. The front-end passes its own argument
 * vector; argv[0] is the decimal operation number, the rest belong to the operation.
 */
#ifndef BOOTINIT_DISPATCH_H
#define BOOTINIT_DISPATCH_H

#include "bootinit/base.h"

BOOTINIT_EXTERN_C_BEGIN

/* Every operation: argument count and vector (the operation's own arguments only). */
typedef uint32_t (*BOOT_INIT_OPER_FUNC)(int32_t argc, char **argv);

/* One entry of the operation table: a packed (number, function) pair. */
typedef struct __attribute__((packed)) {
  uint32_t operType;
  BOOT_INIT_OPER_FUNC operFunc; /* empty for a known but unavailable operation */
} BOOT_INIT_OPER_FUNC_INFO_S;

#define BOOT_INIT_OPER_FUNC_NUM 20u

BOOTINIT_API extern const BOOT_INIT_OPER_FUNC_INFO_S g_operFuncInfo[BOOT_INIT_OPER_FUNC_NUM];

/* The function of operation operType (possibly empty), or empty when no entry has it. */
BOOTINIT_API BOOT_INIT_OPER_FUNC BOOT_INIT_GetOperationFunc(uint32_t operType);

/* Runs operation argv[0] with argc - 1 and argv + 1. Returns the operation's result
 * unchanged, or 0xFFFFFFFF when the number is not valid or has no function. */
BOOTINIT_API uint32_t BOOT_INIT_DoOperation(int32_t argc, char **argv);

BOOTINIT_EXTERN_C_END

#endif /* BOOTINIT_DISPATCH_H */
