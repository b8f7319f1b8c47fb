// A verification context of the CMS library that trusts the built-in root certificate, and the
// owner of a CRL decoded in it. Shared by the signature check and the CRL comparison.
#pragma once

#include <cstdint>
#include <memory>

#include "bootinit/board.h"
#include "cmsvfy.h"
#include "common/support/c_owners.hpp"

namespace bootinit::cms {

inline constexpr uint32_t kCrlBufferLen = BOOT_INIT_CRL_MAX_LEN;

// Which caller makes the context: the signature check words its creation failure differently.
enum class ContextUse { kSignature, kCrl };

struct ContextFree {
  void operator()(CMSVFY_CTX_S *ctx) const { (void)CmsvfyVrfCtxFree(ctx); }
};

// A context with a copy of the root certificate added. The copy lives as long as the context;
// the context is released first.
class TrustContext {
 public:
  TrustContext() = default;
  TrustContext(const TrustContext &) = delete;
  TrustContext &operator=(const TrustContext &) = delete;
  ~TrustContext() = default;

  // Creates the context and adds the root certificate. 0, or the library's code of the failed
  // step (logged), or BOOT_INIT_ERR_ROOT_CERT_MEMORY. caller names the copy's failures.
  uint32_t Open(ContextUse use, const char *caller);

  [[nodiscard]] CMSVFY_CTX_S *get() const { return ctx_.get(); }

 private:
  MallocPtr<uint8_t> rootCert_;  // declared first: outlives the context
  std::unique_ptr<CMSVFY_CTX_S, ContextFree> ctx_;
};

// A CRL decoded in a context, released through that context.
class DecodedCrl {
 public:
  explicit DecodedCrl(CMSVFY_CTX_S *ctx) : ctx_(ctx) {}
  DecodedCrl(const DecodedCrl &) = delete;
  DecodedCrl &operator=(const DecodedCrl &) = delete;
  ~DecodedCrl() {
    if (crl_ != nullptr) {
      (void)CmsvfyCrlFree(ctx_, crl_);
    }
  }

  [[nodiscard]] const CMSVFY_CRL_S *get() const { return crl_; }
  CMSVFY_CRL_S **out() { return &crl_; }

 private:
  CMSVFY_CTX_S *ctx_;
  CMSVFY_CRL_S *crl_ = nullptr;
};

}  // namespace bootinit::cms
