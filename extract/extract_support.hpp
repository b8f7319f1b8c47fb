// What the extraction modules share: the fixed path buffer, the destination directory and the
// messages several of them write.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>

#include "bootinit/extract.h"
#include "bootinit/log.h"
#include "common/support/fixed_text.hpp"
#include "common/support/owned_files.hpp"
#include "swm.h"
#include "tkal.h"

namespace bootinit::extract {

using PathText = std::array<char, BOOT_EXTRACT_PATH_LEN>;

inline constexpr const char *kNullParam3 =
    "[BOOT_INIT][ERROR]:input param is null when check null 3";
inline constexpr const char *kCheckFailed = "[BOOT_INIT][ERROR]:res is FALSE when check res.";

// A missing destination directory is made with its parents (the result of MakeOwnedDir).
[[nodiscard]] inline uint32_t MakeDestDir(const char *dir) {
  const uint32_t ret = MakeOwnedDir(dir);
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
