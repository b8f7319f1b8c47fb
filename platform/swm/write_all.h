// Writing a whole buffer to a descriptor, for the file functions of libswm.
#ifndef SWM_WRITE_ALL_H
#define SWM_WRITE_ALL_H

#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace swm {

// Writes all len bytes, continuing short writes and retrying interrupted ones. false with errno
// set when write(2) fails, EIO when it makes no progress.
inline bool WriteAll(int fd, const void *data, size_t len) {
  const char *next = static_cast<const char *>(data);
  while (len > 0) {
    const ssize_t written = write(fd, next, len);
    if (written < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    if (written == 0) {
      errno = EIO;
      return false;
    }
    next += written;
    len -= static_cast<size_t>(written);
  }
  return true;
}

}  // namespace swm

#endif  // SWM_WRITE_ALL_H
