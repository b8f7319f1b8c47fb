// Detached CMS signatures over a file's bytes.
//
// The checks run from the cheapest to the dearest: the signature schemes, each signer's chain
// and revocation, and only then the file's bytes, which may be large, are read and compared.
#include <openssl/objects.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>

#include "cmsvfy_core.hpp"

namespace cmsvfy {

namespace {

struct FileClose {
  void operator()(FILE *stream) const { (void)std::fclose(stream); }
};
using UniqueFile = std::unique_ptr<FILE, FileClose>;

// The source file, opened for streaming through CMS_verify: CMSVFY_ERR_IO (errno kept) when it
// cannot be opened or is not a regular file.
uint32_t OpenSource(const char *path, UniqueFile *source) {
  const int fd = OpenRegularFile(path);
  if (fd < 0) {
    return CMSVFY_ERR_IO;
  }
  source->reset(fdopen(fd, "rb"));
  if (*source == nullptr) {
    const int error = errno;
    (void)close(fd);
    errno = error;
    return error == ENOMEM ? CMSVFY_ERR_NOMEM : CMSVFY_ERR_IO;
  }
  return CMSVFY_OK;
}

// One DER CMS ContentInfo of type SignedData, exactly these bytes.
UniqueCms DecodeSignedData(std::span<const uint8_t> der) {
  if (der.empty() || der.size() > LONG_MAX) {
    return nullptr;
  }
  const unsigned char *next = der.data();
  UniqueCms cms(d2i_CMS_ContentInfo(nullptr, &next, static_cast<long>(der.size())));
  if (cms == nullptr || next != der.data() + der.size() ||
      OBJ_obj2nid(CMS_get0_type(cms.get())) != NID_pkcs7_signed) {
    return nullptr;
  }
  return cms;
}

bool SignedWithPss(CMS_SignerInfo *info) {
  X509_ALGOR *scheme = nullptr;
  CMS_SignerInfo_get0_algs(info, nullptr, nullptr, nullptr, &scheme);
  const ASN1_OBJECT *algorithm = nullptr;
  X509_ALGOR_get0(&algorithm, nullptr, nullptr, scheme);
  return OBJ_obj2nid(algorithm) == NID_rsassaPss;
}

// The context's certificates as a stack for OpenSSL (the context keeps owning them).
BorrowedCertStack TrustedCerts(const CmsvfyCtx &ctx) {
  BorrowedCertStack certs(sk_X509_new_null());
  if (certs == nullptr) {
    return nullptr;
  }
  for (const UniqueX509 &cert : ctx.certs) {
    if (sk_X509_push(certs.get(), cert.get()) <= 0) {
      return nullptr;
    }
  }
  return certs;
}

// The certificate that issued signer: the next one in its verified chain, or, when the signer
// is itself a trusted certificate (a chain of one), the context's certificate that issued it.
const X509 *IssuerOf(const CmsvfyCtx &ctx, X509 *signer, STACK_OF(X509) * chain) {
  if (sk_X509_num(chain) > 1) {
    return sk_X509_value(chain, 1);
  }
  for (const UniqueX509 &cert : ctx.certs) {
    if (X509_check_issued(cert.get(), signer) == X509_V_OK) {
      return cert.get();
    }
  }
  return nullptr;
}

// Every CRL of the context that the signer's issuer signed counts, and one listing the signer
// is enough: the choice is not left to which CRL chain building would pick.
bool IsRevoked(const CmsvfyCtx &ctx, X509 *signer, const X509 *issuer) {
  if (issuer == nullptr) {
    return false;
  }
  for (const UniqueCrl &crl : ctx.crls) {
    X509_REVOKED *entry = nullptr;
    // 1: listed; 2 would be a delta CRL's "remove from CRL" entry, which revokes nothing.
    if (IsIssuedBy(crl.get(), issuer) && X509_CRL_get0_by_cert(crl.get(), &entry, signer) == 1) {
      return true;
    }
  }
  return false;
}

Rejection ChainRejection(int error) {
  return error == X509_V_ERR_CERT_HAS_EXPIRED || error == X509_V_ERR_CERT_NOT_YET_VALID
             ? Rejection::kExpired
             : Rejection::kUntrusted;
}

// The signer's chain to a trusted certificate at this time (any purpose: signer certificates
// carry no S/MIME purpose), then revocation.
Verdict CheckSigner(const CmsvfyCtx &ctx, X509 *signer, STACK_OF(X509) * carried) {
  const UniqueStoreCtx check(X509_STORE_CTX_new());
  if (check == nullptr || X509_STORE_CTX_init(check.get(), ctx.store.get(), signer, carried) != 1 ||
      X509_STORE_CTX_set_purpose(check.get(), X509_PURPOSE_ANY) != 1) {
    return {CMSVFY_ERR_NOMEM, Rejection::kNone};
  }
  if (X509_verify_cert(check.get()) != 1) {
    const int error = X509_STORE_CTX_get_error(check.get());
    if (error == X509_V_ERR_OUT_OF_MEM) {
      return {CMSVFY_ERR_NOMEM, Rejection::kNone};
    }
    return {CMSVFY_OK, ChainRejection(error)};
  }
  const X509 *issuer = IssuerOf(ctx, signer, X509_STORE_CTX_get0_chain(check.get()));
  return {CMSVFY_OK, IsRevoked(ctx, signer, issuer) ? Rejection::kRevoked : Rejection::kNone};
}

Verdict CheckSigners(const CmsvfyCtx &ctx, CMS_ContentInfo *cms, CheckOptions options) {
  STACK_OF(CMS_SignerInfo) *infos = CMS_get0_SignerInfos(cms);
  const int count = sk_CMS_SignerInfo_num(infos);
  if (count <= 0) {
    return {CMSVFY_OK, Rejection::kMismatch};  // nothing signs the bytes
  }
  for (int i = 0; options.requirePss && i < count; ++i) {
    if (!SignedWithPss(sk_CMS_SignerInfo_value(infos, i))) {
      return {CMSVFY_OK, Rejection::kNotPss};
    }
  }
  // Signer certificates: the context's own, else those the signature carries.
  const BorrowedCertStack trusted = TrustedCerts(ctx);
  if (trusted == nullptr || CMS_set1_signers_certs(cms, trusted.get(), 0) < 0) {
    return {CMSVFY_ERR_NOMEM, Rejection::kNone};
  }
  const OwnedCertStack carried(CMS_get1_certs(cms));  // nullptr when it carries none
  for (int i = 0; i < count; ++i) {
    X509 *signer = nullptr;
    CMS_SignerInfo_get0_algs(sk_CMS_SignerInfo_value(infos, i), nullptr, &signer, nullptr, nullptr);
    if (signer == nullptr) {
      return {CMSVFY_OK, Rejection::kUntrusted};  // no certificate to chain at all
    }
    const Verdict verdict = CheckSigner(ctx, signer, carried.get());
    if (verdict.status != CMSVFY_OK || verdict.rejection != Rejection::kNone) {
      return verdict;
    }
  }
  return {CMSVFY_OK, Rejection::kNone};
}

// Streams the file's bytes through the signers' digests and checks their signatures. The
// signers' certificates were checked before, so CMS_verify checks the signatures only.
Verdict CheckContent(CMS_ContentInfo *cms, FILE *source) {
  const UniqueBio content(BIO_new_fp(source, BIO_NOCLOSE));
  if (content == nullptr) {
    return {CMSVFY_ERR_NOMEM, Rejection::kNone};
  }
  constexpr unsigned int kFlags = CMS_BINARY | CMS_DETACHED | CMS_NO_SIGNER_CERT_VERIFY;
  if (CMS_verify(cms, nullptr, nullptr, content.get(), nullptr, kFlags) == 1) {
    return {CMSVFY_OK, Rejection::kNone};
  }
  // A read error is no verdict on the signature.
  if (std::ferror(source) != 0) {
    return {CMSVFY_ERR_IO, Rejection::kNone};
  }
  return {CMSVFY_OK, Rejection::kMismatch};
}

}  // namespace

Verdict VerifyDetached(const CmsvfyCtx &ctx, const char *sourcePath, const char *signaturePath,
                       CheckOptions options) {
  std::vector<uint8_t> der;
  uint32_t status = ReadFile(signaturePath, CMSVFY_ERR_CMS, &der);
  if (status != CMSVFY_OK) {
    return {status, Rejection::kNone};
  }
  UniqueFile source;
  status = OpenSource(sourcePath, &source);
  if (status != CMSVFY_OK) {
    return {status, Rejection::kNone};
  }
  const UniqueCms cms = DecodeSignedData(der);
  if (cms == nullptr) {
    return {CMSVFY_ERR_CMS, Rejection::kNone};
  }
  const Verdict verdict = CheckSigners(ctx, cms.get(), options);
  if (verdict.status != CMSVFY_OK || verdict.rejection != Rejection::kNone) {
    return verdict;
  }
  return CheckContent(cms.get(), source.get());
}

}  // namespace cmsvfy
