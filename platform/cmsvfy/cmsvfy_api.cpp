// The C interface of libcmsvfy over the checks of cmsvfy_core.
#include <cstddef>
#include <new>

#include "cmsvfy.h"
#include "cmsvfy_core.hpp"

static_assert(sizeof(CMSVFY_PARAM_S) == CMSVFY_PARAM_SIZE);
static_assert(offsetof(CMSVFY_PARAM_S, reserved) == 8);

namespace {

bool IsValidParam(const CMSVFY_PARAM_S *param) {
  if (param == nullptr || param->size != CMSVFY_PARAM_SIZE) {
    return false;
  }
  for (const uint64_t reserved : param->reserved) {
    if (reserved != 0) {
      return false;
    }
  }
  return true;
}

// Runs body inside an error-queue scope; running out of memory in the C++ parts is a result,
// never an exception crossing the interface.
template <typename Body>
uint32_t Guarded(Body body) noexcept {
  const cmsvfy::ErrorScope errors;
  try {
    return body();
  } catch (const std::bad_alloc &) {
    return CMSVFY_ERR_NOMEM;
  }
}

uint32_t AddCrlBytes(CmsvfyCtx &ctx, std::span<const uint8_t> bytes) {
  cmsvfy::UniqueCrl crl = cmsvfy::DecodeCrl(bytes);
  if (crl == nullptr) {
    return CMSVFY_ERR_CRL;
  }
  ctx.crls.reserve(ctx.crls.size() + 1);  // may throw; the CRL is released then
  ctx.crls.push_back(std::move(crl));
  return CMSVFY_OK;
}

uint32_t DecodeTrustedCrl(const CmsvfyCtx &ctx, std::span<const uint8_t> bytes,
                          CMSVFY_CRL_S **crl) {
  cmsvfy::UniqueCrl decoded = cmsvfy::DecodeCrl(bytes);
  if (decoded == nullptr) {
    return CMSVFY_ERR_CRL;
  }
  if (!cmsvfy::IsTrusted(ctx, decoded.get())) {
    return CMSVFY_ERR_CRL_TRUST;
  }
  auto *made = new (std::nothrow) CmsvfyCrl{std::move(decoded)};
  if (made == nullptr) {
    return CMSVFY_ERR_NOMEM;
  }
  *crl = made;
  return CMSVFY_OK;
}

}  // namespace

extern "C" uint32_t CmsvfyVerifyCreateCtx(CMSVFY_CTX_S **ctx, const CMSVFY_PARAM_S *param) {
  if (ctx == nullptr || !IsValidParam(param)) {
    return CMSVFY_ERR_PARAM;
  }
  return Guarded([&] {
    std::unique_ptr<CmsvfyCtx> made;
    const uint32_t status = cmsvfy::NewContext(&made);
    if (status == CMSVFY_OK) {
      *ctx = made.release();
    }
    return status;
  });
}

extern "C" uint32_t CmsvfyVerifyAddCert(CMSVFY_CTX_S *ctx, const uint8_t *der, uint32_t len) {
  if (ctx == nullptr || der == nullptr || len == 0) {
    return CMSVFY_ERR_PARAM;
  }
  return Guarded([&] { return cmsvfy::AddCertificate(*ctx, {der, len}); });
}

extern "C" uint32_t CmsvfyVerifyAddCrlFile(CMSVFY_CTX_S *ctx, const char *path) {
  if (ctx == nullptr || path == nullptr) {
    return CMSVFY_ERR_PARAM;
  }
  return Guarded([&] {
    std::vector<uint8_t> bytes;
    const uint32_t status = cmsvfy::ReadFile(path, CMSVFY_ERR_CRL, &bytes);
    return status == CMSVFY_OK ? AddCrlBytes(*ctx, bytes) : status;
  });
}

extern "C" uint32_t CmsvfyVerifyAddCrl(CMSVFY_CTX_S *ctx, const uint8_t *crl, uint32_t len) {
  if (ctx == nullptr || crl == nullptr || len == 0) {
    return CMSVFY_ERR_PARAM;
  }
  return Guarded([&] { return AddCrlBytes(*ctx, {crl, len}); });
}

extern "C" uint32_t CmsvfyVerifyDetachSignatureQuick(CMSVFY_CTX_S *ctx, const char *sourcePath,
                                                     const char *signaturePath, int32_t *result) {
  if (ctx == nullptr || sourcePath == nullptr || signaturePath == nullptr || result == nullptr) {
    return CMSVFY_ERR_PARAM;
  }
  return Guarded([&] {
    const cmsvfy::Verdict verdict = cmsvfy::VerifyDetached(*ctx, sourcePath, signaturePath, {});
    if (verdict.status == CMSVFY_OK) {
      *result = verdict.rejection == cmsvfy::Rejection::kNone ? 1 : 0;
    }
    return verdict.status;
  });
}

extern "C" uint32_t CmsvfyDecodeCrlFile(CMSVFY_CTX_S *ctx, const char *path, CMSVFY_CRL_S **crl) {
  if (ctx == nullptr || path == nullptr || crl == nullptr) {
    return CMSVFY_ERR_PARAM;
  }
  return Guarded([&] {
    std::vector<uint8_t> bytes;
    const uint32_t status = cmsvfy::ReadFile(path, CMSVFY_ERR_CRL, &bytes);
    return status == CMSVFY_OK ? DecodeTrustedCrl(*ctx, bytes, crl) : status;
  });
}

extern "C" uint32_t CmsvfyDecodeCrl(CMSVFY_CTX_S *ctx, const uint8_t *bytes, uint32_t len,
                                    CMSVFY_CRL_S **crl) {
  if (ctx == nullptr || bytes == nullptr || len == 0 || crl == nullptr) {
    return CMSVFY_ERR_PARAM;
  }
  return Guarded([&] { return DecodeTrustedCrl(*ctx, {bytes, len}, crl); });
}

extern "C" uint32_t CmsvfyCrlCompare(CMSVFY_CTX_S *ctx, const CMSVFY_CRL_S *crlA,
                                     const CMSVFY_CRL_S *crlB, uint32_t *result) {
  if (ctx == nullptr || crlA == nullptr || crlB == nullptr || result == nullptr) {
    return CMSVFY_ERR_PARAM;
  }
  return Guarded([&] {
    bool newer = false;
    const uint32_t status = cmsvfy::IsNewer(crlA->crl.get(), crlB->crl.get(), &newer);
    if (status == CMSVFY_OK) {
      *result = newer ? 1 : 0;
    }
    return status;
  });
}

// The context is not needed to release a CRL: a CRL is released whatever ctx is, so that no
// caller mistake leaks it.
extern "C" uint32_t CmsvfyCrlFree(CMSVFY_CTX_S * /*ctx*/, CMSVFY_CRL_S *crl) {
  delete crl;
  return CMSVFY_OK;
}

extern "C" uint32_t CmsvfyVrfCtxFree(CMSVFY_CTX_S *ctx) {
  delete ctx;
  return CMSVFY_OK;
}
