/*
 * Common services: configuration files, text and path helpers, address conversion, worker
 * threads and bounded descriptor copies. Results are 0 on success and 0xFFFFFFFF on failure
 * unless a function says otherwise; failures are written to the main boot log.
 * C callers need the POSIX types (pthread_rwlock_t): compile with _POSIX_C_SOURCE >= 200112L
 * or the compiler's default GNU dialect.
 */
#ifndef BOOTINIT_COMMON_H
#define BOOTINIT_COMMON_H

#include <pthread.h>
#include <stddef.h>

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

/* ---- hash chains and hash tables ----
 * Intrusive: a record kept in a table begins with a BOOT_INIT_HLIST_NODE_S, so node and record
 * share one address. The table never allocates or copies records. */

typedef struct BootInitHlistNode {
  struct BootInitHlistNode *next;   /* following node of the bucket, or NULL */
  struct BootInitHlistNode **pprev; /* the pointer that points at this node */
} BOOT_INIT_HLIST_NODE_S;

/* Bucket index of key; the table trusts it to be below bucketCount. */
typedef int32_t (*BOOT_INIT_HASH_FUNC)(uint32_t bucketCount, const void *key);
/* 0 when node holds key. */
typedef int32_t (*BOOT_INIT_HASH_COMPARE_FUNC)(const void *key, BOOT_INIT_HLIST_NODE_S *node);
/* Releases a node taken out by HashTableRemove or HashTableDestroy. */
typedef void (*BOOT_INIT_HASH_FREE_FUNC)(void *node);
/* Non-zero makes a search hit on node count as a miss. */
typedef int32_t (*BOOT_INIT_HASH_FILTER_FUNC)(BOOT_INIT_HLIST_NODE_S *node);

typedef struct {
  BOOT_INIT_HLIST_NODE_S **buckets; /* bucketCount chain heads */
  uint32_t bucketCount;
  pthread_rwlock_t lock; /* searches read; inserts, removals and destruction write */
  BOOT_INIT_HASH_FUNC hashFn;
  BOOT_INIT_HASH_COMPARE_FUNC compareFn;
  BOOT_INIT_HASH_FREE_FUNC freeFn;     /* optional */
  BOOT_INIT_HASH_FILTER_FUNC filterFn; /* optional */
} BOOT_INIT_HASH_TABLE_S;

/* Results of HashTableInsert. */
#define BOOT_INIT_HASH_OK 0u
#define BOOT_INIT_HASH_ERR_LOCK 3u      /* the write lock could not be taken */
#define BOOT_INIT_HASH_ERR_DUPLICATE 4u /* a node with an equal key is present */
#define BOOT_INIT_HASH_ERR_NULL 6u      /* an argument is NULL */

BOOTINIT_API void INIT_HLIST_NODE(BOOT_INIT_HLIST_NODE_S *node);
/* Pushes node at the front of the chain whose first pointer is *headSlot. */
BOOTINIT_API void Hlist_Add_Head(BOOT_INIT_HLIST_NODE_S *node, BOOT_INIT_HLIST_NODE_S **headSlot);
/* Unlinks a linked node and clears its two fields. */
BOOTINIT_API void Hlist_Del(BOOT_INIT_HLIST_NODE_S *node);

/* A table of bucketCount empty buckets, or NULL; the caller releases it with HashTableDestroy. */
BOOTINIT_API BOOT_INIT_HASH_TABLE_S *HashTableCreate(BOOT_INIT_HASH_FUNC hashFn,
                                                     BOOT_INIT_HASH_COMPARE_FUNC compareFn,
                                                     BOOT_INIT_HASH_FREE_FUNC freeFn,
                                                     BOOT_INIT_HASH_FILTER_FUNC filterFn,
                                                     uint32_t bucketCount);
/* The node holding key, or NULL (also when the filter rejects the node). The node stays owned by
 * the table: no removal may run while the caller uses it. */
BOOTINIT_API BOOT_INIT_HLIST_NODE_S *HashTableSearch(BOOT_INIT_HASH_TABLE_S *table,
                                                     const void *key);
BOOTINIT_API uint32_t HashTableInsert(BOOT_INIT_HASH_TABLE_S *table, const void *key,
                                      BOOT_INIT_HLIST_NODE_S *node);
/* Unlinks the first node holding key and passes it to the free function, if any. */
BOOTINIT_API void HashTableRemove(BOOT_INIT_HASH_TABLE_S *table, const void *key);
/* Passes every node to the free function (if any) and releases the table. */
BOOTINIT_API void HashTableDestroy(BOOT_INIT_HASH_TABLE_S *table);

/* ---- circular doubly linked lists ----
 * Intrusive: a record begins with a BOOT_INIT_DLL_NODE_S. The head's links make it a node of its
 * own ring: an empty list has both links pointing at &head->links and count 0. */

typedef struct BootInitDllNode {
  struct BootInitDllNode *next;
  struct BootInitDllNode *prev;
} BOOT_INIT_DLL_NODE_S;

typedef struct {
  BOOT_INIT_DLL_NODE_S links; /* next: first element; prev: last element */
  void *reserved;
  uint32_t count;
} BOOT_INIT_DLL_HEAD_S;

/* Releases one element of a list (free() fits). */
typedef void (*BOOT_INIT_DLL_FREE_FUNC)(void *element);

/* Links newNode between prevNode and nextNode and counts it; nothing when newNode is NULL.
 * Appending is BOOT_InitDllInsertInMiddle(head, head->links.prev, node, &head->links). */
BOOTINIT_API void BOOT_InitDllInsertInMiddle(BOOT_INIT_DLL_HEAD_S *head,
                                             BOOT_INIT_DLL_NODE_S *prevNode,
                                             BOOT_INIT_DLL_NODE_S *newNode,
                                             BOOT_INIT_DLL_NODE_S *nextNode);
/* Unlinks node from between prevNode and nextNode without any check. */
BOOTINIT_API void BOOT_InitDllDeleteInMiddle(BOOT_INIT_DLL_HEAD_S *head,
                                             BOOT_INIT_DLL_NODE_S *prevNode,
                                             BOOT_INIT_DLL_NODE_S *node,
                                             BOOT_INIT_DLL_NODE_S *nextNode);
/* Unlinks node only when its neighbours point back at it; the node is not freed. */
BOOTINIT_API void BOOT_InitDllDelete(BOOT_INIT_DLL_HEAD_S *head, BOOT_INIT_DLL_NODE_S *node);
/* Passes every element to freeFn (mandatory) and leaves head an empty list. */
BOOTINIT_API void BOOT_InitDllFreeAll(BOOT_INIT_DLL_HEAD_S *head, BOOT_INIT_DLL_FREE_FUNC freeFn);

/* ---- SHA-256 digests ----
 * Each digest run opens the system's crypto library ("libcrypto.so", else
 * "libcrypto.so.1.0.0"), uses its SHA256_Init/Update/Final and closes it again. */

#define BOOT_INIT_SHA256_LEN 32u      /* bytes of a digest */
#define BOOT_INIT_SHA256_TEXT_LEN 65u /* 64 lowercase hexadecimal digits and the NUL */

/* The crypto library's SHA-256 state (its SHA256_CTX layout). */
typedef struct {
  uint32_t h[8];
  uint32_t nl;
  uint32_t nh;
  uint32_t data[16];
  uint32_t num;
  uint32_t mdLen;
} BOOT_INIT_SHA256_STATE_S;

/* One digest run's view of the crypto library: handle, hashing state, entry points. */
typedef struct {
  void *handle;
  BOOT_INIT_SHA256_STATE_S ctx;
  int (*init)(BOOT_INIT_SHA256_STATE_S *ctx);
  int (*update)(BOOT_INIT_SHA256_STATE_S *ctx, const void *data, size_t len);
  int (*final)(unsigned char *digest, BOOT_INIT_SHA256_STATE_S *ctx);
} BOOT_INIT_CRYPTO_HANDLE_S;

/* Opens the crypto library into handle; the caller closes handle->handle with dlclose. */
BOOTINIT_API uint32_t BOOT_INIT_LoadCryptoSymbols(BOOT_INIT_CRYPTO_HANDLE_S *handle);
/* Digest of the whole file; digest must hold 32 bytes whatever digestLen (at most 32) says. */
BOOTINIT_API uint32_t BOOT_INIT_Sha256Get(const char *path, uint8_t *digest, uint32_t digestLen);
/* Digest of the next length bytes of fd; digestLen must be 32. fd is neither moved back nor
 * closed. */
BOOTINIT_API uint32_t BOOT_INIT_Sha256GetWithFd(int fd, uint32_t length, uint8_t *digest,
                                                uint32_t digestLen);
/* Lowercase hexadecimal text of digest; a short text buffer truncates the text. */
BOOTINIT_API void BOOT_INIT_TransHashValueToString(const uint8_t *digest, uint32_t digestLen,
                                                   char *text, uint32_t textLen);
/* 0 when the file's digest text equals expectedHex exactly, else 1. */
BOOTINIT_API uint32_t BOOT_INIT_SHA_IsFileDamaged(const char *path, const char *expectedHex);

/* ---- file list text records ----
 * One record a line: "<hardware type> <cpu id> <file path> <file type> <sha256>". */

#define BOOT_INIT_FILELIST_HARDTYPE_LEN 32u
#define BOOT_INIT_FILELIST_CPUID_LEN 32u
#define BOOT_INIT_FILELIST_PATH_LEN 128u
#define BOOT_INIT_FILELIST_TYPE_LEN 128u
#define BOOT_INIT_FILELIST_SHA256_LEN 65u

typedef struct {
  BOOT_INIT_DLL_NODE_S node;
  void *reserved;
  char hardType[BOOT_INIT_FILELIST_HARDTYPE_LEN];
  char cpuId[BOOT_INIT_FILELIST_CPUID_LEN];
  char filePath[BOOT_INIT_FILELIST_PATH_LEN];
  char fileType[BOOT_INIT_FILELIST_TYPE_LEN];
  char sha256[BOOT_INIT_FILELIST_SHA256_LEN];
} BOOT_INIT_FILELIST_TXT_RECORD_S;

/* Parses one line (trimmed in place) into a zeroed record. */
BOOTINIT_API uint32_t BOOT_INIT_Trans2FilelistTxtRecord(char *line,
                                                        BOOT_INIT_FILELIST_TXT_RECORD_S *record);
/* Appends one record a non-blank line of the file to head, in file order. The caller frees the
 * records with BOOT_InitDllFreeAll(head, free), also after a failure. */
BOOTINIT_API uint32_t BOOT_INIT_GetAllRecordFromFilelistTxt(const char *path,
                                                            BOOT_INIT_DLL_HEAD_S *head);

/* ---- security labels and file attributes ----
 * The security-label library ("libselinux.so.1") is opened for each call and closed before it
 * returns; with labels disabled every label operation succeeds without doing anything. */

#define BOOT_INIT_CONTEXT_LEN 128u

typedef struct {
  void *handle;
  int (*isSelinuxEnabled)(void);
  void (*freeCon)(char *context);
  int (*getFileCon)(const char *path, char **context);
  int (*setFileCon)(const char *path, const char *context);
  int (*lsetFileCon)(const char *path, const char *context);
} BOOT_INIT_SECURITY_HANDLE_S;

typedef struct {
  uint32_t uid;
  uint32_t gid;
  uint32_t mode;
  uint32_t flags; /* file-system flags; 0 where the file system has none */
  char context[BOOT_INIT_CONTEXT_LEN];
} BOOT_INIT_FILE_ATTR_S;

BOOTINIT_API uint32_t BOOT_INIT_LoadSecuritySymbols(BOOT_INIT_SECURITY_HANDLE_S *handle);
BOOTINIT_API uint32_t BOOT_INIT_FreeSecuritySymbols(BOOT_INIT_SECURITY_HANDLE_S *handle);
BOOTINIT_API uint32_t BOOT_INIT_GetSecurityContext(const char *path, char *buf, uint32_t len);
BOOTINIT_API uint32_t BOOT_INIT_SetSecurityContext(const char *path, const char *context);
/* Gives dstPath (a symbolic link itself, not its target) the label of srcPath. */
BOOTINIT_API uint32_t BOOT_INIT_LinkSecurityContext(const char *srcPath, const char *dstPath);
/* *fatal is cleared to 0 when only the flags request failed (the caller may ignore it). */
BOOTINIT_API uint32_t BOOT_INIT_GetFileFlags(const char *path, uint32_t *flags, uint32_t *fatal);
BOOTINIT_API uint32_t BOOT_INIT_SetFileFlags(const char *path, uint32_t flags, uint32_t *fatal);
BOOTINIT_API uint32_t BOOT_INIT_GetAttr(const char *path, BOOT_INIT_FILE_ATTR_S *record);
BOOTINIT_API uint32_t BOOT_INIT_SetAttr(const char *path, const BOOT_INIT_FILE_ATTR_S *record);
BOOTINIT_API uint32_t BOOT_INIT_CopyAttr(const char *srcPath, const char *dstPath);
/* Owner and label of srcPath onto dstPath without following a symbolic link. */
BOOTINIT_API uint32_t BOOT_INIT_LinkAttr(const char *srcPath, const char *dstPath);
/* Copies the file and then its attributes. */
BOOTINIT_API uint32_t BOOT_INIT_BackupFile(const char *srcPath, const char *dstPath);
/* Operation 14: "<source> <destination>"; 1 for a wrong count, else BOOT_INIT_LinkAttr's result. */
BOOTINIT_API uint32_t BOOT_InitOperModFileAttr(int32_t argc, char **argv);

BOOTINIT_EXTERN_C_END

#endif /* BOOTINIT_COMMON_H */
