// File path helpers: splitting at the last "/", and canonical forms of existing paths and of
// paths whose last component is still to be created.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "boundedstr.h"
#include "common/support/c_owners.hpp"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"
#include "tkal.h"

namespace bootinit::path {
namespace {

constexpr std::size_t kPathBufLen = 384;
constexpr uint32_t kDirBufLen = 256;
constexpr uint32_t kBaseBufLen = 128;

// Zeroes an output before it is filled; a failure is worth a warning, not a stop.
void ClearOutput(char *buf, uint32_t len, const char *function, int line) {
  if (memset_s(buf, len, 0, len) != EOK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_MEMSET_FAILED, function, line);
  }
}

bool FitsIn(const char *text, uint32_t bufLen) {
  const std::size_t length = std::strlen(text);
  return length > 0 && length < bufLen;
}

}  // namespace

uint32_t GetDirAndBaseName(const char *path, char *dirBuf, uint32_t dirBufLen, char *baseBuf,
                           uint32_t baseBufLen) {
  char work[kPathBufLen] = {};
  if (path[0] == '\0' || strcpy_s(work, sizeof(work), path) != EOK) {
    return BOOT_INIT_ERROR;
  }
  char *slash = std::strrchr(work, '/');
  if (slash == nullptr) {
    return BOOT_INIT_ERROR;
  }
  *slash = '\0';
  const char *base = slash + 1;
  // A file right under "/" has no directory part, a path ending in "/" no base name.
  if (!FitsIn(work, dirBufLen) || !FitsIn(base, baseBufLen)) {
    return BOOT_INIT_ERROR;
  }
  ClearOutput(dirBuf, dirBufLen, "BOOT_INIT_GetDirAndBaseName", __LINE__);
  ClearOutput(baseBuf, baseBufLen, "BOOT_INIT_GetDirAndBaseName", __LINE__);
  if (strcpy_s(dirBuf, dirBufLen, work) != EOK || strcpy_s(baseBuf, baseBufLen, base) != EOK) {
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t Trans2CanonicalFilepath(const char *path, char *outBuf, uint32_t outBufLen) {
  const MallocPtr<char> real(::realpath(path, nullptr));
  if (real == nullptr || outBufLen <= std::strlen(real.get())) {
    return BOOT_INIT_ERROR;
  }
  ClearOutput(outBuf, outBufLen, "BOOT_INIT_Trans2CanonicalFilepath", __LINE__);
  return strcpy_s(outBuf, outBufLen, real.get()) == EOK ? BOOT_INIT_OK : BOOT_INIT_ERROR;
}

// The directory must exist; the last component may not yet.
uint32_t CanonicalOfNewFile(const char *path, std::span<char> out) {
  char dir[kDirBufLen] = {};
  char base[kBaseBufLen] = {};
  char canonicalDir[kDirBufLen] = {};
  if (BOOT_INIT_GetDirAndBaseName(path, dir, sizeof(dir), base, sizeof(base)) != BOOT_INIT_OK ||
      BOOT_INIT_Trans2CanonicalFilepath(dir, canonicalDir, sizeof(canonicalDir)) != BOOT_INIT_OK) {
    return BOOT_INIT_ERROR;
  }
  if (!FormatInto(out, "%s/%s", canonicalDir, base)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED,
                       "BOOT_INIT_GetCanonicalFilepath");
  }
  return BOOT_INIT_OK;
}

uint32_t GetCanonicalFilepath(const char *path, char *outBuf, uint32_t outBufLen) {
  char canonical[kPathBufLen] = {};
  const uint32_t ret = TKAL_IsFileExist(path)
                           ? BOOT_INIT_Trans2CanonicalFilepath(path, canonical, sizeof(canonical))
                           : CanonicalOfNewFile(path, canonical);
  if (ret != BOOT_INIT_OK || outBufLen <= std::strlen(canonical)) {
    return BOOT_INIT_ERROR;
  }
  return snprintf_s(outBuf, outBufLen, outBufLen - 1u, "%s", canonical) < 0 ? BOOT_INIT_ERROR
                                                                            : BOOT_INIT_OK;
}

}  // namespace bootinit::path

using namespace bootinit::path;

extern "C" {

uint32_t BOOT_INIT_GetDirAndBaseName(const char *path, char *dirBuf, uint32_t dirBufLen,
                                     char *baseBuf, uint32_t baseBufLen) {
  if (path == nullptr || dirBuf == nullptr || baseBuf == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return GetDirAndBaseName(path, dirBuf, dirBufLen, baseBuf, baseBufLen);
}

uint32_t BOOT_INIT_Trans2CanonicalFilepath(const char *path, char *outBuf, uint32_t outBufLen) {
  if (path == nullptr || outBuf == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return Trans2CanonicalFilepath(path, outBuf, outBufLen);
}

uint32_t BOOT_INIT_GetCanonicalFilepath(const char *path, char *outBuf, uint32_t outBufLen) {
  if (path == nullptr || outBuf == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return GetCanonicalFilepath(path, outBuf, outBufLen);
}

}  // extern "C"
