/*
 * Single proven files out of a package: a file is written to a directory only when its bytes
 * match the digest that the verified signature file list of its package gives for it (the
 * signature files themselves come out unchecked: their own CMS signature is checked before
 * their digests are used). Also the unwrapping of a ".bin" wrapper into the file it carries,
 * operations 0, 5 and 8, and the guard for texts bound for a shell command line.
 *
 * The bytes are proven and copied in one read: they go into an unnamed file in the destination
 * directory while they are hashed, and only a file whose digest matched is linked in under its
 * name. See docs/extraction.md.
 */
#ifndef BOOTINIT_EXTRACT_H
#define BOOTINIT_EXTRACT_H

#include "bootinit/base.h"
#include "bootinit/common.h"
#include "bootinit/package.h"
#include "bootinit/verify.h"

BOOTINIT_EXTERN_C_BEGIN

#define BOOT_EXTRACT_PATH_LEN 384u
#define BOOT_EXTRACT_TYPE_BY_ID 0u   /* refused */
#define BOOT_EXTRACT_TYPE_BY_NAME 1u /* the only extraction offered */
#define BOOT_EXTRACT_TMP_DIR "/tmp"  /* signature files of a package other than the current one */

/* The signature files of a package (names of their records' bare files). */
#define BOOT_SIG_FILELIST "signature_filelist"
#define BOOT_SIG_CMS "signature_cms"
#define BOOT_SIG_CRL "signature_crl"
#define BOOT_SIG_PSS_FILELIST "signature_pss_filelist"
#define BOOT_SIG_PSS_CMS "signature_pss_cms"

/* The digest records (BOOT_INIT_SIG_FILE_DIGEST_NODE_S) of the signature file list of the
 * package extracted from: kept for the current package between calls, loaded for one
 * extraction and freed afterwards for any other. */
BOOTINIT_API extern BOOT_INIT_DLL_HEAD_S *const g_signedFiles;

/* One file being searched for, proven and staged. The caller sets outFd (and stagedPath, see
 * below) before the search; the search fills length and copyResult. */
typedef struct BootExtractTarget {
  int32_t outFd;       /* the staged file the wanted bytes go to; -1: prove only */
  int32_t stageErrno;  /* why no staged file could be made (outFd -1), else 0 */
  uint32_t length;     /* bytes of the file (what is written) */
  uint32_t copyResult; /* 0, or the code of a failed write into the staged file */
  char stagedPath[BOOT_EXTRACT_PATH_LEN]; /* a named staged file ("" for an unnamed one) */
} BOOT_EXTRACT_TARGET_S;

/* ---- operations ---- */
/* 0: argv = extract type (1: by name), package path, file name, destination directory. */
BOOTINIT_API uint32_t BOOT_InitOperExtractFile(int32_t argc, char **argv);
/* 5: argv = wrapper (".bin") file path, target file name, destination directory. */
BOOTINIT_API uint32_t BOOT_InitOperBinFIleTrans2RealFile(int32_t argc, char **argv);
/* 8: argv = package path, file name, destination directory; does nothing and succeeds. */
BOOTINIT_API uint32_t BOOT_InitOperUntarFile(int32_t argc, char **argv);

/* ---- services ---- */
/* 1 when type is an extract type (below 2), else 0. */
BOOTINIT_API uint32_t BOOT_INIT_IsExtractTypeValid(uint32_t type);
/* Writes the proven file fileName of packagePath as destDir/fileName. 0; 0x10000002 a NULL
 * argument; 0x10000003 no package; 0x10000007 no acceptable file of that name; 0xFFFFFFFF any
 * other failure; or the code of a failed copy. */
BOOTINIT_API uint32_t BOOT_INIT_ExtractFileByFileName(const char *fileName, const char *packagePath,
                                                      const char *destDir);
/* Writes the body of the wrapper binPath as destDir/realName (nothing is proven here). */
BOOTINIT_API uint32_t BOOT_INIT_TransBinFile2RealName(const char *binPath, const char *realName,
                                                      const char *destDir);
/* Does nothing and returns 0. */
BOOTINIT_API uint32_t BOOT_INIT_UntarFileByFileName(const char *fileName, const char *packagePath,
                                                    const char *destDir);
/* 0 when none of text[0..maxLength) up to its first NUL is one of | ; & $ < > ( ) [ ] ` \ " '
 * ~ ? * ! and line feed; else 0xFFFFFFFF after naming the character. */
BOOTINIT_API uint32_t BOOT_INIT_SysCmdCommandFilter(const char *text, uint32_t maxLength);

/* ---- predicates: 1 or 0 ---- */
BOOTINIT_API uint32_t IsSignature(const char *name);    /* one of the five signature files */
BOOTINIT_API uint32_t IsHardTypeInfo(const char *name); /* hardtype_info.txt[.cms|.crl] */
/* name equals one of names (a NULL-terminated array), exactly. */
BOOTINIT_API uint32_t MatchFile(const char *name, const char *const *names);
BOOTINIT_API uint32_t IsFileNameWithBin(const char *name); /* name ends in ".bin" */

/* ---- the steps, in calling order ---- */
/* Loads g_signedFiles for package (see above); *freeAfter 1 when the caller must free it. */
BOOTINIT_API uint32_t GetSignedFiles(const char *package, uint32_t *freeAfter);
/* The first record of g_signedFiles named name exactly, or NULL. */
BOOTINIT_API const BOOT_INIT_SIG_FILE_DIGEST_NODE_S *GetSignedFile(const char *name);
BOOTINIT_API uint32_t ExtractFileInner(const char *package, const char *name, const char *destDir);
/* Searches the package open on fd for the first entry of that name that passes IsTargetValid;
 * its wanted bytes are then in target->outFd. 0; 0x10000007 none passed; 0xFFFFFFFF. */
BOOTINIT_API uint32_t FindTarget(int fd, const char *name, BOOT_EXTRACT_TARGET_S *target);
/* entry as it stands in the package; fileHeader with both name fields terminated. 0 passes. */
BOOTINIT_API uint32_t IsTargetValid(int fd, const BOOT_PKG_FILE_ENTRY_S *entry,
                                    const BOOT_PKG_FILE_HEADER_S *fileHeader, const char *name,
                                    BOOT_EXTRACT_TARGET_S *target);
/* Proves the record of entry against the digest listed for entryName, writing target->length
 * bytes of it (from the file header for a ".bin" name, else from the file bytes) into
 * target->outFd in the same read. 0 passes. */
BOOTINIT_API uint32_t BootCheckFileValid(int fd, const BOOT_PKG_FILE_ENTRY_S *entry,
                                         const char *entryName, const char *name,
                                         BOOT_EXTRACT_TARGET_S *target);
/* Hashes length bytes from fd's position, writing bytes [skip, skip + target->length) of them
 * to target->outFd, and compares the digest with expectedHex. 0 on a match. */
BOOTINIT_API uint32_t CheckFileShaValid(int fd, uint32_t length, const char *name,
                                        const char *expectedHex, uint32_t skip,
                                        BOOT_EXTRACT_TARGET_S *target);
/* Puts the staged file in place as destPath (an existing file there is deleted first). */
BOOTINIT_API uint32_t ExtractFile(BOOT_EXTRACT_TARGET_S *target, const char *destPath);
BOOTINIT_API uint32_t ExtractSignatureFilelist(const char *package, const char *dir);
BOOTINIT_API uint32_t GetCurrPackageSignatureFilelist(const char *package, const char *dir);
BOOTINIT_API uint32_t GetInputPackageSignatureFilelist(const char *package, const char *dir);
BOOTINIT_API uint32_t GetSigFilelistAndVerifyCms(const char *dir, char *pathBuf, uint32_t pathLen);
/* Removes the five signature files from "/tmp" (and only there). */
BOOTINIT_API void CleanExtractedSigFilelist(const char *dir);

BOOTINIT_EXTERN_C_END

#endif /* BOOTINIT_EXTRACT_H */
