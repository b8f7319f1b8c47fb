/*
 * Board information: the board's identity, operation 1 that prints it for the boot scripts,
 * and the rules by which the boot packages are found. Facts come from the board driver where
 * it answers and from the developer file "/opt/startup.ini" where it does not.
 */
#ifndef BOOTINIT_BOARD_H
#define BOOTINIT_BOARD_H

#include "bootinit/base.h"

BOOTINIT_EXTERN_C_BEGIN

#define BOOT_INIT_ROLE_MMB 1u
#define BOOT_INIT_ROLE_LC 3u

/* ---- identity ---- */
BOOTINIT_API uint32_t BOOT_InitGetBoardHardType(uint32_t *type);
BOOTINIT_API uint32_t BOOT_INIT_StubGetBoardHardType(uint32_t *type);
BOOTINIT_API uint32_t BOOT_INIT_StubGetRoleOfBoard(char *buf, uint32_t len);
BOOTINIT_API uint32_t BOOT_INIT_GetBoardHardActiveState(uint32_t *state);
BOOTINIT_API uint32_t BOOT_INIT_BoardIsMaster(void);
BOOTINIT_API uint32_t BOOT_INIT_GetRoleOfBoard(uint32_t *role);
BOOTINIT_API uint32_t BOOT_INIT_BoardIsMMB(void);
BOOTINIT_API uint32_t BOOT_INIT_GetChassisId(uint32_t *id);
BOOTINIT_API uint32_t BOOT_INIT_GetSlotId(uint32_t *slot);
BOOTINIT_API uint32_t BOOT_INIT_GetCpuId(uint32_t *cpuId);
BOOTINIT_API uint32_t BOOT_INIT_StubGetCpuId(uint32_t *cpuId);
BOOTINIT_API uint32_t BOOT_INIT_GetLogicCpuId(uint32_t *cpuId);
BOOTINIT_API uint32_t BOOT_INIT_IsSimulate(void);
BOOTINIT_API uint32_t BOOT_INIT_GetLocalIp(char *buf, uint32_t len);
BOOTINIT_API uint32_t BOOT_INIT_GetMMBIp(char *ip1, uint32_t len1, char *ip2, uint32_t len2);
/* 1 when text equals one of the types written as "0x%X", else 0. */
BOOTINIT_API uint32_t BOOT_INIT_IsHardtypeMatch(const char *text, const uint32_t *list,
                                                uint32_t count);
BOOTINIT_API uint32_t BOOT_INIT_GetHardTypeListAndCpu(uint32_t *list, uint32_t *count,
                                                      char *cpuText, uint32_t cpuTextLen);

/* ---- packages ---- */
#define BOOT_INIT_PKG_KIND_BASE 0u     /* ".cc" or ".CC" */
#define BOOT_INIT_PKG_KIND_HARDWARE 1u /* ".cch" */

BOOTINIT_API uint32_t BOOT_InitGetCCPackage(char *path, uint32_t len);
BOOTINIT_API uint32_t BOOT_InitIsCCFullNameValid(const char *path, uint32_t kind);
BOOTINIT_API uint32_t BOOT_InitIsCCFileNameValid(const char *name, uint32_t kind);
BOOTINIT_API uint32_t BOOT_InitGetBackupPartition(char *buf, uint32_t len);
BOOTINIT_API uint32_t BOOT_InitGetHardwarePackage(const char *envPrefix, uint32_t n, char *path,
                                                  uint32_t len);
BOOTINIT_API uint32_t BOOT_INIT_GetLastPackage(char *path, uint32_t len);
BOOTINIT_API uint32_t BOOT_INIT_StubGetLastPackage(char *path, uint32_t len);
BOOTINIT_API uint32_t BOOT_INIT_StubGetCCPackage(char *path, uint32_t len);
BOOTINIT_API uint32_t BOOT_INIT_GetBackupPackage(const char *packagePath, char *out,
                                                 uint32_t outLen);

/* ---- CRL storage in flash ----
 * The board keeps the revocation list of package signatures in one of two flash areas of its
 * driver: one for a CRL signed with the PSS scheme, one for the classic scheme. */
#define BOOT_INIT_CRL_MAX_LEN 0x1FFFCu /* largest CRL; size of every flash read buffer */

/* Reads the stored CRL (PSS area first) into buf, which holds BOOT_INIT_CRL_MAX_LEN bytes;
 * *len receives its length. 0 or 0xFFFFFFFF. */
BOOTINIT_API uint32_t BOOT_INIT_ReadFlashCrl(uint8_t *buf, uint32_t *len);
/* Stores the CRL file at path in the flash area of its signature scheme. */
BOOTINIT_API uint32_t BOOT_INIT_WriteFlashCrlFile(const char *path);
/* Writes buf over the start of the existing file dstPath (no creation, no truncation). */
BOOTINIT_API uint32_t BOOT_INIT_WriteBuf2File(const uint8_t *buf, uint32_t len,
                                              const char *dstPath);
/* Copies the CRL file srcPath over the start of the existing file dstPath. */
BOOTINIT_API uint32_t BOOT_INIT_WriteKernelCrlFile(const char *srcPath, const char *dstPath);

/* ---- operation 1 and its sub-operations ---- */
typedef uint32_t (*BOOT_INIT_DRV_BASIC_INFO_FUNC)(int32_t argc, char **argv);
#define BOOT_INIT_DRV_BASIC_INFO_NUM 11u
BOOTINIT_API extern const BOOT_INIT_DRV_BASIC_INFO_FUNC
    g_apfBootInitDrvBasicInfoOperFunc[BOOT_INIT_DRV_BASIC_INFO_NUM];

BOOTINIT_API uint32_t BOOT_InitOperGetDrvBasicInfo(int32_t argc, char **argv);
BOOTINIT_API uint32_t BOOT_INIT_IsGetDrvBasicInfoOperValid(uint32_t n);
BOOTINIT_API uint32_t BOOT_InitGetCCPackageFullPath(int32_t argc, char **argv);
BOOTINIT_API uint32_t BOOT_InitPrintBoardHardType(int32_t argc, char **argv);
BOOTINIT_API uint32_t BOOT_InitPrintRoleOfBoard(int32_t argc, char **argv);
BOOTINIT_API uint32_t BOOT_InitPrintCpuId(int32_t argc, char **argv);
BOOTINIT_API uint32_t BOOT_InitPrintChassisId(int32_t argc, char **argv);
BOOTINIT_API uint32_t BOOT_InitPrintSlotId(int32_t argc, char **argv);
BOOTINIT_API uint32_t BOOT_InitPrintHardActiveState(int32_t argc, char **argv);
BOOTINIT_API uint32_t BOOT_InitPrintBoradAllInfo(int32_t argc, char **argv);
BOOTINIT_API uint32_t BOOT_InitPrintAllBoardInfoId(int32_t argc, char **argv);
BOOTINIT_API uint32_t BOOT_InitPrintHardTypeList(int32_t argc, char **argv);
/* Printers that no sub-operation number reaches, kept for callers outside the table. */
BOOTINIT_API uint32_t BOOT_InitPrintBoardRole(void);
BOOTINIT_API uint32_t BOOT_InitPrintStartupMode(int32_t argc);

BOOTINIT_EXTERN_C_END

#endif /* BOOTINIT_BOARD_H */
