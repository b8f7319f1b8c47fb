// The board's certificate revocation list in the driver's flash: two areas, one for a CRL
// signed with the PSS scheme and one for the classic scheme, and the copy of a CRL file into
// the flash area of its scheme or over the kernel's CRL file.
#include <fcntl.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "bootinit/board.h"
#include "bootinit/log.h"
#include "common/support/c_owners.hpp"
#include "common/support/unique_fd.hpp"
#include "drv.h"
#include "swm.h"
#include "tkal.h"

namespace bootinit::crl {
namespace {

constexpr uint32_t kCrlMaxLen = BOOT_INIT_CRL_MAX_LEN;
// The destination of a copy is opened write-only: it is neither created nor truncated, so a
// CRL shorter than the old content leaves the old tail in place.
constexpr int kDstOpenFlags = O_WRONLY;

// Which copy a CRL file is loaded for: the two name their read failure differently.
enum class Target { kFlash, kKernel };

// The whole content of one CRL file.
struct CrlFile {
  MallocPtr<uint8_t> bytes;
  uint32_t size = 0;
};

// The size of the CRL file: 1..kCrlMaxLen bytes, else false (logged).
bool CrlFileSize(const char *path, uint32_t &size) {
  int64_t fileSize = 0;
  if (SWM_GetFileSize(path, &fileSize) != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:get file size failed");
    return false;
  }
  if (fileSize <= 0 || fileSize > kCrlMaxLen) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:crl file size too long, size:%u",
                       static_cast<uint32_t>(fileSize));
    return false;
  }
  size = static_cast<uint32_t>(fileSize);
  return true;
}

void LogReadFailed(Target target, const char *path, int error) {
  if (target == Target::kFlash) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:read crl file failed, file %s, errno:%d", path, error);
  } else {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:read crl src file failed, file %s, errno:%d", path,
                       error);
  }
}

// Reads the whole CRL file into a buffer of exactly its size; the file is closed again before
// this returns. False (logged) on any failure.
bool LoadCrlFile(const char *path, Target target, CrlFile &crl) {
  uint32_t size = 0;
  if (!CrlFileSize(path, size)) {
    return false;
  }
  int rawFd = -1;
  if (SWM_Open(path, O_RDONLY, &rawFd) != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:open crl file failed, file %s",
                       path);
    return false;
  }
  const UniqueFd fd(rawFd);
  MallocPtr<uint8_t> bytes(static_cast<uint8_t *>(std::malloc(size)));
  if (bytes == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:malloc crl buffer failed, errno %d", errno);
    return false;
  }
  // A short read that is no error leaves errno alone; clearing it keeps the message truthful.
  errno = 0;
  if (TKAL_FdRead(fd.get(), bytes.get(), size) != static_cast<ssize_t>(size)) {
    LogReadFailed(target, path, errno);
    return false;
  }
  crl.bytes = std::move(bytes);
  crl.size = size;
  return true;
}

// Stores buf in the flash area of the scheme the CRL file at path is signed with.
uint32_t WriteCrl(const char *path, const uint8_t *buf, uint32_t len) {
  uint32_t scheme = SWM_CRL_ALG_CLASSIC;
  if (SWM_GetCrlSignatureAlgs(path, &scheme, nullptr) != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:get crl alg failed");
    return BOOT_INIT_ERROR;
  }
  const uint32_t ret =
      scheme == SWM_CRL_ALG_PSS ? drv_pss_crl_write(buf, len) : drv_crl_write(buf, len);
  if (ret != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:crl flash write failed, ret=%u",
                       ret);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

}  // namespace

uint32_t ReadFlashCrl(uint8_t *buf, uint32_t *len) {
  uint32_t ret = drv_pss_crl_read(buf, kCrlMaxLen, len);
  if (ret == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Read pss crl from drv, ret=%u",
                       ret);
    return BOOT_INIT_OK;
  }
  ret = drv_crl_read(buf, kCrlMaxLen, len);
  if (ret != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:crl flash read failed, ret %u", ret);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

// The messages come before the return, and the caller reports errno once more: it is kept as
// the failing call left it.
uint32_t WriteBufToFile(const uint8_t *buf, uint32_t len, const char *dstPath) {
  int rawFd = -1;
  if (SWM_Open(dstPath, kDstOpenFlags, &rawFd) != SWM_OK) {
    const int error = errno;
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:open crl dst file failed, file %s, errno:%d", dstPath,
                       error);
    errno = error;
    return BOOT_INIT_ERROR;
  }
  UniqueFd fd(rawFd);
  if (SWM_Write(fd.get(), buf, len) < 0) {
    const int error = errno;
    fd.reset();
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:write crl to dst failed, file %s, errno:%d", dstPath,
                       error);
    errno = error;
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t WriteFlashCrlFile(const char *path) {
  CrlFile crl;
  if (!LoadCrlFile(path, Target::kFlash, crl)) {
    return BOOT_INIT_ERROR;
  }
  if (WriteCrl(path, crl.bytes.get(), crl.size) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:write crl to flash failed");
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t WriteKernelCrlFile(const char *srcPath, const char *dstPath) {
  CrlFile crl;
  if (!LoadCrlFile(srcPath, Target::kKernel, crl)) {
    return BOOT_INIT_ERROR;
  }
  if (WriteBufToFile(crl.bytes.get(), crl.size, dstPath) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Write crl to kernel file %s, errno:%d", srcPath, errno);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

}  // namespace bootinit::crl

using namespace bootinit::crl;

extern "C" {

uint32_t BOOT_INIT_ReadFlashCrl(uint8_t *buf, uint32_t *len) {
  return buf == nullptr || len == nullptr ? BOOT_INIT_ERROR : ReadFlashCrl(buf, len);
}

uint32_t BOOT_INIT_WriteFlashCrlFile(const char *path) {
  return path == nullptr ? BOOT_INIT_ERROR : WriteFlashCrlFile(path);
}

uint32_t BOOT_INIT_WriteBuf2File(const uint8_t *buf, uint32_t len, const char *dstPath) {
  return buf == nullptr || dstPath == nullptr ? BOOT_INIT_ERROR : WriteBufToFile(buf, len, dstPath);
}

uint32_t BOOT_INIT_WriteKernelCrlFile(const char *srcPath, const char *dstPath) {
  return srcPath == nullptr || dstPath == nullptr ? BOOT_INIT_ERROR
                                                  : WriteKernelCrlFile(srcPath, dstPath);
}

}  // extern "C"
