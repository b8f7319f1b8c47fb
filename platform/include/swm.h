/*
 * Software-management platform library: file, string and configuration helpers.
 * Later additions (sockets, board facts, users, CMS) extend this header.
 */
#ifndef SWM_H
#define SWM_H

#include <stdint.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SWM_API __attribute__((visibility("default")))

/* Results of the SWM_ functions that return a status. */
#define SWM_OK 0u
#define SWM_ERR_PARAM 1u     /* empty pointer or invalid argument */
#define SWM_ERR_IO 2u        /* a system call failed; errno tells which */
#define SWM_ERR_FORMAT 3u    /* malformed input (INI syntax) */
#define SWM_ERR_NOT_FOUND 4u /* section or key not present */
#define SWM_ERR_TOO_LONG 5u  /* a value does not fit the caller's buffer */
#define SWM_ERR_NOMEM 6u     /* out of memory */

/* ---- files ---- */

/* open(2) with a status result: *fd receives the descriptor (close-on-exec is always added).
 * The mode argument is read, as by open(2), only when flags hold O_CREAT or O_TMPFILE.
 * EINTR is retried. SWM_ERR_PARAM for NULL path or fd, SWM_ERR_IO (errno kept) when open(2)
 * fails; *fd is written only on success. */
SWM_API uint32_t SWM_Open(const char *path, int flags, int *fd, ...);
/* fopen(3) with a status result; *stream receives the stream, opened close-on-exec ("e" is
 * added to mode). SWM_ERR_PARAM for NULL arguments or a mode that does not begin with r, w or a
 * (or is longer than 14 characters), SWM_ERR_IO (errno kept) when fopen(3) fails; *stream is
 * written only on success. */
SWM_API uint32_t SWM_Fopen(const char *path, const char *mode, FILE **stream);
/* Creates dir together with any missing parents (dir itself included). Directories created
 * here get uid, gid and exactly mode, whatever the umask; existing ones are left as they are.
 * SWM_OK also when dir already exists; SWM_ERR_PARAM for NULL or empty dir; SWM_ERR_IO (errno
 * kept, ENOTDIR when a component is not a directory) on failure, after removing again what
 * this call created. */
SWM_API uint32_t SWM_MkParentDir(const char *dir, uid_t uid, gid_t gid, mode_t mode);
/* Changes the owner of path. followLinks 1 changes the target of a symbolic link (chown),
 * 0 the link itself (lchown); any other value and NULL path give SWM_ERR_PARAM.
 * SWM_ERR_IO (errno kept) when the call fails. */
SWM_API uint32_t SWM_Chown(int followLinks, const char *path, uid_t uid, gid_t gid);
/* Replaces dst whole by a copy of regular file src (see docs/file-attributes.md); 0 on success. */
SWM_API uint32_t SWM_CopyFile(const char *src, const char *dst);
/* chmod(2) of path (links followed) with the 07777 bits of mode; SWM_ERR_IO keeps errno. */
SWM_API uint32_t SWM_FchmodPath(const char *path, mode_t mode);

/* Size in bytes of the file at path (links followed) into *size. SWM_ERR_PARAM for NULL
 * arguments, SWM_ERR_IO (errno kept) when stat(2) fails or path is not a regular file. */
SWM_API uint32_t SWM_GetFileSize(const char *path, int64_t *size);
/* write(2) of all len bytes (short writes continued, EINTR retried): len, or -1 with errno. */
SWM_API ssize_t SWM_Write(int fd, const void *buf, size_t len);

/* ---- strings ---- */

/* Non-zero when str is non-empty and holds decimal digits only. */
SWM_API int SWM_IsDigitString(const char *str);
/* Non-zero when str is empty or holds only isspace() characters (NULL counts as blank). */
SWM_API int SWM_IsSpaceString(const char *str);
/* Removes leading and trailing isspace() characters in place. SWM_ERR_PARAM for NULL. */
SWM_API uint32_t SWM_StringTrim(char *str);
/* Splits str at every character of separators into a newly allocated array of *count field
 * pointers; array and field texts live in one block released with a single free(), and
 * (*array)[*count] is NULL. str itself is not changed. An empty str has no fields; otherwise
 * n separator characters make n + 1 fields ("a=b=c" with "=" gives 3, "key=" gives "key" and
 * an empty field). Flag SWM_SPLIT_KEEP_EMPTY keeps empty fields; without it (flags 0) they are
 * skipped ("key=" then gives 1 field). *array is a block to free even when *count is 0.
 * SWM_ERR_PARAM for NULL arguments or unknown flags, SWM_ERR_NOMEM; outputs are written only
 * on success. */
#define SWM_SPLIT_KEEP_EMPTY 1u
SWM_API uint32_t SWM_TransString2Array(const char *str, const char *separators, char ***array,
                                       uint32_t *count, uint32_t flags);
/* Non-zero when both strings are present and equal. */
SWM_API int SWM_IsStringEqual(const char *a, const char *b);
/* 1 when str begins with prefix / ends with suffix (both present), else 0. */
SWM_API int SWM_IsPrefixString(const char *str, const char *prefix);
SWM_API int SWM_IsPostfixString(const char *str, const char *suffix);

/* ---- sectioned INI files ----
 * Syntax, line by line (lines of any length; surrounding isspace() characters, the CR of CRLF
 * files included, are trimmed first):
 *  - blank lines and lines whose first non-blank character is '#' or ';' are ignored;
 *  - "[name]" (first character '[' and last ']') opens a section; the brackets are part of its
 *    name, which holds at most 71 characters;
 *  - "key=value" is split at the first '='; key and value are trimmed; the key must not be
 *    empty and holds at most 128 characters, the value at most 1030; the key belongs to the
 *    last section.
 * Anything else, a key line before the first section, a NUL byte in a line, or a name or value
 * longer than its record field makes the whole file malformed: a line is never cut or split
 * into a further key. */
#define SWM_INI_SECTION_LEN 72
#define SWM_INI_KEY_LEN 129
#define SWM_INI_VALUE_LEN 1031

typedef struct SwmIniKey {
  char name[SWM_INI_KEY_LEN];
  char value[SWM_INI_VALUE_LEN];
  struct SwmIniKey *next;
} SWM_INI_KEY_S;

typedef struct SwmIniSection {
  char name[SWM_INI_SECTION_LEN];
  SWM_INI_KEY_S *keys;
  struct SwmIniSection *next;
} SWM_INI_SECTION_S;

/* Reads the stream to its end; returns the first section (the chain in file order, each with
 * its keys in file order), or NULL for a NULL stream, a malformed or unreadable file or one
 * without sections. Release with SWM_FreeProfile (which accepts NULL). */
SWM_API SWM_INI_SECTION_S *SWM_IniLoadProfile(FILE *stream);
SWM_API void SWM_FreeProfile(SWM_INI_SECTION_S *profile);
/* Copies the value of key in section (first match) into value[valueLen]. The section is
 * named with its brackets ("[board]"); only the first section of that name is searched, and
 * its first key of that name wins. SWM_ERR_PARAM: NULL argument or valueLen 0;
 * SWM_ERR_IO: file missing or unreadable; SWM_ERR_FORMAT: malformed file;
 * SWM_ERR_NOT_FOUND: no such section or key (also for a file without sections);
 * SWM_ERR_TOO_LONG: value and its terminator do not fit; SWM_ERR_NOMEM.
 * On every failure except a NULL value or valueLen 0, value is set to "". */
SWM_API uint32_t SWM_IniGetValue(const char *file, const char *section, const char *key,
                                 char *value, uint32_t valueLen);

/* ---- board facts (from the board description /etc/bootsim/board.ini on the host) ----
 * Read afresh on every call (see docs/board-description.md). NULL pointers give SWM_ERR_PARAM;
 * a value that is not a number, or a malformed description, gives SWM_ERR_FORMAT with the
 * output unchanged. A failure forced by the description's [fail] section (non-zero code)
 * returns that code after the argument checks, outputs written as on success. */

/* 1 when dir is an existing directory (links followed), else 0 (also for NULL). A code forced
 * by [fail] SWM_IsDirExist replaces the answer as it is, 0 included. */
SWM_API int SWM_IsDirExist(const char *dir);
/* Logical CPU id of this processor: [board] logic_cpu_id, 0 when not described. */
SWM_API uint32_t SWM_GetLogicCpuId(uint32_t *cpuId);
/* Slot of this board: [board] slot, 1 when not described. */
SWM_API uint32_t SWM_GetSlotId(uint32_t *slotId);
/* All hardware types the board answers to: *count holds the capacity of list on entry and the
 * number of entries filled on return (at most the capacity; a longer list is cut without an
 * error). [board] hard_types (numbers separated by blanks or commas), else the single
 * [board] hard_type, else none. */
SWM_API uint32_t SWM_GetBoardMultiHardType(uint32_t *list, uint32_t *count);

/* High-availability and network facts of the board, from the board description ([board], [net],
 * [ftp]; see docs/board-description.md), with the same rules as the board facts above. */

/* HA role of the system on this board: 0 master, other values not master. */
SWM_API uint32_t SWM_GetSystemHaRole(uint32_t *role);
/* Non-zero on a main management board. */
SWM_API int SWM_BoardIsMMB(void);
/* Non-zero when the device is a stack of chassis. */
SWM_API int SWM_IsStackEnabled(void);
/* IPv4 address (text) of the stack master. SWM_ERR_TOO_LONG when it does not fit len bytes. */
SWM_API uint32_t SWM_GetStackMasterIp(char *ip, uint32_t len);
/* IPv4 addresses (text) of main management boards 1 and 2. */
SWM_API uint32_t SWM_GetServerIpByBoardRole(char *mmbIp1, uint32_t len1, char *mmbIp2,
                                            uint32_t len2);
/* IPv4 address (text) of this board. */
SWM_API uint32_t SWM_GetBoardLocalIp(char *ip, uint32_t len);
/* The port text of an FTP server configuration file (its "port" entry), at most len - 1
 * characters. */
SWM_API uint32_t SWM_GetPortInfoReliable(const char *file, char *port, uint32_t len);

/* One platform user: 1924 bytes; the name starts at byte 0, the home directory at byte 640. */
#define SWM_USER_NAME_LEN 256u
#define SWM_USER_HOME_LEN 256u
typedef struct {
  char name[SWM_USER_NAME_LEN];
  char reserved1[384];
  char homeDir[SWM_USER_HOME_LEN];
  char reserved2[1028];
} SWM_USER_INFO_S;

/* The platform's users (at most ten) as a newly allocated array of *count records, which the
 * caller frees with free(). reserved must be NULL. */
SWM_API uint32_t SWM_GetMaxTenUsersInfo(SWM_USER_INFO_S **users, uint32_t *count, void *reserved);

/* ---- sockets (BSD sockets) ----
 * Addresses are socket-address storages (128 bytes) holding an IPv4 or IPv6 address. Results:
 * SWM_OK, SWM_ERR_PARAM for bad arguments, SWM_ERR_IO with errno kept. */

/* A new TCP socket of family (AF_INET or AF_INET6), close-on-exec. */
SWM_API uint32_t SWM_SockGetTcpSock(int32_t family, int32_t *fd);
SWM_API uint32_t SWM_SockBind(int32_t fd, const struct sockaddr_storage *address);
/* Blocking connect; interrupted calls are waited for until the connection is made or fails. */
SWM_API uint32_t SWM_SockConnect(int32_t fd, const struct sockaddr_storage *address);
SWM_API uint32_t SWM_SockSetLinger(int32_t fd, const struct linger *linger);
/* Keep-alive on, with idle seconds before the first probe, seconds between probes, and the
 * number of unanswered probes that drop the connection. */
SWM_API uint32_t SWM_SockSetKeepAlive(int32_t fd, int32_t idleSeconds, int32_t intervalSeconds,
                                      int32_t probes);
SWM_API uint32_t SWM_SockSetRcvTimeout(int32_t fd, const struct timeval *timeout);
SWM_API uint32_t SWM_SockSetSndTimeout(int32_t fd, const struct timeval *timeout);
SWM_API uint32_t SWM_SockGetLocalSockAddr(int32_t fd, struct sockaddr_storage *address);
SWM_API uint32_t SWM_SockGetPeerSockAddr(int32_t fd, struct sockaddr_storage *address);
/* Writes port (host byte order) into an IPv4 or IPv6 address. */
SWM_API uint32_t SWM_SockSetPort(uint16_t port, struct sockaddr_storage *address);

/* ---- CMS signatures and CRLs ----
 * Checks of detached DER CMS signatures over a file's exact bytes (see docs/signatures.md).
 * The trust anchor is the DER certificate named by the board description ([security] root_ca,
 * a path on the board). A signer passes when its signature matches the bytes, its certificate
 * chains to the trust anchor and is valid now, and no CRL that counts lists it. */
#define SWM_CMS_ERR_TRUST_ANCHOR 0x30000001u /* no trust anchor described, or unreadable */
#define SWM_CMS_ERR_SIGNATURE 0x30000002u    /* signature file is not a DER CMS SignedData */
#define SWM_CMS_ERR_CRL 0x30000003u          /* CRL unreadable, malformed or not from the anchor */
#define SWM_CMS_ERR_MISMATCH 0x30000004u     /* the signature does not match the file's bytes */
#define SWM_CMS_ERR_UNTRUSTED 0x30000005u    /* signer does not chain to the trust anchor */
#define SWM_CMS_ERR_EXPIRED 0x30000006u      /* signer certificate not valid at this time */
#define SWM_CMS_ERR_REVOKED 0x30000007u      /* signer listed by a CRL */
#define SWM_CMS_ERR_NOT_PSS 0x30000008u      /* a signer that did not sign with RSA-PSS */

#define SWM_CRL_ALG_CLASSIC 0u
#define SWM_CRL_ALG_PSS 1u

/* Classic check: revocation against the CRL file crlPath (DER or PEM), which must be signed
 * by the trust anchor. SWM_ERR_PARAM for NULL arguments, SWM_ERR_IO for a file that cannot be
 * read, else one of the SWM_CMS_ERR_ codes. */
SWM_API uint32_t SWM_VerifyCms(const char *sourcePath, const char *signaturePath,
                               const char *crlPath);
/* PSS check: every signer must have signed with RSASSA-PSS; revocation against the CRL the
 * board has handed to its kernel ("/dev/module_crl"), when that file holds one. */
SWM_API uint32_t SWM_VerifyPssCms(const char *sourcePath, const char *signaturePath);
/* Signature scheme of the CRL file at path: SWM_CRL_ALG_PSS or SWM_CRL_ALG_CLASSIC into *alg.
 * reserved must be NULL. SWM_ERR_PARAM, SWM_ERR_IO or SWM_CMS_ERR_CRL. */
SWM_API uint32_t SWM_GetCrlSignatureAlgs(const char *path, uint32_t *alg, void *reserved);

/* ---- the package the board runs ----
 * Path of the main package the board runs now: the boot environment variable next_bootfile
 * (/etc/fw_env.config; read as libdrv reads it), copied with its terminator into path[len].
 * SWM_ERR_PARAM for NULL path or len 0; SWM_ERR_IO when the environment cannot be read (no
 * configuration or image, no valid copy and no default environment); SWM_ERR_NOT_FOUND when
 * the variable is not set or empty; SWM_ERR_TOO_LONG when the value does not fit (it is never
 * cut). path is "" after every failure except a forced one ([fail] SWM_GetCCPackage), which
 * returns its code with path written as on success. */
SWM_API uint32_t SWM_GetCCPackage(char *path, uint32_t len);

#ifdef __cplusplus
}
#endif

#endif /* SWM_H */
