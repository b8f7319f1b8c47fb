// What the extraction modules share: the fixed path buffer, the destination directory made for
// the software-management account, and the messages several of them write.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>

#include "bootinit/extract.h"
#include "bootinit/log.h"
#include "common/support/fixed_text.hpp"
#include "swm.h"
#include "tkal.h"

namespace bootinit::extract {

using PathText = std::array<char, BOOT_EXTRACT_PATH_LEN>;

inline constexpr const char *kNullParam3 =
    "[BOOT_INIT][ERROR]:input param is null when check null 3";
inline constexpr const char *kCheckFailed = "[BOOT_INIT][ERROR]:res is FALSE when check res.";

// Files written here belong to the account that runs the boot scripts' later steps.
inline constexpr const char *kOwner = "swm";
inline constexpr uid_t kDefaultOwnerId = 2000;
inline constexpr mode_t kDirMode = 0750;
inline constexpr mode_t kFileMode = 0700;

// A missing destination directory is made with its parents; an existing one is left as it is.
// The result is that of SWM_MkParentDir (0 when the directory was there).
[[nodiscard]] inline uint32_t MakeDestDir(const char *dir) {
  if (TKAL_IsDirExist(dir) == 1) {
    return SWM_OK;
  }
  const uint32_t ret = SWM_MkParentDir(dir, TKAL_GetUidByName(kOwner, kDefaultOwnerId),
                                       TKAL_GetGidByName(kOwner, kDefaultOwnerId), kDirMode);
  if (ret != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Create dir %s failed(%#x).",
                       dir, ret);
  }
  return ret;
}

// "dir/name" in the fixed buffer; false (and an emptied buffer) when it does not fit: a cut
// path could name another file.
[[nodiscard]] inline bool JoinPath(PathText &out, const char *dir, const char *name) {
  if (FormatInto(out, "%s/%s", dir, name)) {
    return true;
  }
  out[0] = '\0';
  return false;
}

}  // namespace bootinit::extract
