// Existence tests and deletion of single paths.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tkal.h"

namespace {

// stat(2) or lstat(2) of path; false for an empty pointer or when the call fails.
bool StatOf(const char *path, bool followLinks, struct stat &info) {
  if (path == nullptr) {
    return false;
  }
  return (followLinks ? stat(path, &info) : lstat(path, &info)) == 0;
}

}  // namespace

extern "C" int TKAL_IsFileExist(const char *path) {
  struct stat info {};
  return StatOf(path, true, info) ? 1 : 0;
}

extern "C" int TKAL_IsDirExist(const char *path) {
  struct stat info {};
  return (StatOf(path, true, info) && S_ISDIR(info.st_mode)) ? 1 : 0;
}

extern "C" int TKAL_IsSymLink(const char *path) {
  struct stat info {};
  return (StatOf(path, false, info) && S_ISLNK(info.st_mode)) ? 1 : 0;
}

extern "C" uint32_t TKAL_DelFile(const char *path) {
  if (path == nullptr) {
    errno = EINVAL;
    return 1;
  }
  // unlink(2) refuses directories, so a caller's typo cannot remove a whole tree.
  return unlink(path) == 0 ? 0U : 1U;
}
