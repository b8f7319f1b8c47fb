/*
 * Package verification: detached CMS signatures and the board's revocation list, signed file
 * lists with the digests of a delivery, and operation 3 that runs one verification chosen by
 * its first argument.
 */
#ifndef BOOTINIT_VERIFY_H
#define BOOTINIT_VERIFY_H

#include "bootinit/base.h"
#include "bootinit/common.h"

BOOTINIT_EXTERN_C_BEGIN

#define BOOT_INIT_ERR_DIR_NOT_EXIST 0x10000004u       /* the directory argument does not exist */
#define BOOT_INIT_ERR_SIGNATURE_NOT_EXIST 0x1000000Fu /* the signature file does not exist */
#define BOOT_INIT_ERR_CRL_NOT_EXIST 0x10000010u       /* the CRL file does not exist */
#define BOOT_INIT_ERR_ROOT_CERT_MEMORY 0x88000001u    /* root certificate buffer not allocated */

/* ---- CMS signatures and the CRL ---- */
#define BOOT_INIT_ROOT_CERT_LEN 1363u /* DER bytes of the built-in root certificate */

/* 0 when the detached signature in signatureFile verifies sourceFile against the built-in
 * root certificate, crlFile and the CRL kept in flash; otherwise a non-zero code. */
BOOTINIT_API uint32_t BOOT_INIT_VerifyCms(const char *sourceFile, const char *signatureFile,
                                          const char *crlFile);
/* *needRefresh = 1 when the CRL in crlFile is newer than flashCrl; 0 or 0xFFFFFFFF. */
BOOTINIT_API uint32_t BOOT_INIT_CrlCompare(const char *crlFile, const uint8_t *flashCrl,
                                           uint32_t flashCrlLen, uint32_t *needRefresh);
/* 1 when the CRL kept in flash must be replaced by crlFile, else 0. */
BOOTINIT_API uint32_t BOOT_INIT_IsLocalCrlNeedRefresh(const char *crlFile);
/* Fetches the main board's CRL and installs it when it is newer; 0 or 0xFFFFFFFF. */
BOOTINIT_API uint32_t BOOT_INIT_CrlSync(void);
/* Verify sub-operation 5: the CRL refresh (its arguments are not used). */
BOOTINIT_API uint32_t BOOT_INIT_OperCrlSync(int32_t argc, char **argv);
/* Verify sub-operation 0: directory, source file, signature file [, CRL file]. */
BOOTINIT_API uint32_t BOOT_INIT_VerifyCmsFile(int32_t argc, char **argv);
/* Frees p when it is not NULL: release callback of list records. */
BOOTINIT_API void BOOT_INIT_ReleaseNode(void *p);
/* Always 0. */
BOOTINIT_API uint32_t BOOT_INIT_IsFastFlash(void);

/* ---- signature file lists ---- */
#define BOOT_INIT_SIG_FILE_NAME_LEN 96u
#define BOOT_INIT_SIG_DIGEST_LEN 65u
#define BOOT_INIT_SIG_DIGEST_NODE_ALLOC 196u /* bytes allocated for one record */

/* One file section of a signature file list; owned by a BOOT_INIT_DLL_HEAD_S list and released
 * with BOOT_INIT_ReleaseNode. */
typedef struct SigFileDigestNode {
  BOOT_INIT_DLL_NODE_S links;
  uint32_t valid; /* 1 when the record is complete */
  uint32_t fileType;
  char fileName[BOOT_INIT_SIG_FILE_NAME_LEN];
  char digest[BOOT_INIT_SIG_DIGEST_LEN];
} BOOT_INIT_SIG_FILE_DIGEST_NODE_S;

struct SwmIniKey; /* a key record of the platform's INI reader */

/* Checks the main section of listPath and appends one record per file section to digests. */
BOOTINIT_API uint32_t BOOT_INIT_GetDigestInfoFromSignatureFileList(const char *listPath,
                                                                   BOOT_INIT_DLL_HEAD_S *digests);
BOOTINIT_API uint32_t BOOT_INIT_AddSigFileDigestInfoToList(BOOT_INIT_DLL_HEAD_S *digests,
                                                           const char *listPath);
/* Copies the value of the first key record named key into out[outSize] (bounded, always
 * NUL-terminated); out is left as it was when the key is absent. */
BOOTINIT_API void BOOT_INIT_GetOneKeyValueFromKeyList(const struct SwmIniKey *first,
                                                      const char *key, char *out, uint32_t outSize);
/* 0 when the SHA-256 of filePath equals the digest of the record named fileName. */
BOOTINIT_API uint32_t BOOT_INIT_VerifySpecificFileHashValue(const char *filePath,
                                                            const char *fileName,
                                                            BOOT_INIT_DLL_HEAD_S *digests);
/* Verify sub-operation 3: directory, file name, signature file list. */
BOOTINIT_API uint32_t BOOT_INIT_VerifyFileInSignatureFileList(int32_t argc, char **argv);
/* Checks the start files of this board named by filelist.txt records (dir joined with each
 * record's file name). */
BOOTINIT_API uint32_t BOOT_INIT_VerifyFileListFileHashValue(const char *dir,
                                                            BOOT_INIT_DLL_HEAD_S *records);
/* Verify sub-operation 2: directory, name of the file list in it. */
BOOTINIT_API uint32_t BOOT_INIT_VerifyFileInFileList(int32_t argc, char **argv);

/* ---- operation 3 ---- */
typedef uint32_t (*BOOT_INIT_VERIFY_OPER_FUNC)(int32_t argc, char **argv);
#define BOOT_INIT_VERIFY_OPER_NUM 7u
/* Sub-operations by verify type; an empty slot is a type this build does not offer. */
BOOTINIT_API extern const BOOT_INIT_VERIFY_OPER_FUNC
    g_apfBootInitFileVerifyOperFunc[BOOT_INIT_VERIFY_OPER_NUM];

BOOTINIT_API uint32_t BOOT_InitOperVerifyFile(int32_t argc, char **argv);

BOOTINIT_EXTERN_C_END

#endif /* BOOTINIT_VERIFY_H */
