// Keeping the board's CRL current: the main board's CRL is fetched, compared with the one in
// flash and, when it is newer, stored in flash and handed to the kernel.
#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "bootinit/board.h"
#include "bootinit/download.h"
#include "bootinit/log.h"
#include "bootinit/verify.h"
#include "boundedstr.h"
#include "cmsvfy.h"
#include "common/support/c_owners.hpp"
#include "common/support/messages.hpp"
#include "tkal.h"
#include "verify/cms_context.hpp"

namespace bootinit::cms {
namespace {

constexpr const char *kRemoteCrl = "/opt/velmor/bootfile/crl_upgrade";
constexpr const char *kLocalCrl = "/var/lib/crl_upgrade";
constexpr const char *kKernelCrl = "/dev/module_crl";
constexpr uint32_t kReplyFileUnavailable = 550;
constexpr uint32_t kNewer = 1;

void LogDecodeFailed(uint32_t ret) {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][ERROR]:CmsvfyDecodeCrlFile failed. ret[%08x]", ret);
}

uint32_t CrlCompare(const char *crlFile, const uint8_t *flashCrl, uint32_t flashCrlLen,
                    uint32_t &needRefresh) {
  TrustContext trust;
  if (trust.Open(ContextUse::kCrl, "BOOT_INIT_CrlCompare") != BOOT_INIT_OK) {
    return BOOT_INIT_ERROR;
  }
  DecodedCrl fileCrl(trust.get());
  uint32_t ret = CmsvfyDecodeCrlFile(trust.get(), crlFile, fileCrl.out());
  if (ret != CMSVFY_OK) {
    LogDecodeFailed(ret);
    return BOOT_INIT_ERROR;
  }
  DecodedCrl storedCrl(trust.get());
  ret = CmsvfyDecodeCrl(trust.get(), flashCrl, flashCrlLen, storedCrl.out());
  if (ret != CMSVFY_OK) {
    LogDecodeFailed(ret);
    return BOOT_INIT_ERROR;
  }
  uint32_t result = 0;
  ret = CmsvfyCrlCompare(trust.get(), fileCrl.get(), storedCrl.get(), &result);
  if (ret != CMSVFY_OK) {
    LogDecodeFailed(ret);
    return BOOT_INIT_ERROR;
  }
  needRefresh = result == kNewer ? 1 : 0;
  return BOOT_INIT_OK;
}

// A flash that holds no CRL (unreadable or empty) is always refreshed; a failed comparison
// never replaces what is there.
uint32_t IsLocalCrlNeedRefresh(const char *crlFile) {
  if (TKAL_IsFileExist(crlFile) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:CRL UPGRADE: file %s not exists, ignore it", crlFile);
    return 0;
  }
  const MallocPtr<uint8_t> flashCrl(static_cast<uint8_t *>(std::malloc(kCrlBufferLen)));
  if (flashCrl == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:malloc crl buffer failed, errno %d", errno);
    return 0;
  }
  if (memset_s(flashCrl.get(), kCrlBufferLen, 0, kCrlBufferLen) != EOK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_MEMSET_FAILED,
                       "BOOT_INIT_IsLocalCrlNeedRefresh", __LINE__);
  }
  uint32_t len = 0;
  if (BOOT_INIT_ReadFlashCrl(flashCrl.get(), &len) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:read crl from flash failed");
    return 1;
  }
  if (len == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:upgrade crl is empty.");
    return 1;
  }
  uint32_t needRefresh = 0;
  if (CrlCompare(crlFile, flashCrl.get(), len, needRefresh) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:compare crl failed");
    return 0;
  }
  return needRefresh;
}

// Stores the fetched CRL in flash, then hands it to the kernel. Only the flash counts: the
// kernel's copy is refreshed again at the next start.
uint32_t InstallCrl() {
  if (BOOT_INIT_WriteFlashCrlFile(kLocalCrl) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:write crl to flash failed");
    return BOOT_INIT_ERROR;
  }
  if (BOOT_INIT_WriteKernelCrlFile(kLocalCrl, kKernelCrl) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][WARNING]:write crl to kernel failed");
  }
  return BOOT_INIT_OK;
}

uint32_t CrlSync() {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:crl sync start");
  const uint32_t ret = BOOT_InitOperDownloadFileOper(kRemoteCrl, kLocalCrl);
  if (ret == kReplyFileUnavailable) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][WARNING]:no crl in mpu, ignore it");
    return BOOT_INIT_OK;
  }
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:get crl from mpu unsuccessfully");
    return BOOT_INIT_ERROR;
  }
  if (IsLocalCrlNeedRefresh(kLocalCrl) != 0) {
    if (InstallCrl() != BOOT_INIT_OK) {
      (void)TKAL_DelFile(kLocalCrl);
      return BOOT_INIT_ERROR;
    }
  } else {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:local crl no need refresh");
  }
  (void)TKAL_DelFile(kLocalCrl);
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:crl sync end");
  return BOOT_INIT_OK;
}

}  // namespace
}  // namespace bootinit::cms

using namespace bootinit::cms;

extern "C" {

uint32_t BOOT_INIT_CrlCompare(const char *crlFile, const uint8_t *flashCrl, uint32_t flashCrlLen,
                              uint32_t *needRefresh) {
  if (crlFile == nullptr || flashCrl == nullptr || needRefresh == nullptr) {
    return BOOT_INIT_ERROR;
  }
  return CrlCompare(crlFile, flashCrl, flashCrlLen, *needRefresh);
}

uint32_t BOOT_INIT_IsLocalCrlNeedRefresh(const char *crlFile) {
  return crlFile == nullptr ? 0 : IsLocalCrlNeedRefresh(crlFile);
}

uint32_t BOOT_INIT_CrlSync(void) { return CrlSync(); }

uint32_t BOOT_INIT_OperCrlSync(int32_t /*argc*/, char ** /*argv*/) { return CrlSync(); }

}  // extern "C"
