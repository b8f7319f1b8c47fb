// File-system flags of files (immutable, append-only, no-dump, ...), read and written through
// the file-system flags requests. Many file systems have no such flags; that failure is marked
// as one a caller may ignore.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdint>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "common/support/messages.hpp"
#include "common/support/unique_fd.hpp"
#include "swm.h"
#include "tkal.h"

namespace bootinit::flags {
namespace {

// The request numbers of the 64-bit boards, whatever a header of another target says.
constexpr unsigned long kGetFlagsRequest = 0x80086601UL;
constexpr unsigned long kSetFlagsRequest = 0x40086602UL;
static_assert(kGetFlagsRequest == FS_IOC_GETFLAGS, "FS_IOC_GETFLAGS of <linux/fs.h>");
static_assert(kSetFlagsRequest == FS_IOC_SETFLAGS, "FS_IOC_SETFLAGS of <linux/fs.h>");

// Read-only is all either request needs. Non-blocking so that a FIFO without a writer cannot
// hold the boot up (the request then fails on it like on any file without flags); no
// controlling terminal is taken over by opening a terminal.
constexpr int kOpenFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY;

enum class Outcome {
  kDone,
  kMissing,     // path does not exist
  kOpenFailed,  // path cannot be opened
  kRefused,     // the file system refused the request (it may have no flags)
};

struct Result {
  Outcome outcome;
  int error;  // errno of the failed step
};

// Runs one flags request on path; value is the request's 32-bit argument.
Result Request(const char *path, unsigned long request, unsigned int *value) {
  if (TKAL_IsFileExist(path) == 0) {
    return {Outcome::kMissing, 0};
  }
  int rawFd = -1;
  if (SWM_Open(path, kOpenFlags, &rawFd) != SWM_OK) {
    return {Outcome::kOpenFailed, errno};
  }
  const UniqueFd fd(rawFd);
  if (::ioctl(fd.get(), request, value) != 0) {
    return {Outcome::kRefused, errno};
  }
  return {Outcome::kDone, 0};
}

}  // namespace

uint32_t GetFileFlags(const char *path, uint32_t *flags, uint32_t *fatal) {
  unsigned int value = 0;
  const Result result = Request(path, kGetFlagsRequest, &value);
  switch (result.outcome) {
    case Outcome::kDone:
      *flags = value;
      return BOOT_INIT_OK;
    case Outcome::kMissing:
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:file %s not exists, get file flags failed", path);
      break;
    case Outcome::kOpenFailed:
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:open file %s failed, errno:%d, get file flags failed",
                         path, result.error);
      break;
    case Outcome::kRefused:
      BOOT_INIT_LogWrite(
          BOOT_INIT_LOG_TYPE_MAIN,
          "[BOOT_INIT][WARNING]:file:%s, get flags unsuccessful, errno:%d, ignore it", path,
          result.error);
      *fatal = 0;
      break;
  }
  return BOOT_INIT_ERROR;
}

uint32_t SetFileFlags(const char *path, uint32_t flags, uint32_t *fatal) {
  unsigned int value = flags;
  const Result result = Request(path, kSetFlagsRequest, &value);
  switch (result.outcome) {
    case Outcome::kDone:
      return BOOT_INIT_OK;
    case Outcome::kMissing:
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:file %s not exists", path);
      break;
    case Outcome::kOpenFailed:
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:open file %s failed, errno:%d", path, result.error);
      break;
    case Outcome::kRefused:
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][WARNING]:file:%s, set flags unsuccessfully, errno:%d, "
                         "ignore it",
                         path, result.error);
      *fatal = 0;
      break;
  }
  return BOOT_INIT_ERROR;
}

}  // namespace bootinit::flags

extern "C" {

uint32_t BOOT_INIT_GetFileFlags(const char *path, uint32_t *flags, uint32_t *fatal) {
  if (path == nullptr || flags == nullptr || fatal == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return bootinit::flags::GetFileFlags(path, flags, fatal);
}

uint32_t BOOT_INIT_SetFileFlags(const char *path, uint32_t flags, uint32_t *fatal) {
  if (path == nullptr || fatal == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return bootinit::flags::SetFileFlags(path, flags, fatal);
}

}  // extern "C"
