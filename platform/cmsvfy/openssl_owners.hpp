// Owners of OpenSSL objects: each is released exactly once on every path. The deleters hold no
// state, so an owner is the size of a plain pointer.
#ifndef CMSVFY_OPENSSL_OWNERS_HPP
#define CMSVFY_OPENSSL_OWNERS_HPP

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <memory>

namespace cmsvfy {

struct X509Free {
  void operator()(X509 *cert) const { X509_free(cert); }
};
struct CrlFree {
  void operator()(X509_CRL *crl) const { X509_CRL_free(crl); }
};
struct StoreFree {
  void operator()(X509_STORE *store) const { X509_STORE_free(store); }
};
struct StoreCtxFree {
  void operator()(X509_STORE_CTX *ctx) const { X509_STORE_CTX_free(ctx); }
};
struct CmsFree {
  void operator()(CMS_ContentInfo *cms) const { CMS_ContentInfo_free(cms); }
};
struct BioFree {
  void operator()(BIO *bio) const { BIO_free_all(bio); }
};
struct IntegerFree {
  void operator()(ASN1_INTEGER *number) const { ASN1_INTEGER_free(number); }
};
// A stack that owns its certificates (from CMS_get1_certs).
struct CertStackFree {
  void operator()(STACK_OF(X509) * certs) const { sk_X509_pop_free(certs, X509_free); }
};
// A stack that only borrows its certificates: they belong to someone else.
struct BorrowedStackFree {
  void operator()(STACK_OF(X509) * certs) const { sk_X509_free(certs); }
};

using UniqueX509 = std::unique_ptr<X509, X509Free>;
using UniqueCrl = std::unique_ptr<X509_CRL, CrlFree>;
using UniqueStore = std::unique_ptr<X509_STORE, StoreFree>;
using UniqueStoreCtx = std::unique_ptr<X509_STORE_CTX, StoreCtxFree>;
using UniqueCms = std::unique_ptr<CMS_ContentInfo, CmsFree>;
using UniqueBio = std::unique_ptr<BIO, BioFree>;
using UniqueInteger = std::unique_ptr<ASN1_INTEGER, IntegerFree>;
using OwnedCertStack = std::unique_ptr<STACK_OF(X509), CertStackFree>;
using BorrowedCertStack = std::unique_ptr<STACK_OF(X509), BorrowedStackFree>;

// OpenSSL reports failures on a per-thread error queue. A call of this library must not leave
// its own entries there for a caller that uses OpenSSL too, nor remove the caller's: everything
// queued after the mark goes again when the scope ends.
class ErrorScope {
 public:
  ErrorScope() { (void)ERR_set_mark(); }
  ~ErrorScope() { (void)ERR_pop_to_mark(); }
  ErrorScope(const ErrorScope &) = delete;
  ErrorScope &operator=(const ErrorScope &) = delete;
};

}  // namespace cmsvfy

#endif  // CMSVFY_OPENSSL_OWNERS_HPP
