// Steps shared by the list-based checks of operation 3 (sub-operations 2 and 3): the list that
// owns its records, joining a directory and a file name into the fixed path buffer, and the
// digest text of a file that must exist.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "bootinit/base.h"
#include "bootinit/common.h"
#include "bootinit/log.h"
#include "bootinit/verify.h"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"
#include "tkal.h"

namespace bootinit::listcheck {

inline constexpr std::size_t kPathLen = 384;
using PathText = std::array<char, kPathLen>;
using DigestText = std::array<char, BOOT_INIT_SHA256_TEXT_LEN>;

inline constexpr const char *kFileMissing = "[BOOT_INIT][ERROR]:res is FALSE when check res.";

// An empty list whose records (each one heap block) are released on every way out.
class OwnedList {
 public:
  OwnedList() { head_.links.next = head_.links.prev = &head_.links; }
  OwnedList(const OwnedList &) = delete;
  OwnedList &operator=(const OwnedList &) = delete;
  ~OwnedList() { BOOT_InitDllFreeAll(&head_, BOOT_INIT_ReleaseNode); }
  BOOT_INIT_DLL_HEAD_S *get() { return &head_; }

 private:
  BOOT_INIT_DLL_HEAD_S head_ = {};
};

// "dir/name". A path that does not fit is logged and emptied rather than cut: a cut path could
// name another file, which would then be checked in place of the one asked for. The empty path
// fails the existence check that follows.
inline void JoinPath(PathText &out, const char *dir, const char *name, const char *caller) {
  if (!FormatInto(out, "%s/%s", dir, name)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED, caller);
    out[0] = '\0';
  }
}

// The lowercase digest text of the file at path, which must exist.
inline uint32_t FileDigestText(const char *path, DigestText &text) {
  if (TKAL_IsFileExist(path) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, kFileMissing);
    return BOOT_INIT_ERR_FILE_NOT_EXIST;
  }
  std::array<uint8_t, BOOT_INIT_SHA256_LEN> digest = {};
  const uint32_t ret = BOOT_INIT_Sha256Get(path, digest.data(), BOOT_INIT_SHA256_LEN);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get file hash value failed, result is %u", ret);
    return ret;
  }
  BOOT_INIT_TransHashValueToString(digest.data(), BOOT_INIT_SHA256_LEN, text.data(),
                                   static_cast<uint32_t>(text.size()));
  return BOOT_INIT_OK;
}

}  // namespace bootinit::listcheck
