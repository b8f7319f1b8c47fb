#include "cms_faults.hpp"

#include <algorithm>
#include <cstring>

#include "boundedstr.h"
#include "cmsvfy.h"

namespace cmsfaults {
namespace {
constexpr std::size_t kCrlBufferLen = 0x1FFFC;
}  // namespace

Faults &Get() {
  static Faults faults;
  return faults;
}
void Reset() { Get() = Faults{}; }
}  // namespace cmsfaults

extern "C" {
uint32_t __real_CmsvfyVerifyCreateCtx(CMSVFY_CTX_S **ctx, const CMSVFY_PARAM_S *param);
uint32_t __real_CmsvfyVrfCtxFree(CMSVFY_CTX_S *ctx);
uint32_t __real_CmsvfyVerifyAddCert(CMSVFY_CTX_S *ctx, const uint8_t *der, uint32_t len);
uint32_t __real_CmsvfyVerifyAddCrl(CMSVFY_CTX_S *ctx, const uint8_t *crl, uint32_t len);
uint32_t __real_CmsvfyDecodeCrlFile(CMSVFY_CTX_S *ctx, const char *path, CMSVFY_CRL_S **crl);
uint32_t __real_CmsvfyDecodeCrl(CMSVFY_CTX_S *ctx, const uint8_t *bytes, uint32_t len,
                                CMSVFY_CRL_S **crl);
uint32_t __real_CmsvfyCrlFree(CMSVFY_CTX_S *ctx, CMSVFY_CRL_S *crl);
uint32_t __real_CmsvfyCrlCompare(CMSVFY_CTX_S *ctx, const CMSVFY_CRL_S *crlA,
                                 const CMSVFY_CRL_S *crlB, uint32_t *result);
uint32_t __real_CmsvfyVerifyDetachSignatureQuick(CMSVFY_CTX_S *ctx, const char *sourcePath,
                                                 const char *signaturePath, int32_t *result);
errno_t __real_memset_s(void *dest, size_t destMax, int c, size_t count);
errno_t __real_memcpy_s(void *dest, size_t destMax, const void *src, size_t count);

uint32_t __wrap_CmsvfyVerifyCreateCtx(CMSVFY_CTX_S **ctx, const CMSVFY_PARAM_S *param) {
  cmsfaults::Faults &faults = cmsfaults::Get();
  if (faults.createCtxResult != 0) {
    return faults.createCtxResult;
  }
  const uint32_t ret = __real_CmsvfyVerifyCreateCtx(ctx, param);
  if (ret == CMSVFY_OK) {
    ++faults.contextsLive;
    ++faults.contextsMade;
  }
  return ret;
}

uint32_t __wrap_CmsvfyVrfCtxFree(CMSVFY_CTX_S *ctx) {
  if (ctx != nullptr) {
    --cmsfaults::Get().contextsLive;
  }
  return __real_CmsvfyVrfCtxFree(ctx);
}

uint32_t __wrap_CmsvfyVerifyAddCert(CMSVFY_CTX_S *ctx, const uint8_t *der, uint32_t len) {
  cmsfaults::Get().addedCerts.emplace_back(reinterpret_cast<const char *>(der), len);
  return __real_CmsvfyVerifyAddCert(ctx, der, len);
}

uint32_t __wrap_CmsvfyVerifyAddCrl(CMSVFY_CTX_S *ctx, const uint8_t *crl, uint32_t len) {
  cmsfaults::Get().addedCrlLengths.push_back(len);
  return __real_CmsvfyVerifyAddCrl(ctx, crl, len);
}

uint32_t __wrap_CmsvfyDecodeCrlFile(CMSVFY_CTX_S *ctx, const char *path, CMSVFY_CRL_S **crl) {
  const uint32_t ret = __real_CmsvfyDecodeCrlFile(ctx, path, crl);
  if (ret == CMSVFY_OK) {
    ++cmsfaults::Get().crlsLive;
    ++cmsfaults::Get().crlsDecoded;
  }
  return ret;
}

uint32_t __wrap_CmsvfyDecodeCrl(CMSVFY_CTX_S *ctx, const uint8_t *bytes, uint32_t len,
                                CMSVFY_CRL_S **crl) {
  const uint32_t ret = __real_CmsvfyDecodeCrl(ctx, bytes, len, crl);
  if (ret == CMSVFY_OK) {
    ++cmsfaults::Get().crlsLive;
    ++cmsfaults::Get().crlsDecoded;
  }
  return ret;
}

uint32_t __wrap_CmsvfyCrlFree(CMSVFY_CTX_S *ctx, CMSVFY_CRL_S *crl) {
  if (crl != nullptr) {
    --cmsfaults::Get().crlsLive;
  }
  return __real_CmsvfyCrlFree(ctx, crl);
}

uint32_t __wrap_CmsvfyCrlCompare(CMSVFY_CTX_S *ctx, const CMSVFY_CRL_S *crlA,
                                 const CMSVFY_CRL_S *crlB, uint32_t *result) {
  const uint32_t forced = cmsfaults::Get().compareResult;
  return forced != 0 ? forced : __real_CmsvfyCrlCompare(ctx, crlA, crlB, result);
}

uint32_t __wrap_CmsvfyVerifyDetachSignatureQuick(CMSVFY_CTX_S *ctx, const char *sourcePath,
                                                 const char *signaturePath, int32_t *result) {
  ++cmsfaults::Get().signatureChecks;
  if (cmsfaults::Get().signatureRejected) {
    *result = 0;
    return CMSVFY_OK;
  }
  return __real_CmsvfyVerifyDetachSignatureQuick(ctx, sourcePath, signaturePath, result);
}

errno_t __wrap_memset_s(void *dest, size_t destMax, int c, size_t count) {
  if (cmsfaults::Get().failCrlBufferZeroing && destMax == cmsfaults::kCrlBufferLen) {
    return BOUNDED_ERANGE;
  }
  return __real_memset_s(dest, destMax, c, count);
}

// A failing bounded copy clears its destination, as the real function does when it refuses.
errno_t __wrap_memcpy_s(void *dest, size_t destMax, const void *src, size_t count) {
  cmsfaults::Faults &faults = cmsfaults::Get();
  faults.copyCounts.push_back(count);
  if (std::find(faults.failCopiesOfCount.begin(), faults.failCopiesOfCount.end(), count) !=
      faults.failCopiesOfCount.end()) {
    std::memset(dest, 0, destMax);
    return BOUNDED_ERANGE_AND_RESET;
  }
  return __real_memcpy_s(dest, destMax, src, count);
}
}
