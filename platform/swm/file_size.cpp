// File size by path and whole-buffer writes to a descriptor.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>

#include "forced.h"
#include "swm.h"
#include "write_all.h"

extern "C" uint32_t SWM_GetFileSize(const char *path, int64_t *size) {
  if (path == nullptr || size == nullptr) {
    return SWM_ERR_PARAM;
  }
  struct stat info {};
  uint32_t status = SWM_OK;
  if (stat(path, &info) != 0) {
    status = SWM_ERR_IO;
  } else if (!S_ISREG(info.st_mode)) {
    errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    status = SWM_ERR_IO;
  } else {
    *size = static_cast<int64_t>(info.st_size);
  }
  return swm::ForcedAfter("SWM_GetFileSize", status);
}

extern "C" ssize_t SWM_Write(int fd, const void *buf, size_t len) {
  if (fd < 0) {
    errno = EBADF;
    return -1;
  }
  if ((buf == nullptr && len > 0) || len > SSIZE_MAX) {
    errno = EINVAL;
    return -1;
  }
  // The answer is a count, not a status: a forced failure is -1 with errno EIO, nothing written.
  uint32_t forced = 0;
  if (swm::ForcedBefore("SWM_Write", &forced)) {
    return -1;
  }
  return swm::WriteAll(fd, buf, len) ? static_cast<ssize_t>(len) : -1;
}
