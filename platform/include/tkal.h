/*
 * File helper library: existence tests, descriptor I/O, deletion, owners and directories.
 */
#ifndef TKAL_H
#define TKAL_H

#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

#define TKAL_API __attribute__((visibility("default")))

/* 1 when something exists at path (symbolic links followed), 0 otherwise or for NULL. */
TKAL_API int TKAL_IsFileExist(const char *path);
/* 1 when path is a directory (links followed), 0 otherwise or for NULL. */
TKAL_API int TKAL_IsDirExist(const char *path);
/* 1 when path itself is a symbolic link, 0 otherwise or for NULL. */
TKAL_API int TKAL_IsSymLink(const char *path);

/* Reads up to len bytes, retrying short reads and EINTR until len bytes or end of file.
 * Returns the count read (0 at end of file), or -1 on error or bad arguments: fd < 0 (EBADF),
 * NULL buf or len beyond SSIZE_MAX (EINVAL). After -1, bytes already read are in buf but not
 * counted. A non-blocking descriptor without data fails with EAGAIN. */
TKAL_API ssize_t TKAL_FdRead(int fd, void *buf, size_t len);
/* Writes all len bytes, retrying short writes and EINTR. Returns len, or -1 with errno set
 * (arguments as for TKAL_FdRead; EIO when write(2) makes no progress). After -1 a part of the
 * buffer may have been written. */
TKAL_API ssize_t TKAL_FdWrite(int fd, const void *buf, size_t len);

/* Removes a file or symbolic link (never its target, never a directory). 0 on success,
 * 1 on failure with errno from unlink(2) (EINVAL for NULL). */
TKAL_API uint32_t TKAL_DelFile(const char *path);

/* The id of a user or group name from the system databases, or fallback when the name is
 * unknown, empty or NULL. */
TKAL_API uid_t TKAL_GetUidByName(const char *name, uid_t fallback);
TKAL_API gid_t TKAL_GetGidByName(const char *name, gid_t fallback);

/* Sets owner, group and mode of path (links followed). The mode is applied after the owner, so
 * set-id bits survive. 0 on success, 1 on failure (errno kept; EINVAL for NULL). */
TKAL_API uint32_t TKAL_SetFilePermission(const char *path, uid_t uid, gid_t gid, mode_t mode);

/* Creates path and any missing parents; each directory created here gets the owner and group
 * named (fallback 2000 when unknown or NULL) and exactly mode, whatever the umask. Existing
 * directories are left untouched. 0 on success (also when path already is a directory),
 * 1 on failure: NULL (EINVAL) or empty (ENOENT) path, a component that exists and is not a
 * directory (ENOTDIR), or a failing system call (its errno). A failed call removes the
 * directories it created. */
TKAL_API uint32_t TKAL_MkDirWithUserGroup(const char *path, const char *userName,
                                          const char *groupName, mode_t mode);

#ifdef __cplusplus
}
#endif

#endif /* TKAL_H */
