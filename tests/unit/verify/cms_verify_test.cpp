// BOOT_INIT_VerifyCms with the real CMS library and signatures made by the openssl tool from the
// test PKI: the built-in root, the CRL file, the CRL kept in flash (either area) and every way
// out, each checked for its code, its exact log lines and the release of what it took.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bootinit/verify.h"
#include "cms_fixture.hpp"
#include "cmsvfy.h"

using cmstest::kSource;
using crltest::Area;
using crltest::Pki;
using crltest::PkiBytes;
using crltest::StoreInArea;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testsupport::MainLog;

namespace {

const std::string kSignature = cmstest::kPkgDir + "/app.bin.cms";
const std::string kCrlFile = cmstest::kPkgDir + "/crl.der";

const std::string kNoClassicCrl = "[BOOT_INIT][WARNING]:crl flash read failed, ret 2";
const std::string kNoFlashCrl = "[BOOT_INIT][WARNING]:read crl failed. ret[ffffffff]";
const std::string kPssRead = "[BOOT_INIT][INFO]:Read pss crl from drv, ret=0";
const std::string kNotVerified =
    "[BOOT_INIT][ERROR]:[DIGITAL SIGNATURE]CmsvfyVerifyDetachSignatureQuick failed. "
    "ret[00000000], result[0]";

std::string CheckFailed(const std::string &code) {
  return "[BOOT_INIT][ERROR]:[DIGITAL SIGNATURE]CmsvfyVerifyDetachSignatureQuick failed. ret[" +
         code + "]";
}

class VerifyCmsTest : public cmstest::CmsTest {
 protected:
  void SetUp() override {
    CmsTest::SetUp();
    testsupport::WriteFile(kCrlFile, PkiBytes("crl_empty.der"));
  }
  static uint32_t Verify(const std::string &crl = kCrlFile) {
    return Released(
        [&] { return BOOT_INIT_VerifyCms(kSource.c_str(), kSignature.c_str(), crl.c_str()); });
  }
  static void SignedBy(const std::string &signer, bool pss = false) {
    crltest::Sign(kSource, kSignature, signer, pss);
  }
};

// ---- signatures that pass ----

TEST_F(VerifyCmsTest, ClassicSignatureWithoutFlashCrl) {
  SignedBy("classic_signer");
  EXPECT_EQ(Verify(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kNoClassicCrl, kNoFlashCrl));
  EXPECT_EQ(cmsfaults::Get().contextsMade, 1);
  EXPECT_EQ(cmsfaults::Get().signatureChecks, 1);
  EXPECT_THAT(cmsfaults::Get().addedCrlLengths, IsEmpty());
}

TEST_F(VerifyCmsTest, PssSignature) {
  SignedBy("pss_signer", true);
  EXPECT_EQ(Verify(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kNoClassicCrl, kNoFlashCrl));
}

// The context trusts exactly the build's root certificate, copied in two bounded steps into a
// buffer of its own, which is released with the context.
TEST_F(VerifyCmsTest, BuiltInRootIsTheOnlyTrustedCertificate) {
  SignedBy("classic_signer");
  EXPECT_EQ(Verify(), 0u);
  EXPECT_THAT(cmsfaults::Get().addedCerts, ElementsAre(PkiBytes("root_ca.der")));
  EXPECT_EQ(PkiBytes("root_ca.der").size(), 1363u);
  EXPECT_THAT(cmsfaults::Get().copyCounts, ElementsAre(1024u, 339u));
}

TEST_F(VerifyCmsTest, GoodSignerPassesTheFlashCrl) {
  StoreInArea(Area::kClassic, PkiBytes("crl_revoking.der"));
  SignedBy("classic_signer");
  EXPECT_EQ(Verify(), 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_THAT(cmsfaults::Get().addedCrlLengths, ElementsAre(PkiBytes("crl_revoking.der").size()));
}

// ---- signatures that do not pass: code 0 from the library, result 1 here ----

TEST_F(VerifyCmsTest, SignerRevokedByTheClassicFlashCrl) {
  StoreInArea(Area::kClassic, PkiBytes("crl_revoking.der"));
  SignedBy("revoked_signer");
  EXPECT_EQ(Verify(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kNotVerified));
}

TEST_F(VerifyCmsTest, SignerRevokedByThePssFlashCrl) {
  StoreInArea(Area::kPss, PkiBytes("crl_pss_revoking.der"));
  SignedBy("revoked_signer");
  EXPECT_EQ(Verify(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kPssRead, kNotVerified));
  EXPECT_THAT(cmsfaults::Get().addedCrlLengths,
              ElementsAre(PkiBytes("crl_pss_revoking.der").size()));
}

TEST_F(VerifyCmsTest, SignerRevokedByTheCrlFile) {
  testsupport::WriteFile(kCrlFile, PkiBytes("crl_revoking.der"));
  SignedBy("revoked_signer");
  EXPECT_EQ(Verify(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kNoClassicCrl, kNoFlashCrl, kNotVerified));
}

TEST_F(VerifyCmsTest, RevokedSignerPassesWhenNoCrlListsIt) {
  SignedBy("revoked_signer");
  EXPECT_EQ(Verify(), 0u);
}

TEST_F(VerifyCmsTest, SignerOfAnotherRoot) {
  SignedBy("foreign_signer");
  EXPECT_EQ(Verify(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kNoClassicCrl, kNoFlashCrl, kNotVerified));
}

TEST_F(VerifyCmsTest, ExpiredSigner) {
  SignedBy("expired_signer");
  EXPECT_EQ(Verify(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kNoClassicCrl, kNoFlashCrl, kNotVerified));
}

TEST_F(VerifyCmsTest, ChangedSourceFile) {
  SignedBy("classic_signer");
  testsupport::WriteFile(kSource, cmstest::kSourceContent + "appended\n");
  EXPECT_EQ(Verify(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kNoClassicCrl, kNoFlashCrl, kNotVerified));
}

// The one outcome no real signature gives on demand with the other conditions unchanged: the
// library examined the signature and did not pass it.
TEST_F(VerifyCmsTest, ExaminedWithoutPassing) {
  SignedBy("classic_signer");
  cmsfaults::Get().signatureRejected = true;
  EXPECT_EQ(Verify(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kNoClassicCrl, kNoFlashCrl, kNotVerified));
}

// ---- the flash CRL is only an addition ----

TEST_F(VerifyCmsTest, DamagedFlashCrlIsIgnored) {
  StoreInArea(Area::kClassic, "damaged flash content");
  SignedBy("classic_signer");
  EXPECT_EQ(Verify(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:[DIGITAL SIGNATURE]upgrade crl add "
                                     "unsuccessful. ignore ret[7c000005]"));
}

TEST_F(VerifyCmsTest, ErasedFlashIsIgnored) {
  crltest::EraseArea(Area::kPss);
  SignedBy("revoked_signer");
  EXPECT_EQ(Verify(), 0u);
  EXPECT_THAT(MainLog(),
              ElementsAre(kPssRead, "[BOOT_INIT][WARNING]:read crl failed. ret[00000000]"));
  EXPECT_THAT(cmsfaults::Get().addedCrlLengths, IsEmpty());
}

TEST_F(VerifyCmsTest, UnreadableFlashIsIgnored) {
  StoreInArea(Area::kClassic, PkiBytes("crl_revoking.der"));
  MainBoardWith({{"fail.drv_crl_read", "0x33"}});
  SignedBy("revoked_signer");
  EXPECT_EQ(Verify(), 0u);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][WARNING]:crl flash read failed, ret 51", kNoFlashCrl));
}

// ---- failures of the library: their code is the result ----

TEST_F(VerifyCmsTest, SignatureFileThatIsNoCms) {
  testsupport::WriteFile(kSignature, "not a signature");
  EXPECT_EQ(Verify(), CMSVFY_ERR_CMS);
  EXPECT_THAT(MainLog(), ElementsAre(kNoClassicCrl, kNoFlashCrl, CheckFailed("7c000006")));
}

TEST_F(VerifyCmsTest, MissingSourceFile) {
  SignedBy("classic_signer");
  testsupport::RemovePath(kSource);
  EXPECT_EQ(Verify(), CMSVFY_ERR_IO);
  EXPECT_THAT(MainLog(), ElementsAre(kNoClassicCrl, kNoFlashCrl, CheckFailed("7c000003")));
}

TEST_F(VerifyCmsTest, MissingCrlFile) {
  SignedBy("classic_signer");
  EXPECT_EQ(Verify(cmstest::kPkgDir + "/none.der"), CMSVFY_ERR_IO);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:[DIGITAL SIGNATURE]CmsvfyVerifyAddCrlFile "
                                     "add crl file failed. ret[7c000003]"));
  EXPECT_EQ(cmsfaults::Get().signatureChecks, 0);
}

TEST_F(VerifyCmsTest, CrlFileThatIsNoCrl) {
  SignedBy("classic_signer");
  testsupport::WriteFile(kCrlFile, "not a revocation list");
  EXPECT_EQ(Verify(), CMSVFY_ERR_CRL);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:[DIGITAL SIGNATURE]CmsvfyVerifyAddCrlFile "
                                     "add crl file failed. ret[7c000005]"));
}

TEST_F(VerifyCmsTest, ContextCannotBeCreated) {
  SignedBy("classic_signer");
  cmsfaults::Get().createCtxResult = CMSVFY_ERR_NOMEM;
  EXPECT_EQ(Verify(), CMSVFY_ERR_NOMEM);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:[DIGITAL SIGNATURE]CmsvfyVerifyCreateCtx "
                                     "failed. ret[7c000002]"));
  EXPECT_THAT(cmsfaults::Get().copyCounts, IsEmpty());
  EXPECT_EQ(cmsfaults::Get().signatureChecks, 0);
}

// A refused copy leaves its part of the buffer cleared and is only logged. Without its first
// part the certificate is refused when it is added.
TEST_F(VerifyCmsTest, FirstRootCertificateCopyFails) {
  SignedBy("classic_signer");
  cmsfaults::Get().failCopiesOfCount = {1024};
  EXPECT_EQ(Verify(), CMSVFY_ERR_CERT);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:memcpy unsuccessfully: BOOT_INIT_VerifyCms",
                          "[BOOT_INIT][ERROR]:[DIGITAL SIGNATURE]CmsvfyVerifyAddCert failed. "
                          "ret[7c000004]"));
  EXPECT_THAT(cmsfaults::Get().copyCounts, ElementsAre(1024u, 339u));
  EXPECT_EQ(cmsfaults::Get().signatureChecks, 0);
}

// The last 339 bytes hold only part of the root's own signature, which nobody checks in a trust
// anchor: the check goes on and passes.
TEST_F(VerifyCmsTest, SecondRootCertificateCopyFails) {
  SignedBy("classic_signer");
  cmsfaults::Get().failCopiesOfCount = {339};
  EXPECT_EQ(Verify(), 0u);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:memcpy unsuccessfully: BOOT_INIT_VerifyCms",
                          kNoClassicCrl, kNoFlashCrl));
  EXPECT_EQ(cmsfaults::Get().signatureChecks, 1);
}

TEST_F(VerifyCmsTest, BothRootCertificateCopiesFail) {
  SignedBy("classic_signer");
  cmsfaults::Get().failCopiesOfCount = {1024, 339};
  EXPECT_EQ(Verify(), CMSVFY_ERR_CERT);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:memcpy unsuccessfully: BOOT_INIT_VerifyCms",
                          "[BOOT_INIT][ERROR]:memcpy unsuccessfully: BOOT_INIT_VerifyCms",
                          "[BOOT_INIT][ERROR]:[DIGITAL SIGNATURE]CmsvfyVerifyAddCert failed. "
                          "ret[7c000004]"));
}

// ---- memory ----

TEST_F(VerifyCmsTest, RootCertificateBufferCannotBeHad) {
  SignedBy("classic_signer");
  allocfaults::FailMallocOfSize(BOOT_INIT_ROOT_CERT_LEN);
  EXPECT_EQ(Verify(), 0x88000001u);
  EXPECT_EQ(allocfaults::Failures(), 1);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:[DIGITAL SIGNATURE]Initialize root "
                                     "certificate failed, errno: 12."));
  EXPECT_EQ(cmsfaults::Get().contextsMade, 1);
  EXPECT_EQ(cmsfaults::Get().signatureChecks, 0);
}

// Settled behaviour: without the flash CRL buffer the signature is not checked at all and the
// call still succeeds, here for a file that no longer matches its signature.
TEST_F(VerifyCmsTest, FlashCrlBufferCannotBeHadLeavesTheSignatureUnchecked) {
  SignedBy("classic_signer");
  testsupport::WriteFile(kSource, "something else");
  allocfaults::FailMallocOfSize(crltest::kCrlMaxLen);
  EXPECT_EQ(Verify(), 0u);
  EXPECT_EQ(allocfaults::Failures(), 1);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:malloc crl buffer failed, errno:12"));
  EXPECT_EQ(cmsfaults::Get().signatureChecks, 0);
}

TEST_F(VerifyCmsTest, FailedZeroingOfTheFlashCrlBufferIsOnlyAWarning) {
  StoreInArea(Area::kClassic, PkiBytes("crl_revoking.der"));
  SignedBy("revoked_signer");
  cmsfaults::Get().failCrlBufferZeroing = true;
  EXPECT_EQ(Verify(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(MatchesRegex(R"(\[BOOT_INIT\]\[WARNING\]:memset )"
                                                  R"(unsuccessfully: BOOT_INIT_VerifyCms, )"
                                                  R"(line: [0-9]+)"),
                                     kNotVerified));
}

TEST_F(VerifyCmsTest, EmptyArguments) {
  const char *path = kSource.c_str();
  EXPECT_EQ(BOOT_INIT_VerifyCms(nullptr, path, path), 0x10000002u);
  EXPECT_EQ(BOOT_INIT_VerifyCms(path, nullptr, path), 0x10000002u);
  EXPECT_EQ(BOOT_INIT_VerifyCms(path, path, nullptr), 0x10000002u);
  EXPECT_EQ(cmsfaults::Get().contextsMade, 0);
  EXPECT_THAT(
      MainLog(),
      testing::Each(std::string("[BOOT_INIT][ERROR]:input param is null when check null 1")));
  EXPECT_EQ(MainLog().size(), 3u);
}

}  // namespace
