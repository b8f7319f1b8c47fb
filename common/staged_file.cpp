// Staged files: O_TMPFILE through the platform's open, else mkostemp with a hidden name.
#include "common/support/staged_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>

#include "common/support/fixed_text.hpp"
#include "swm.h"

namespace bootinit {
namespace {

// Hidden and unique, in the destination directory so that it can be renamed into place.
constexpr const char *kHiddenNamePattern = "%s/.bootinit-XXXXXX";

int OpenHidden(const char *dir, mode_t mode, std::span<char> hiddenPath) {
  if (!FormatInto(hiddenPath, kHiddenNamePattern, dir)) {
    hiddenPath[0] = '\0';
    errno = ENAMETOOLONG;
    return -1;
  }
  const int fd = ::mkostemp(hiddenPath.data(), O_CLOEXEC);
  if (fd < 0) {
    hiddenPath[0] = '\0';
    return -1;
  }
  (void)::fchmod(fd, mode);  // mkostemp makes 0600
  return fd;
}

}  // namespace

int OpenStagedFile(const char *dir, mode_t mode, std::span<char> hiddenPath) {
  hiddenPath[0] = '\0';
  int fd = -1;
  if (SWM_Open(dir, O_TMPFILE | O_RDWR, &fd, mode) == SWM_OK) {
    return fd;
  }
  if (errno == EOPNOTSUPP || errno == EISDIR) {  // a file system (or kernel) without them
    return OpenHidden(dir, mode, hiddenPath);
  }
  return -1;
}

bool PutStagedFile(int fd, std::span<char> hiddenPath, const char *destPath) {
  if (hiddenPath[0] != '\0') {
    if (::rename(hiddenPath.data(), destPath) != 0) {
      return false;
    }
    hiddenPath[0] = '\0';
    return true;
  }
  std::array<char, 64> procPath = {};
  if (!FormatInto(procPath, "/proc/self/fd/%d", fd)) {
    return false;
  }
  return ::linkat(AT_FDCWD, procPath.data(), AT_FDCWD, destPath, AT_SYMLINK_FOLLOW) == 0;
}

}  // namespace bootinit
