// CMS signatures and CRLs on the board's trust anchor, over the checks libcmsvfy is built from
// (cmsvfy_core), which also tell why a signature was rejected.
#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "board_description.hpp"
#include "cmsvfy_core.hpp"
#include "forced.h"
#include "swm.h"

namespace {

// The CRL the board has handed to its kernel for module signatures.
constexpr const char *kModuleCrl = "/dev/module_crl";
// Where the board description names the trust anchor: [security] root_ca = a DER file.
constexpr const char *kSecuritySection = "security";
constexpr const char *kRootCaKey = "root_ca";

// Runs body inside an error-queue scope; running out of memory is a result, not an exception.
template <typename Body>
uint32_t Guarded(Body body) noexcept {
  const cmsvfy::ErrorScope errors;
  try {
    return body();
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return SWM_ERR_NOMEM;
  }
}

uint32_t FromRejection(cmsvfy::Rejection rejection) {
  switch (rejection) {
    case cmsvfy::Rejection::kNone:
      return SWM_OK;
    case cmsvfy::Rejection::kMismatch:
      return SWM_CMS_ERR_MISMATCH;
    case cmsvfy::Rejection::kUntrusted:
      return SWM_CMS_ERR_UNTRUSTED;
    case cmsvfy::Rejection::kExpired:
      return SWM_CMS_ERR_EXPIRED;
    case cmsvfy::Rejection::kRevoked:
      return SWM_CMS_ERR_REVOKED;
    case cmsvfy::Rejection::kNotPss:
      return SWM_CMS_ERR_NOT_PSS;
  }
  return SWM_CMS_ERR_MISMATCH;
}

// A file named by the caller: SWM_ERR_IO when it cannot be read, otherwise what its content
// is not (invalid).
uint32_t FromReadStatus(uint32_t status, uint32_t invalid) {
  switch (status) {
    case CMSVFY_OK:
      return SWM_OK;
    case CMSVFY_ERR_IO:
      return SWM_ERR_IO;
    case CMSVFY_ERR_NOMEM:
      return SWM_ERR_NOMEM;
    default:
      return invalid;
  }
}

// A context trusting the board's anchor and nothing else.
uint32_t AnchoredContext(std::unique_ptr<CmsvfyCtx> *ctx) {
  const boarddesc::Entry<std::string> path = boarddesc::BoardValue(kSecuritySection, kRootCaKey);
  if (path.found != boarddesc::Found::kValue || path.value.empty()) {
    return SWM_CMS_ERR_TRUST_ANCHOR;
  }
  std::vector<uint8_t> der;
  uint32_t status = cmsvfy::ReadFile(path.value.c_str(), CMSVFY_ERR_CERT, &der);
  if (status == CMSVFY_OK) {
    status = cmsvfy::NewContext(ctx);
  }
  if (status == CMSVFY_OK) {
    status = cmsvfy::AddCertificate(**ctx, der);
  }
  if (status == CMSVFY_ERR_NOMEM) {
    return SWM_ERR_NOMEM;
  }
  return status == CMSVFY_OK ? SWM_OK : SWM_CMS_ERR_TRUST_ANCHOR;
}

// Adds crl to the context when the anchor signed it.
uint32_t AddAnchoredCrl(CmsvfyCtx &ctx, cmsvfy::UniqueCrl crl) {
  if (crl == nullptr || !cmsvfy::IsTrusted(ctx, crl.get())) {
    return SWM_CMS_ERR_CRL;
  }
  ctx.crls.push_back(std::move(crl));
  return SWM_OK;
}

uint32_t AddCrlFile(CmsvfyCtx &ctx, const char *path) {
  std::vector<uint8_t> bytes;
  const uint32_t status =
      FromReadStatus(cmsvfy::ReadFile(path, CMSVFY_ERR_CRL, &bytes), SWM_CMS_ERR_CRL);
  return status == SWM_OK ? AddAnchoredCrl(ctx, cmsvfy::DecodeCrl(bytes)) : status;
}

// The kernel's CRL file is overwritten in place, so a CRL is read from its start and whatever
// follows it is left over from an earlier, longer one. Missing or empty: no CRL.
uint32_t AddModuleCrl(CmsvfyCtx &ctx) {
  std::vector<uint8_t> bytes;
  const uint32_t status = cmsvfy::ReadFile(kModuleCrl, CMSVFY_ERR_CRL, &bytes);
  if (status == CMSVFY_ERR_IO && errno == ENOENT) {
    return SWM_OK;
  }
  if (status != CMSVFY_OK) {
    return status == CMSVFY_ERR_NOMEM ? SWM_ERR_NOMEM : SWM_CMS_ERR_CRL;
  }
  return bytes.empty() ? SWM_OK : AddAnchoredCrl(ctx, cmsvfy::DecodeDerCrlPrefix(bytes));
}

uint32_t Check(const CmsvfyCtx &ctx, const char *sourcePath, const char *signaturePath,
               cmsvfy::CheckOptions options) {
  const cmsvfy::Verdict verdict = cmsvfy::VerifyDetached(ctx, sourcePath, signaturePath, options);
  if (verdict.status != CMSVFY_OK) {
    return FromReadStatus(verdict.status, SWM_CMS_ERR_SIGNATURE);
  }
  return FromRejection(verdict.rejection);
}

uint32_t VerifyClassic(const char *sourcePath, const char *signaturePath, const char *crlPath) {
  std::unique_ptr<CmsvfyCtx> ctx;
  uint32_t status = AnchoredContext(&ctx);
  if (status == SWM_OK) {
    status = AddCrlFile(*ctx, crlPath);
  }
  return status == SWM_OK ? Check(*ctx, sourcePath, signaturePath, {}) : status;
}

uint32_t VerifyPss(const char *sourcePath, const char *signaturePath) {
  std::unique_ptr<CmsvfyCtx> ctx;
  uint32_t status = AnchoredContext(&ctx);
  if (status == SWM_OK) {
    status = AddModuleCrl(*ctx);
  }
  return status == SWM_OK ? Check(*ctx, sourcePath, signaturePath, {.requirePss = true}) : status;
}

uint32_t CrlScheme(const char *path, uint32_t *alg) {
  std::vector<uint8_t> bytes;
  const uint32_t status =
      FromReadStatus(cmsvfy::ReadFile(path, CMSVFY_ERR_CRL, &bytes), SWM_CMS_ERR_CRL);
  if (status != SWM_OK) {
    return status;
  }
  const cmsvfy::UniqueCrl crl = cmsvfy::DecodeCrl(bytes);
  if (crl == nullptr) {
    return SWM_CMS_ERR_CRL;
  }
  *alg = cmsvfy::IsPssSigned(crl.get()) ? SWM_CRL_ALG_PSS : SWM_CRL_ALG_CLASSIC;
  return SWM_OK;
}

}  // namespace

extern "C" uint32_t SWM_VerifyCms(const char *sourcePath, const char *signaturePath,
                                  const char *crlPath) {
  if (sourcePath == nullptr || signaturePath == nullptr || crlPath == nullptr) {
    return SWM_ERR_PARAM;
  }
  const uint32_t status =
      Guarded([&] { return VerifyClassic(sourcePath, signaturePath, crlPath); });
  return swm::ForcedAfter("SWM_VerifyCms", status);
}

extern "C" uint32_t SWM_VerifyPssCms(const char *sourcePath, const char *signaturePath) {
  if (sourcePath == nullptr || signaturePath == nullptr) {
    return SWM_ERR_PARAM;
  }
  const uint32_t status = Guarded([&] { return VerifyPss(sourcePath, signaturePath); });
  return swm::ForcedAfter("SWM_VerifyPssCms", status);
}

extern "C" uint32_t SWM_GetCrlSignatureAlgs(const char *path, uint32_t *alg, void *reserved) {
  if (path == nullptr || alg == nullptr || reserved != nullptr) {
    return SWM_ERR_PARAM;
  }
  const uint32_t status = Guarded([&] { return CrlScheme(path, alg); });
  return swm::ForcedAfter("SWM_GetCrlSignatureAlgs", status);
}
