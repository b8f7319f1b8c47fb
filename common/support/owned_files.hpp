// Directories and files that the library writes for the boot scripts' later steps: they belong
// to the software-management account, directories 0750 and files 0700.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "swm.h"
#include "tkal.h"

namespace bootinit {

inline constexpr const char *kOwner = "swm";
inline constexpr uid_t kDefaultOwnerId = 2000;  // when the account is unknown
inline constexpr mode_t kDirMode = 0750;
inline constexpr mode_t kFileMode = 0700;

// A missing directory is made with its parents; an existing one is left as it is. The result is
// that of SWM_MkParentDir (SWM_OK when the directory was there); callers log their own line.
[[nodiscard]] inline uint32_t MakeOwnedDir(const char *dir) {
  if (TKAL_IsDirExist(dir) == 1) {
    return SWM_OK;
  }
  return SWM_MkParentDir(dir, TKAL_GetUidByName(kOwner, kDefaultOwnerId),
                         TKAL_GetGidByName(kOwner, kDefaultOwnerId), kDirMode);
}

// Whatever lies at the path goes first, a symbolic link as the link itself (so nothing is ever
// written through a link); never a directory.
inline void RemoveIfPresent(const char *path) {
  if (TKAL_IsFileExist(path) == 1 || TKAL_IsSymLink(path) == 1) {
    (void)TKAL_DelFile(path);
  }
}

}  // namespace bootinit
