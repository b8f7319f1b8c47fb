/*
 * Boot logging: three small log files with a binary length header, shared by every process
 * that loads the library during start-up.
 *
 *  type 0  app_boot.log       software-management log directory   wraps after 523776 bytes
 *  type 1  boot_security.log  software-management log directory   wraps after 65536 bytes
 *  type 2  boot_security.log  /opt/kytv8/var/log                  wraps after 65536 bytes
 *
 * Types 0 and 1 begin with the 8-byte text length; type 0 text starts at byte 8, type 1 at
 * byte 10 (two bytes are left untouched). Type 2 has a 12-byte header: text length, a reserved
 * word and the length reached at the last wrap; its text starts at byte 12.
 */
#ifndef BOOTINIT_LOG_H
#define BOOTINIT_LOG_H

#include "bootinit/base.h"

BOOTINIT_EXTERN_C_BEGIN

#define BOOT_INIT_LOG_TYPE_MAIN 0
#define BOOT_INIT_LOG_TYPE_SAFE 1
#define BOOT_INIT_LOG_TYPE_DC_SAFE 2

#define BOOT_INIT_LOG_DIR_LEN 256u
#define BOOT_INIT_LOG_FILE_NAME_LEN 128u

#pragma pack(push, 4)
/* One process-wide record per log type. */
typedef struct {
  uint64_t maxLen; /* text length after which writing wraps to the text start */
  uint64_t curLen; /* text length as last read from or written to the file header */
  char dir[BOOT_INIT_LOG_DIR_LEN];
  char fileName[BOOT_INIT_LOG_FILE_NAME_LEN];
  uint32_t reserved;
} BOOT_INIT_LOG_INFO_S;
#pragma pack(pop)

/* The 12-byte header of a type-2 file. */
typedef struct {
  uint32_t curLen;
  uint32_t reserved; /* written back as read */
  uint32_t wrapLen;  /* curLen at the moment the text last wrapped */
} BOOT_INIT_DC_LOG_HEADER_S;

BOOTINIT_API uint32_t BOOT_INIT_LogInit(void);
BOOTINIT_API uint32_t BOOT_INIT_SafeLogInit(void);
BOOTINIT_API uint32_t BOOT_INIT_DcSafeLogInit(void);

/* Appends one time-stamped line to the log of logType (0, 1 or 2; others are ignored). */
BOOTINIT_API void BOOT_INIT_LogWrite(int32_t logType, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
BOOTINIT_API void BOOT_INIT_WriteLogFile(int32_t logType, const char *path, const char *line);

BOOTINIT_API uint32_t BOOT_INIT_CreateLogFile(BOOT_INIT_LOG_INFO_S *record);
BOOTINIT_API uint32_t BOOT_INIT_CreateDcLogFile(BOOT_INIT_LOG_INFO_S *record);

BOOTINIT_API void BOOT_INIT_GetCurTime(char *buffer, uint32_t size);
BOOTINIT_API uint32_t BOOT_INIT_GetLogPath(char *buffer, uint32_t size);

BOOTINIT_API BOOT_INIT_LOG_INFO_S *BOOT_INIT_GetLogInfo(void);
BOOTINIT_API BOOT_INIT_LOG_INFO_S *BOOT_INIT_GetSafeLogInfo(void);
BOOTINIT_API BOOT_INIT_LOG_INFO_S *BOOT_INIT_GetDcSafeLogInfo(void);
BOOTINIT_API BOOT_INIT_LOG_INFO_S *BOOT_INIT_GetLogInfoByType(int32_t logType);

/* Header helpers; each returns 0 on success and -1 on failure. */
BOOTINIT_API int32_t BOOT_INIT_SetPosFileHead(int fd);
BOOTINIT_API int32_t BOOT_INIT_SetPosLogTail(int32_t logType, const BOOT_INIT_LOG_INFO_S *record,
                                             int fd);
/* Reads the header at byte 0: type 2 into *header (its curLen also into the record), types 0
 * and 1 into the record's curLen. After a short read nothing is changed. */
BOOTINIT_API int32_t BOOT_INIT_ReadLogLen(int32_t logType, BOOT_INIT_LOG_INFO_S *record, int fd,
                                          BOOT_INIT_DC_LOG_HEADER_S *header);
BOOTINIT_API int32_t BOOT_INIT_UpdateLogLen(const BOOT_INIT_LOG_INFO_S *record, int fd);
BOOTINIT_API int32_t BOOT_INIT_UpdateDcSafeLogHeader(const BOOT_INIT_DC_LOG_HEADER_S *header,
                                                     int fd);

BOOTINIT_EXTERN_C_END

#endif /* BOOTINIT_LOG_H */
