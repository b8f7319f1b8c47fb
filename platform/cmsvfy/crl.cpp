// Certificate revocation lists: decoding, issuer and scheme checks, which of two is newer.
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <climits>

#include "cmsvfy_core.hpp"

namespace cmsvfy {

namespace {

UniqueCrl DecodeDer(std::span<const uint8_t> bytes, bool whole) {
  if (bytes.empty() || bytes.size() > LONG_MAX) {
    return nullptr;
  }
  const unsigned char *next = bytes.data();
  UniqueCrl crl(d2i_X509_CRL(nullptr, &next, static_cast<long>(bytes.size())));
  if (crl == nullptr || (whole && next != bytes.data() + bytes.size())) {
    return nullptr;
  }
  return crl;
}

// PEM blocks may carry encryption headers; a CRL never needs a password, and the default
// callback would ask for one on the terminal.
int NoPassword(char * /*buf*/, int /*size*/, int /*rwflag*/, void * /*userdata*/) { return -1; }

UniqueCrl DecodePem(std::span<const uint8_t> bytes) {
  if (bytes.empty() || bytes.size() > INT_MAX) {
    return nullptr;
  }
  const UniqueBio text(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
  if (text == nullptr) {
    return nullptr;
  }
  return UniqueCrl(PEM_read_bio_X509_CRL(text.get(), nullptr, NoPassword, nullptr));
}

UniqueInteger CrlNumber(const X509_CRL *crl) {
  return UniqueInteger(
      static_cast<ASN1_INTEGER *>(X509_CRL_get_ext_d2i(crl, NID_crl_number, nullptr, nullptr)));
}

}  // namespace

UniqueCrl DecodeCrl(std::span<const uint8_t> bytes) {
  UniqueCrl crl = DecodeDer(bytes, true);
  return crl != nullptr ? std::move(crl) : DecodePem(bytes);
}

UniqueCrl DecodeDerCrlPrefix(std::span<const uint8_t> bytes) { return DecodeDer(bytes, false); }

bool IsIssuedBy(X509_CRL *crl, const X509 *issuer) {
  if (X509_NAME_cmp(X509_CRL_get_issuer(crl), X509_get_subject_name(issuer)) != 0) {
    return false;
  }
  EVP_PKEY *key = X509_get0_pubkey(issuer);
  return key != nullptr && X509_CRL_verify(crl, key) == 1;
}

bool IsTrusted(const CmsvfyCtx &ctx, X509_CRL *crl) {
  for (const UniqueX509 &cert : ctx.certs) {
    if (IsIssuedBy(crl, cert.get())) {
      return true;
    }
  }
  return false;
}

bool IsPssSigned(const X509_CRL *crl) { return X509_CRL_get_signature_nid(crl) == NID_rsassaPss; }

uint32_t IsNewer(const X509_CRL *a, const X509_CRL *b, bool *newer) {
  const UniqueInteger numberA = CrlNumber(a);
  const UniqueInteger numberB = CrlNumber(b);
  if (numberA != nullptr && numberB != nullptr) {
    const int order = ASN1_INTEGER_cmp(numberA.get(), numberB.get());
    if (order != 0) {
      *newer = order > 0;
      return CMSVFY_OK;
    }
  }
  const int order = ASN1_TIME_compare(X509_CRL_get0_lastUpdate(a), X509_CRL_get0_lastUpdate(b));
  if (order == -2) {
    return CMSVFY_ERR_CRL;
  }
  *newer = order > 0;
  return CMSVFY_OK;
}

}  // namespace cmsvfy
