#include "extract_faults.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <string>

#include "swm.h"

namespace extractfaults {

// Never destroyed: a wrapped call may still come while the program's statics go away.
Faults &Get() {
  static Faults *const faults = new Faults;
  return *faults;
}

void Reset() {
  Faults &faults = Get();
  faults.package.clear();
  faults.changeAfterRead = 0;
  faults.change = nullptr;
  faults.packageReads = 0;
  faults.changedAtRead = 0;
  faults.tmpfileErrno = 0;
  faults.tmpfileRefused = 0;
}

namespace {

// The file an open descriptor names.
std::string PathOf(int fd) {
  std::array<char, 4096> path{};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const ssize_t len = ::readlink(link.c_str(), path.data(), path.size() - 1);
  return len > 0 ? std::string(path.data(), static_cast<std::size_t>(len)) : std::string();
}

}  // namespace
}  // namespace extractfaults

extern "C" {
ssize_t __real_TKAL_FdRead(int fd, void *buf, size_t len);
uint32_t __real_SWM_Open(const char *path, int flags, int *fd, ...);

ssize_t __wrap_TKAL_FdRead(int fd, void *buf, size_t len) {
  extractfaults::Faults &faults = extractfaults::Get();
  const ssize_t got = __real_TKAL_FdRead(fd, buf, len);
  if (!faults.package.empty() && extractfaults::PathOf(fd) == faults.package) {
    ++faults.packageReads;
    if (faults.packageReads == faults.changeAfterRead && faults.change) {
      faults.changedAtRead = len;
      faults.change();
    }
  }
  return got;
}

uint32_t __wrap_SWM_Open(const char *path, int flags, int *fd, ...) {
  extractfaults::Faults &faults = extractfaults::Get();
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) {
    va_list args;
    va_start(args, fd);
    mode = static_cast<mode_t>(va_arg(args, unsigned int));
    va_end(args);
  }
  if (faults.tmpfileErrno != 0 && (flags & O_TMPFILE) == O_TMPFILE) {
    ++faults.tmpfileRefused;
    errno = faults.tmpfileErrno;
    return SWM_ERR_IO;
  }
  return __real_SWM_Open(path, flags, fd, mode);
}
}
