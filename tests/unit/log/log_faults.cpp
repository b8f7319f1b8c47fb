#include "log_faults.hpp"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "boundedstr.h"

namespace logfaults {
Faults &Get() {
  static Faults faults;
  return faults;
}
void Reset() { Get() = Faults{}; }
}  // namespace logfaults

extern "C" {
int __real_gettimeofday(struct timeval *tv, void *tz);
int __real_flock(int fd, int operation);
int __real_ftruncate(int fd, off_t length);
off_t __real_lseek(int fd, off_t offset, int whence);
ssize_t __real_TKAL_FdWrite(int fd, const void *buf, size_t len);
errno_t __real_strcpy_s(char *dest, size_t destMax, const char *src);

int __wrap_gettimeofday(struct timeval *tv, void *tz) {
  if (logfaults::Get().pinTime && tv != nullptr) {
    *tv = logfaults::Get().time;
    return 0;
  }
  return __real_gettimeofday(tv, tz);
}

int __wrap_flock(int fd, int operation) {
  if (logfaults::Get().failFlock) {
    errno = ENOLCK;
    return -1;
  }
  return __real_flock(fd, operation);
}

int __wrap_ftruncate(int fd, off_t length) {
  if (logfaults::Get().failFtruncate) {
    errno = EIO;
    return -1;
  }
  return __real_ftruncate(fd, length);
}

off_t __wrap_lseek(int fd, off_t offset, int whence) {
  if (logfaults::Get().failSeekPastHead && offset != 0) {
    errno = EINVAL;
    return -1;
  }
  return __real_lseek(fd, offset, whence);
}

ssize_t __wrap_TKAL_FdWrite(int fd, const void *buf, size_t len) {
  if (logfaults::Get().failWrite) {
    return -1;
  }
  return __real_TKAL_FdWrite(fd, buf, len);
}

errno_t __wrap_strcpy_s(char *dest, size_t destMax, const char *src) {
  const char *failOf = logfaults::Get().failStrcpyOf;
  if (failOf != nullptr && src != nullptr && std::strcmp(src, failOf) == 0) {
    if (dest != nullptr && destMax > 0) {
      dest[0] = '\0';
    }
    return BOUNDED_ERANGE_AND_RESET;
  }
  return __real_strcpy_s(dest, destMax, src);
}
}
