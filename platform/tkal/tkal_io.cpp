// Whole-buffer descriptor transfers: read(2) and write(2) may move fewer bytes than asked
// (pipes, sockets, signals), and callers of these helpers want all or an error.
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>

#include "tkal.h"

namespace {

// The result is a ssize_t, so a length beyond SSIZE_MAX could not be reported back.
bool ValidTransfer(int fd, const void *buf, size_t len) {
  if (fd < 0) {
    errno = EBADF;
    return false;
  }
  if (buf == nullptr || len > static_cast<size_t>(SSIZE_MAX)) {
    errno = EINVAL;
    return false;
  }
  return true;
}

}  // namespace

extern "C" ssize_t TKAL_FdRead(int fd, void *buf, size_t len) {
  if (!ValidTransfer(fd, buf, len)) {
    return -1;
  }
  auto *bytes = static_cast<unsigned char *>(buf);
  size_t done = 0;
  while (done < len) {
    const ssize_t got = read(fd, bytes + done, len - done);
    if (got > 0) {
      done += static_cast<size_t>(got);
    } else if (got == 0) {
      break;  // end of file: the caller gets what arrived before it
    } else if (errno != EINTR) {
      return -1;
    }
  }
  return static_cast<ssize_t>(done);
}

extern "C" ssize_t TKAL_FdWrite(int fd, const void *buf, size_t len) {
  if (!ValidTransfer(fd, buf, len)) {
    return -1;
  }
  const auto *bytes = static_cast<const unsigned char *>(buf);
  size_t done = 0;
  while (done < len) {
    const ssize_t put = write(fd, bytes + done, len - done);
    if (put > 0) {
      done += static_cast<size_t>(put);
    } else if (put == 0) {
      // No progress and no error: retrying would spin for ever.
      errno = EIO;
      return -1;
    } else if (errno != EINTR) {
      return -1;
    }
  }
  return static_cast<ssize_t>(done);
}
