// The verification context: trusted certificates.
#include <climits>
#include <new>

#include "cmsvfy_core.hpp"

namespace cmsvfy {

uint32_t NewContext(std::unique_ptr<CmsvfyCtx> *ctx) {
  std::unique_ptr<CmsvfyCtx> made(new (std::nothrow) CmsvfyCtx{});
  if (made == nullptr) {
    return CMSVFY_ERR_NOMEM;
  }
  made->store.reset(X509_STORE_new());
  if (made->store == nullptr) {
    return CMSVFY_ERR_NOMEM;
  }
  // Every certificate of the context is an anchor, whether or not it signed itself: a chain
  // ends at the first trusted certificate. Revocation is checked by this library itself
  // (see signature.cpp), never by chain building.
  if (X509_STORE_set_flags(made->store.get(), X509_V_FLAG_PARTIAL_CHAIN) != 1) {
    return CMSVFY_ERR_NOMEM;
  }
  *ctx = std::move(made);
  return CMSVFY_OK;
}

UniqueX509 DecodeCertificate(std::span<const uint8_t> der) {
  if (der.empty() || der.size() > LONG_MAX) {
    return nullptr;
  }
  const unsigned char *next = der.data();
  UniqueX509 cert(d2i_X509(nullptr, &next, static_cast<long>(der.size())));
  // One certificate and nothing after it.
  if (cert == nullptr || next != der.data() + der.size()) {
    return nullptr;
  }
  return cert;
}

uint32_t AddCertificate(CmsvfyCtx &ctx, std::span<const uint8_t> der) {
  UniqueX509 cert = DecodeCertificate(der);
  if (cert == nullptr) {
    return CMSVFY_ERR_CERT;
  }
  ctx.certs.reserve(ctx.certs.size() + 1);  // may throw; nothing is changed yet
  if (X509_STORE_add_cert(ctx.store.get(), cert.get()) != 1) {
    return CMSVFY_ERR_NOMEM;
  }
  ctx.certs.push_back(std::move(cert));
  return CMSVFY_OK;
}

}  // namespace cmsvfy
