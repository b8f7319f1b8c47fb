/*
 * CMS verification library: detached CMS signatures over files and certificate revocation
 * lists (CRLs), on the board's trust anchors. The host build implements it with OpenSSL 3
 * (see docs/signatures.md).
 *
 * A verification context holds the trusted certificates and the CRLs that count for the
 * checks made with it. Every function returns 0 on success and one of the CMSVFY_ERR_ codes
 * otherwise; outputs are written only on success.
 *
 * A signature that was examined and found wanting is not an error of the library: the check
 * returns 0 and a result other than 1 (see CmsvfyVerifyDetachSignatureQuick).
 */
#ifndef CMSVFY_H
#define CMSVFY_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CMSVFY_API __attribute__((visibility("default")))

#define CMSVFY_OK 0u
#define CMSVFY_ERR_PARAM 0x7C000001u     /* NULL pointer, zero length, bad parameter record */
#define CMSVFY_ERR_NOMEM 0x7C000002u     /* out of memory */
#define CMSVFY_ERR_IO 0x7C000003u        /* a file cannot be opened or read */
#define CMSVFY_ERR_CERT 0x7C000004u      /* bytes that are not one DER X.509 certificate */
#define CMSVFY_ERR_CRL 0x7C000005u       /* bytes that are not a CRL (DER or PEM) */
#define CMSVFY_ERR_CMS 0x7C000006u       /* signature file that is not a DER CMS SignedData */
#define CMSVFY_ERR_CRL_TRUST 0x7C000007u /* a CRL not signed by a certificate of the context */

/* Size of the parameter record; its first field must hold it. */
#define CMSVFY_PARAM_SIZE 72u

typedef struct CmsvfyParam {
  uint64_t size;        /* CMSVFY_PARAM_SIZE */
  uint64_t reserved[8]; /* all zero */
} CMSVFY_PARAM_S;

typedef struct CmsvfyCtx CMSVFY_CTX_S;
typedef struct CmsvfyCrl CMSVFY_CRL_S;

/* A new, empty context. CMSVFY_ERR_PARAM when param is NULL, its size field is not 72 or a
 * reserved field is not zero. */
CMSVFY_API uint32_t CmsvfyVerifyCreateCtx(CMSVFY_CTX_S **ctx, const CMSVFY_PARAM_S *param);
/* Adds a trusted certificate (DER, exactly len bytes). The bytes are copied. */
CMSVFY_API uint32_t CmsvfyVerifyAddCert(CMSVFY_CTX_S *ctx, const uint8_t *der, uint32_t len);
/* Adds a CRL read from path (DER or PEM). */
CMSVFY_API uint32_t CmsvfyVerifyAddCrlFile(CMSVFY_CTX_S *ctx, const char *path);
/* Adds a CRL held in memory (DER or PEM, exactly len bytes). */
CMSVFY_API uint32_t CmsvfyVerifyAddCrl(CMSVFY_CTX_S *ctx, const uint8_t *crl, uint32_t len);
/* Checks the detached DER CMS signature in signaturePath over the exact bytes of sourcePath.
 * *result is 1 when every signer's signature matches the bytes, the signer's certificate
 * chains to a trusted certificate of the context and is valid now, and no CRL of the context
 * issued by the signer's issuer lists it; otherwise 0. Files that cannot be read
 * (CMSVFY_ERR_IO) or a signature file that does not decode (CMSVFY_ERR_CMS) are errors. */
CMSVFY_API uint32_t CmsvfyVerifyDetachSignatureQuick(CMSVFY_CTX_S *ctx, const char *sourcePath,
                                                     const char *signaturePath, int32_t *result);
/* Decodes a CRL from a file or from memory. The CRL must be signed by a certificate of the
 * context (CMSVFY_ERR_CRL_TRUST otherwise). Release with CmsvfyCrlFree. */
CMSVFY_API uint32_t CmsvfyDecodeCrlFile(CMSVFY_CTX_S *ctx, const char *path, CMSVFY_CRL_S **crl);
CMSVFY_API uint32_t CmsvfyDecodeCrl(CMSVFY_CTX_S *ctx, const uint8_t *bytes, uint32_t len,
                                    CMSVFY_CRL_S **crl);
/* *result is 1 when crlA is newer than crlB, else 0. Newer: the higher CRL number when both
 * carry one and the numbers differ; otherwise the later issue date (lastUpdate). */
CMSVFY_API uint32_t CmsvfyCrlCompare(CMSVFY_CTX_S *ctx, const CMSVFY_CRL_S *crlA,
                                     const CMSVFY_CRL_S *crlB, uint32_t *result);
/* Releases a decoded CRL (NULL is accepted). */
CMSVFY_API uint32_t CmsvfyCrlFree(CMSVFY_CTX_S *ctx, CMSVFY_CRL_S *crl);
/* Releases a context with its certificates and CRLs (NULL is accepted). */
CMSVFY_API uint32_t CmsvfyVrfCtxFree(CMSVFY_CTX_S *ctx);

#ifdef __cplusplus
}
#endif

#endif /* CMSVFY_H */
