/*
 * Packages: the container that carries a board's software (a package header with a table of
 * file entries, then the file records end to end), the process-wide file index built from it,
 * the placement of a signed file list's digests into that index and the checks of the files
 * against them, and the choice and check of the package's own signature.
 *
 * All integers of the container are big-endian except the file kind, which is copied as it
 * stands. See docs/packages.md.
 */
#ifndef BOOTINIT_PACKAGE_H
#define BOOTINIT_PACKAGE_H

#include "bootinit/base.h"
#include "bootinit/common.h"

BOOTINIT_EXTERN_C_BEGIN

#define BOOT_PKG_MAX_FILES 256u
#define BOOT_PKG_HEADER_LEN 6180u
#define BOOT_PKG_FILE_HEADER_LEN 352u
#define BOOT_PKG_ACTUAL_NAME_LEN 128u
#define BOOT_PKG_BIN_NAME_LEN 96u
#define BOOT_PKG_DIGEST_TEXT_LEN 65u
#define BOOT_PKG_HASH_BUCKETS 128u
#define BOOT_PKG_WHITELIST_ROWS 15u
#define BOOT_PKG_ERR_NOT_FOUND 1000u /* the package does not hold the file */

/* ---- the container, as it lies in the file ---- */
typedef struct PkgFileEntry {
  uint32_t reserved;     /* written by the package writer, not read */
  uint32_t recordOffset; /* big-endian: offset of the record's file header */
  uint32_t recordLength; /* big-endian: file header plus file bytes */
  uint8_t unused[12];
} BOOT_PKG_FILE_ENTRY_S;

typedef struct PkgHeader {
  uint32_t reserved;
  uint32_t fileCount; /* big-endian, at most BOOT_PKG_MAX_FILES */
  uint8_t unused[24];
  BOOT_PKG_FILE_ENTRY_S entries[BOOT_PKG_MAX_FILES];
  uint32_t tail;
} BOOT_PKG_HEADER_S;

typedef struct PkgFileHeader {
  uint8_t unused0[8];
  uint32_t fileKind; /* copied as it stands (host order) */
  uint8_t unused1[104];
  char actualName[BOOT_PKG_ACTUAL_NAME_LEN]; /* name of the bare file bytes */
  char binName[BOOT_PKG_BIN_NAME_LEN];       /* name of the whole record as a ".bin" file */
  uint32_t actualLength;                     /* big-endian: bytes after the file header */
  uint8_t unused2[8];
} BOOT_PKG_FILE_HEADER_S;

/* ---- the file index ---- */
typedef struct PkgFileKey {
  uint32_t fileKind;
  char binName[BOOT_PKG_BIN_NAME_LEN];
} BOOT_PKG_FILE_KEY_S;

typedef struct PkgFileNode {
  BOOT_INIT_HLIST_NODE_S link;
  BOOT_PKG_FILE_KEY_S key;
  uint32_t recordOffset; /* host order from here on */
  uint32_t recordLength;
  uint32_t actualLength;
  char digest[BOOT_PKG_DIGEST_TEXT_LEN]; /* from the signed file list; "" until placed */
  char actualName[BOOT_PKG_ACTUAL_NAME_LEN];
} BOOT_PKG_FILE_NODE_S;

/* A ring of name records with the layout of a BOOT_INIT_DLL_NODE_S (first = next, last = prev):
 * the head is a node of its own ring, so an empty list has both pointing at the head itself
 * (and a list never initialised, both NULL). */
typedef struct {
  BOOT_INIT_DLL_NODE_S *first;
  BOOT_INIT_DLL_NODE_S *last;
} BOOT_PKG_NAME_LIST_S;

/* One record of the package's verity table: a ring node, then the binName of a package
 * record (NUL-terminated within its 96 bytes). */
typedef struct PkgVerityName {
  BOOT_INIT_DLL_NODE_S link;
  char binName[BOOT_PKG_BIN_NAME_LEN];
} BOOT_PKG_VERITY_NAME_S;

typedef struct PkgInfo {
  int32_t fd; /* the open package, -1 when none */
  uint32_t exemptCount;
  const char *const *exemptNames; /* this board's row of g_whiteList */
  BOOT_INIT_HASH_TABLE_S *index;
  BOOT_PKG_NAME_LIST_S verityTable; /* BOOT_PKG_VERITY_NAME_S records, owned by their filler */
} BOOT_PKG_INFO_S;

/* Firmware files carried in packages but neither indexed nor checked on boards of one
 * hardware type. */
typedef struct {
  uint32_t hardType;
  uint32_t count;
  const char *const *names;
} BOOT_PKG_WHITELIST_ROW_S;

BOOTINIT_API extern const BOOT_PKG_WHITELIST_ROW_S g_whiteList[BOOT_PKG_WHITELIST_ROWS];

BOOTINIT_API uint32_t BOOT_InitPkgVerify(void);
BOOTINIT_API uint32_t BOOT_InitPkgHash(void);
BOOTINIT_API void BOOT_DeinitPkgVerify(void);
BOOTINIT_API BOOT_PKG_INFO_S *BOOT_GetPkgInfo(void);
BOOTINIT_API uint32_t BOOT_GetPkgAndFilesHeader(const char *pkgPath);
BOOTINIT_API uint32_t BootGetAllFilesHeader(const BOOT_PKG_HEADER_S *hdr, BOOT_PKG_INFO_S *info,
                                            uint32_t pkgSize);
BOOTINIT_API uint32_t BootAddFileInfo(const BOOT_PKG_FILE_ENTRY_S *entry,
                                      const BOOT_PKG_FILE_HEADER_S *fileHeader,
                                      BOOT_PKG_INFO_S *info);
BOOTINIT_API BOOT_PKG_FILE_NODE_S *BootGetFileInfo(const char *name);
BOOTINIT_API uint32_t BootFileExistCheck(const char *name);
BOOTINIT_API void BOOT_GetFileName(const char *name, char *out, uint32_t outSize);
BOOTINIT_API BOOT_PKG_FILE_NODE_S *BootGetFileTravHashTable(const char *name);
BOOTINIT_API uint32_t BootUpdateFileInfo(const char *name, uint32_t kind, const char *digest);
/* Keys of one file section met so far: the digest is stored only when the type and the name
 * came before it. */
#define BOOT_PKG_SEEN_FILETYPE 1u
#define BOOT_PKG_SEEN_FILENAME 2u
#define BOOT_PKG_SEEN_DIGEST 4u
BOOTINIT_API uint32_t BootUpdateFileDigest(const char *name, uint32_t kind, const char *digest,
                                           uint32_t seenMask);
BOOTINIT_API uint32_t BOOT_ExtractBinFile(const char *name, const char *dir);
BOOTINIT_API uint32_t BOOT_ExtractActualFile(const char *name, const char *dir);
BOOTINIT_API uint32_t BootExtractFile(int fd, uint32_t offset, const char *name, uint32_t length,
                                      const char *dir);
BOOTINIT_API void BOOT_RemoveFilesNode(const char *binName);
BOOTINIT_API void BootGetVerifiedWhitelist(void);
BOOTINIT_API uint32_t BootFileInBlackList(const char *name);
BOOTINIT_API void BootRemoveFile(const char *dir, const char *name);
BOOTINIT_API uint32_t BOOT_CcIsBasePkg(const char *path);
BOOTINIT_API int32_t BootBKDRHash(uint32_t buckets, const void *key);
BOOTINIT_API int32_t BootCmpHashNode(const void *key, BOOT_INIT_HLIST_NODE_S *node);
BOOTINIT_API void BootFreeHashNode(void *node);

/* ---- digests of the signed file list, and the checks ---- */
#define BOOT_PKG_STAGING_DIR "/var/lib/sys_preloader"
#define BOOT_PKG_SELECT_NOT_VERITY 1u /* only files outside the verity table */
#define BOOT_PKG_SELECT_VERITY 2u     /* only files in the verity table */

BOOTINIT_API uint32_t BOOT_ReadSignatureFileList(const char *listPath);
BOOTINIT_API uint32_t BOOT_VerifyFilesTravHashTable(uint32_t selector);
BOOTINIT_API uint32_t BOOT_VerifyFileInBuffer(const char *name);
BOOTINIT_API uint32_t BOOT_VerifyFileInExtract(const char *name, uint32_t asRecord);
BOOTINIT_API uint32_t BOOT_DoVerifyFileInExtract(const char *name, const char *digest,
                                                 uint32_t asRecord);
BOOTINIT_API uint32_t BootVerifyFileReadAndCheck(const BOOT_PKG_FILE_NODE_S *node);
BOOTINIT_API uint32_t BootIsNeedToVerifyFile(const BOOT_PKG_FILE_NODE_S *node, uint32_t selector);
/* 1 when binName is listed in the package's verity table (filled by the staged
 * verification). */
BOOTINIT_API uint32_t BOOT_IsFileInVerityTable(const char *binName);

/* ---- the package's own signature ---- */
BOOTINIT_API uint32_t BootVerifyDigitalSignature(const char *pkgPath);
BOOTINIT_API uint32_t BootHasNewCmsSignatureFile(uint32_t *isPss);
BOOTINIT_API uint32_t BootVerifyPssDigitalSignature(const char *pkgPath);
BOOTINIT_API uint32_t BootVerifyPssDigitalSignatureFile(const char *dir);
BOOTINIT_API uint32_t BootVerifyDigitalSignatureOldImpl(const char *pkgPath);
BOOTINIT_API uint32_t BootVerifyDigitalSignatureFile(const char *dir);

BOOTINIT_EXTERN_C_END

#endif /* BOOTINIT_PACKAGE_H */
