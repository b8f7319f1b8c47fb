// Log files on disk: creation with owner and modes, the length header, and appending one line
// under an exclusive lock so that concurrent processes never interleave.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <span>

#include "bootinit/log.h"
#include "common/support/fixed_text.hpp"
#include "common/support/unique_fd.hpp"
#include "log/log_layout.hpp"
#include "swm.h"
#include "tkal.h"

namespace bootinit::log {
namespace {

// Each line must be on disk before the call returns: a reset may cut the boot short anywhere.
constexpr int kOpenFlags = O_RDWR | O_CREAT | O_SYNC;

bool BuildPath(const BOOT_INIT_LOG_INFO_S &record, std::span<char> out) {
  return FormatInto(out, "%s/%s", record.dir, record.fileName);
}

// Holds the exclusive lock for as long as one line is being written.
class FileLock {
 public:
  explicit FileLock(int fd) : fd_(fd), locked_(::flock(fd, LOCK_EX) == 0) {}
  FileLock(const FileLock &) = delete;
  FileLock &operator=(const FileLock &) = delete;
  ~FileLock() {
    if (locked_) {
      (void)::flock(fd_, LOCK_UN);
    }
  }
  [[nodiscard]] bool locked() const { return locked_; }

 private:
  int fd_;
  bool locked_;
};

// The new file appears under its name with its empty header already in place (written to an
// unnamed file that is linked in afterwards), so a process that starts the same log at the
// same moment can never have its first line overwritten by a late header.
uint32_t CreateWithHeader(const char *dir, const char *path, std::size_t headerSize) {
  const unsigned char emptyHeader[kDcHeaderSize] = {};
  int rawFd = -1;
  if (SWM_Open(dir, O_TMPFILE | O_RDWR | O_SYNC, &rawFd, kLogFileMode) != 0) {
    // File systems without unnamed files: exclusive creation still lets only one writer in.
    if (SWM_Open(path, kOpenFlags | O_EXCL, &rawFd, kLogFileMode) != 0) {
      return errno == EEXIST ? BOOT_INIT_OK : BOOT_INIT_ERROR;
    }
    UniqueFd fd(rawFd);
    (void)TKAL_FdWrite(fd.get(), emptyHeader, headerSize);
    return BOOT_INIT_OK;
  }
  UniqueFd fd(rawFd);
  (void)TKAL_FdWrite(fd.get(), emptyHeader, headerSize);
  char procPath[64] = {};
  if (!FormatInto(procPath, "/proc/self/fd/%d", fd.get())) {
    return BOOT_INIT_ERROR;
  }
  if (::linkat(AT_FDCWD, procPath, AT_FDCWD, path, AT_SYMLINK_FOLLOW) != 0) {
    return errno == EEXIST ? BOOT_INIT_OK : BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t CreateFile(BOOT_INIT_LOG_INFO_S *record, std::size_t headerSize) {
  if (record == nullptr) {
    return BOOT_INIT_ERROR;
  }
  const uid_t uid = TKAL_GetUidByName(kLogAccount, kUnknownAccountId);
  const gid_t gid = TKAL_GetGidByName(kLogAccount, kUnknownAccountId);
  const uint32_t dirRet = SWM_MkParentDir(record->dir, uid, gid, kLogDirMode);
  if (dirRet != 0) {
    return dirRet;
  }
  char path[kPathBufLen] = {};
  if (!BuildPath(*record, path)) {
    return BOOT_INIT_ERROR;
  }
  if (TKAL_IsFileExist(path)) {
    return BOOT_INIT_OK;
  }
  const uint32_t ret = CreateWithHeader(record->dir, path, headerSize);
  if (ret != BOOT_INIT_OK) {
    return ret;
  }
  record->curLen = 0;
  (void)SWM_Chown(1, path, uid, gid);
  return BOOT_INIT_OK;
}

// A length past the maximum starts the text again at its beginning. The file is cut back to
// the maximum first; text beyond the new write position stays until it is overwritten.
bool WrapIfFull(int32_t logType, BOOT_INIT_LOG_INFO_S &record, int fd,
                BOOT_INIT_DC_LOG_HEADER_S &header) {
  if (record.curLen <= record.maxLen) {
    return true;
  }
  if (::ftruncate(fd, static_cast<off_t>(record.maxLen)) != 0) {
    return false;
  }
  if (logType == BOOT_INIT_LOG_TYPE_DC_SAFE) {
    header.wrapLen = static_cast<uint32_t>(record.curLen);
  }
  record.curLen = 0;
  return true;
}

void StoreHeader(int32_t logType, const BOOT_INIT_LOG_INFO_S &record, int fd,
                 BOOT_INIT_DC_LOG_HEADER_S &header) {
  if (logType == BOOT_INIT_LOG_TYPE_DC_SAFE) {
    header.curLen = static_cast<uint32_t>(record.curLen);
    (void)BOOT_INIT_UpdateDcSafeLogHeader(&header, fd);
  } else {
    (void)BOOT_INIT_UpdateLogLen(&record, fd);
  }
}

void AppendLocked(int32_t logType, BOOT_INIT_LOG_INFO_S &record, int fd, const char *line) {
  BOOT_INIT_DC_LOG_HEADER_S header = {};
  (void)BOOT_INIT_ReadLogLen(logType, &record, fd, &header);
  if (!WrapIfFull(logType, record, fd, header)) {
    return;
  }
  if (BOOT_INIT_SetPosLogTail(logType, &record, fd) != 0) {
    return;
  }
  const ssize_t written = TKAL_FdWrite(fd, line, std::strlen(line));
  if (written < 0) {
    return;
  }
  record.curLen += static_cast<uint64_t>(written);
  StoreHeader(logType, record, fd, header);
}

bool WriteAt(int fd, const void *data, std::size_t size) {
  return BOOT_INIT_SetPosFileHead(fd) == 0 &&
         TKAL_FdWrite(fd, data, size) == static_cast<ssize_t>(size);
}

}  // namespace
}  // namespace bootinit::log

using namespace bootinit;
using namespace bootinit::log;

extern "C" {

uint32_t BOOT_INIT_CreateLogFile(BOOT_INIT_LOG_INFO_S *record) {
  return CreateFile(record, kLengthHeaderSize);
}

uint32_t BOOT_INIT_CreateDcLogFile(BOOT_INIT_LOG_INFO_S *record) {
  return CreateFile(record, kDcHeaderSize);
}

void BOOT_INIT_WriteLogFile(int32_t logType, const char *path, const char *line) {
  BOOT_INIT_LOG_INFO_S *record = BOOT_INIT_GetLogInfoByType(logType);
  if (path == nullptr || line == nullptr || line[0] == '\0' || record == nullptr) {
    return;
  }
  int rawFd = -1;
  if (SWM_Open(path, kOpenFlags, &rawFd, kLogFileMode) != 0) {
    return;
  }
  UniqueFd fd(rawFd);
  FileLock lock(fd.get());
  if (!lock.locked()) {
    return;
  }
  AppendLocked(logType, *record, fd.get(), line);
}

int32_t BOOT_INIT_SetPosFileHead(int fd) { return ::lseek(fd, 0, SEEK_SET) == 0 ? 0 : -1; }

int32_t BOOT_INIT_SetPosLogTail(int32_t logType, const BOOT_INIT_LOG_INFO_S *record, int fd) {
  if (record == nullptr) {
    return -1;
  }
  uint64_t offset = 0;
  if (__builtin_add_overflow(TextStart(logType), record->curLen, &offset) ||
      offset > static_cast<uint64_t>(INT64_MAX)) {
    return -1;
  }
  return ::lseek(fd, static_cast<off_t>(offset), SEEK_SET) < 0 ? -1 : 0;
}

int32_t BOOT_INIT_ReadLogLen(int32_t logType, BOOT_INIT_LOG_INFO_S *record, int fd,
                             BOOT_INIT_DC_LOG_HEADER_S *header) {
  if (record == nullptr || BOOT_INIT_SetPosFileHead(fd) != 0) {
    return -1;
  }
  if (logType == BOOT_INIT_LOG_TYPE_DC_SAFE) {
    BOOT_INIT_DC_LOG_HEADER_S read = {};
    if (header == nullptr || ::read(fd, &read, sizeof(read)) != sizeof(read)) {
      return -1;
    }
    *header = read;
    record->curLen = read.curLen;
    return 0;
  }
  uint64_t length = 0;
  if (::read(fd, &length, sizeof(length)) != sizeof(length)) {
    return -1;
  }
  record->curLen = length;
  return 0;
}

int32_t BOOT_INIT_UpdateLogLen(const BOOT_INIT_LOG_INFO_S *record, int fd) {
  if (record == nullptr) {
    return -1;
  }
  const uint64_t length = record->curLen;
  return WriteAt(fd, &length, sizeof(length)) ? 0 : -1;
}

int32_t BOOT_INIT_UpdateDcSafeLogHeader(const BOOT_INIT_DC_LOG_HEADER_S *header, int fd) {
  if (header == nullptr) {
    return -1;
  }
  return WriteAt(fd, header, sizeof(*header)) ? 0 : -1;
}

}  // extern "C"
