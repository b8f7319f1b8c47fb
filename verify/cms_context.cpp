// The verification context: created with the library's parameter record, trusting a fresh
// copy of the built-in root certificate.
#include "verify/cms_context.hpp"

#include <cerrno>
#include <cstdlib>

#include "bootinit/log.h"
#include "bootinit/verify.h"
#include "boundedstr.h"
#include "verify/root_cert.hpp"

namespace bootinit::cms {
namespace {

// The certificate goes over in two bounded copies: a first block, then the rest.
constexpr std::size_t kFirstCopyLen = 1024;
constexpr std::size_t kRestCopyLen = BOOT_INIT_ROOT_CERT_LEN - kFirstCopyLen;

void LogCreateFailed(ContextUse use, uint32_t ret) {
  if (use == ContextUse::kSignature) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:[DIGITAL SIGNATURE]CmsvfyVerifyCreateCtx failed. "
                       "ret[%08x]",
                       ret);
  } else {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:CmsvfyVerifyCreateCtx failed. ret[%08x]", ret);
  }
}

// A failed copy is only logged; the library judges what the buffer then holds when it is added.
void CopyRootCertificate(uint8_t *out, const char *caller) {
  const auto cert = verify::RootCertificate();
  if (memcpy_s(out, BOOT_INIT_ROOT_CERT_LEN, cert.data(), kFirstCopyLen) != EOK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:memcpy unsuccessfully: %s",
                       caller);
  }
  if (memcpy_s(out + kFirstCopyLen, kRestCopyLen, cert.data() + kFirstCopyLen, kRestCopyLen) !=
      EOK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:memcpy unsuccessfully: %s",
                       caller);
  }
}

}  // namespace

uint32_t TrustContext::Open(ContextUse use, const char *caller) {
  CMSVFY_PARAM_S param = {};
  param.size = CMSVFY_PARAM_SIZE;
  CMSVFY_CTX_S *ctx = nullptr;
  uint32_t ret = CmsvfyVerifyCreateCtx(&ctx, &param);
  if (ret != CMSVFY_OK) {
    LogCreateFailed(use, ret);
    return ret;
  }
  ctx_.reset(ctx);
  rootCert_.reset(static_cast<uint8_t *>(std::malloc(BOOT_INIT_ROOT_CERT_LEN)));
  if (rootCert_ == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:[DIGITAL SIGNATURE]Initialize root certificate "
                       "failed, errno: %d.",
                       errno);
    ctx_.reset();
    return BOOT_INIT_ERR_ROOT_CERT_MEMORY;
  }
  CopyRootCertificate(rootCert_.get(), caller);
  ret = CmsvfyVerifyAddCert(ctx_.get(), rootCert_.get(), BOOT_INIT_ROOT_CERT_LEN);
  if (ret != CMSVFY_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:[DIGITAL SIGNATURE]CmsvfyVerifyAddCert failed. "
                       "ret[%08x]",
                       ret);
    return ret;
  }
  return BOOT_INIT_OK;
}

}  // namespace bootinit::cms
