// Descriptor and stream opening and owner changes with status results.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "swm.h"

namespace {

// Room for any fopen(3) mode ("rb+" plus the "e" added here); longer strings are not modes.
constexpr size_t kModeBufferSize = 16;

// open(2) reads a mode only when it may create a file; so must we, or va_arg would read junk.
bool TakesMode(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

// Appends "e" (close-on-exec) to an fopen(3) mode so no stream leaks into started programs.
bool CloseOnExecMode(const char *mode, char (&out)[kModeBufferSize]) {
  const size_t len = strnlen(mode, kModeBufferSize);
  if (len == 0 || len + 2 > kModeBufferSize || std::strchr("rwa", mode[0]) == nullptr) {
    return false;
  }
  std::memcpy(out, mode, len);
  out[len] = 'e';
  out[len + 1] = '\0';
  return true;
}

}  // namespace

extern "C" uint32_t SWM_Open(const char *path, int flags, int *fd, ...) {
  if (path == nullptr || fd == nullptr) {
    return SWM_ERR_PARAM;
  }
  mode_t mode = 0;
  if (TakesMode(flags)) {
    va_list args;
    va_start(args, fd);
    mode = static_cast<mode_t>(va_arg(args, unsigned int));
    va_end(args);
  }
  int opened = -1;
  do {
    opened = open(path, flags | O_CLOEXEC, mode);
  } while (opened < 0 && errno == EINTR);
  if (opened < 0) {
    return SWM_ERR_IO;
  }
  *fd = opened;
  return SWM_OK;
}

extern "C" uint32_t SWM_Fopen(const char *path, const char *mode, FILE **stream) {
  char fullMode[kModeBufferSize] = {};
  if (path == nullptr || stream == nullptr || mode == nullptr || !CloseOnExecMode(mode, fullMode)) {
    return SWM_ERR_PARAM;
  }
  FILE *opened = nullptr;
  do {
    opened = std::fopen(path, fullMode);
  } while (opened == nullptr && errno == EINTR);
  if (opened == nullptr) {
    return SWM_ERR_IO;
  }
  *stream = opened;
  return SWM_OK;
}

extern "C" uint32_t SWM_Chown(int followLinks, const char *path, uid_t uid, gid_t gid) {
  // Only 0 and 1 are meaningful; anything else is more likely a swapped argument than a wish.
  if (path == nullptr || (followLinks != 0 && followLinks != 1)) {
    return SWM_ERR_PARAM;
  }
  const int rc = followLinks == 1 ? chown(path, uid, gid) : lchown(path, uid, gid);
  return rc == 0 ? SWM_OK : SWM_ERR_IO;
}
