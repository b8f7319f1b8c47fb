// Unwrapping a ".bin" wrapper file: the wrapper is a 352-byte file header followed by the file
// it carries, and the file comes out under the name asked for. Nothing is proven here: the
// wrapper was proven when it was extracted from its package.
#include <endian.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "bootinit/common.h"
#include "bootinit/extract.h"
#include "bootinit/log.h"
#include "bootinit/package.h"
#include "common/support/messages.hpp"
#include "common/support/owned_files.hpp"
#include "common/support/unique_fd.hpp"
#include "extract/extract_support.hpp"
#include "swm.h"
#include "tkal.h"

namespace bootinit::extract {
namespace {

constexpr uint32_t kFailed = BOOT_INIT_ERR_GENERAL;
// The copy helper counts in signed 32 bits; longer bodies are copied in pieces of this size.
constexpr uint32_t kCopyPiece = 0x40000000U;

uint32_t CopyBody(int in, int out, uint32_t length) {
  for (uint32_t remaining = length; remaining > 0;) {
    const uint32_t piece = std::min(remaining, kCopyPiece);
    const uint32_t ret = BOOT_INIT_CopyFileWithLen(in, out, static_cast<int32_t>(piece));
    if (ret != BOOT_INIT_OK) {
      return ret;
    }
    remaining -= piece;
  }
  return BOOT_INIT_OK;
}

// The destination is made afresh, never through a link that appeared at its name.
uint32_t CreateDest(const char *path, UniqueFd &out) {
  if (path[0] != '\0' && (TKAL_IsFileExist(path) == 1 || TKAL_IsSymLink(path) == 1)) {
    (void)TKAL_DelFile(path);
  }
  int raw = -1;
  const uint32_t ret = SWM_Open(path, O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW, &raw, kFileMode);
  if (ret != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Creat file %s failed, ret=%u, errno=%d.", path, ret,
                       errno);
    return kFailed;
  }
  out.reset(raw);
  return BOOT_INIT_OK;
}

uint32_t TransBinFile(const char *binPath, const char *realName, const char *destDir) {
  if (MakeDestDir(destDir) != SWM_OK) {
    return kFailed;
  }
  int raw = -1;
  const uint32_t opened = SWM_Open(binPath, O_RDONLY, &raw);
  if (opened != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Open file failed(0x%x), file path = %s, errno=%d.",
                       opened, binPath, errno);
    return kFailed;
  }
  const UniqueFd in(raw);
  BOOT_PKG_FILE_HEADER_S header{};
  const ssize_t got = TKAL_FdRead(in.get(), &header, sizeof(header));
  if (got != static_cast<ssize_t>(sizeof(header))) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Read bin file head failed, FileLen = %d.",
                       static_cast<int>(got));
    return kFailed;
  }
  // A path that does not fit is only logged; it is left empty rather than cut (a cut path could
  // name another file), so the creation below fails.
  PathText dest = {};
  if (!JoinPath(dest, destDir, realName)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED,
                       "BOOT_INIT_TransBinFile2RealName");
  }
  UniqueFd out;
  if (CreateDest(dest.data(), out) != BOOT_INIT_OK) {
    return kFailed;
  }
  // A failed copy leaves the partial file: the caller decides what to do with it.
  const uint32_t ret = CopyBody(in.get(), out.get(), be32toh(header.actualLength));
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][WARNING]:Copy file result = 0x%x",
                       ret);
  }
  return ret;
}

}  // namespace
}  // namespace bootinit::extract

extern "C" uint32_t BOOT_INIT_TransBinFile2RealName(const char *binPath, const char *realName,
                                                    const char *destDir) {
  if (binPath == nullptr || realName == nullptr || destDir == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, bootinit::extract::kNullParam3);
    return BOOT_INIT_ERR_NULL_PTR;
  }
  if (TKAL_IsFileExist(binPath) != 1) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, bootinit::extract::kCheckFailed);
    return BOOT_INIT_ERR_FILE_NOT_EXIST;
  }
  return bootinit::extract::TransBinFile(binPath, realName, destDir);
}
