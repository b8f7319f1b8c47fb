// The checks behind libcmsvfy, as a static library that libcmsvfy and libswm both link (each
// gets its own hidden copy). Besides the results of the C interface it tells why a signature
// was rejected, which libswm reports as codes of its own.
#ifndef CMSVFY_CMSVFY_CORE_HPP
#define CMSVFY_CMSVFY_CORE_HPP

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "cmsvfy.h"
#include "openssl_owners.hpp"

// The context of the C interface: the trusted certificates and the CRLs that count.
struct CmsvfyCtx {
  cmsvfy::UniqueStore store;              // the trusted certificates, for chain building
  std::vector<cmsvfy::UniqueX509> certs;  // the same certificates, to find CRL issuers
  std::vector<cmsvfy::UniqueCrl> crls;
};

// A CRL decoded for comparison.
struct CmsvfyCrl {
  cmsvfy::UniqueCrl crl;
};

namespace cmsvfy {

// Why a signature that was examined did not pass.
enum class Rejection {
  kNone,       // it passed
  kMismatch,   // a signature does not match the bytes (or the file carries no signature)
  kUntrusted,  // a signer's certificate does not chain to a trusted certificate
  kExpired,    // a certificate of a signer's chain is not valid at this time
  kRevoked,    // a CRL of the context lists a signer
  kNotPss,     // a signer did not sign with RSASSA-PSS where that was required
};

struct Verdict {
  uint32_t status = CMSVFY_OK;  // CMSVFY_OK: the signature was examined
  Rejection rejection = Rejection::kNone;
};

// Files larger than this are no certificate, CRL or signature file.
inline constexpr size_t kMaxDerFile = size_t{16} << 20;

// A new context without certificates or CRLs: CMSVFY_OK or CMSVFY_ERR_NOMEM.
uint32_t NewContext(std::unique_ptr<CmsvfyCtx> *ctx);

// Decodes exactly one DER certificate: nullptr when the bytes are anything else.
UniqueX509 DecodeCertificate(std::span<const uint8_t> der);

// Adds a trusted certificate (one DER certificate, exactly these bytes).
uint32_t AddCertificate(CmsvfyCtx &ctx, std::span<const uint8_t> der);

// A read-only, close-on-exec descriptor of the regular file at path (symbolic links followed),
// or -1 with errno set (EISDIR for a directory, EINVAL for other kinds of file).
int OpenRegularFile(const char *path);

// The whole content of the regular file at path: CMSVFY_ERR_IO (errno kept) when it cannot be
// opened or read or is not a regular file, tooLarge when it holds more than kMaxDerFile bytes.
uint32_t ReadFile(const char *path, uint32_t tooLarge, std::vector<uint8_t> *bytes);

// A CRL as exactly these bytes, DER or PEM: nullptr when they are anything else.
UniqueCrl DecodeCrl(std::span<const uint8_t> bytes);
// A DER CRL at the start of bytes; what follows it does not matter.
UniqueCrl DecodeDerCrlPrefix(std::span<const uint8_t> bytes);

// True when crl names issuer as its issuer and issuer's key verifies its signature.
bool IsIssuedBy(X509_CRL *crl, const X509 *issuer);
// True when a certificate of the context issued crl.
bool IsTrusted(const CmsvfyCtx &ctx, X509_CRL *crl);
// True when crl is signed with RSASSA-PSS.
bool IsPssSigned(const X509_CRL *crl);

// *newer is true when a is newer than b: the higher CRL number when both carry one and the
// numbers differ, otherwise the later lastUpdate. CMSVFY_ERR_CRL when a date cannot be compared.
uint32_t IsNewer(const X509_CRL *a, const X509_CRL *b, bool *newer);

struct CheckOptions {
  bool requirePss = false;  // every signer must have signed with RSASSA-PSS
};

// Checks the detached DER CMS signature in signaturePath over the bytes of sourcePath with the
// certificates and CRLs of ctx. status CMSVFY_ERR_IO (errno kept) when a file cannot be read,
// CMSVFY_ERR_CMS when the signature file is no CMS SignedData, CMSVFY_ERR_NOMEM; otherwise
// CMSVFY_OK with rejection telling the outcome.
Verdict VerifyDetached(const CmsvfyCtx &ctx, const char *sourcePath, const char *signaturePath,
                       CheckOptions options);

}  // namespace cmsvfy

#endif  // CMSVFY_CMSVFY_CORE_HPP
