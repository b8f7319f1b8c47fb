// Seams of the CMS and CRL tests, passing through unless a test arms them. The CMS library's
// calls are counted so a test can tell that every context and every decoded CRL a call made was
// released again; only failures that no real input brings about are forced:
//  - CmsvfyVerifyCreateCtx and CmsvfyCrlCompare fail with a chosen code;
//  - CmsvfyVerifyDetachSignatureQuick reports an examined signature that did not pass (code 0,
//    result 0) without looking at it;
//  - memset_s fails for the flash CRL buffer, memcpy_s for the copies of the root certificate.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace cmsfaults {

struct Faults {
  uint32_t createCtxResult = 0;  // non-zero: CmsvfyVerifyCreateCtx fails with it
  uint32_t compareResult = 0;    // non-zero: CmsvfyCrlCompare fails with it
  bool signatureRejected = false;
  bool failCrlBufferZeroing = false;
  std::vector<std::size_t> failCopiesOfCount;  // memcpy_s of these byte counts fails

  int contextsLive = 0;  // created and not yet released
  int contextsMade = 0;
  int crlsLive = 0;  // decoded and not yet released
  int crlsDecoded = 0;
  int signatureChecks = 0;
  std::vector<std::string> addedCerts;    // the bytes of each CmsvfyVerifyAddCert call
  std::vector<uint32_t> addedCrlLengths;  // CmsvfyVerifyAddCrl calls, in order
  std::vector<std::size_t> copyCounts;    // memcpy_s calls, in order
};

Faults &Get();
void Reset();

}  // namespace cmsfaults
